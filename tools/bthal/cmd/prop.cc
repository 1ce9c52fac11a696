// bthal prop: system properties.
#include <android-base/properties.h>
#include <host/property_store.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "bthal/cmd/commands.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

struct PropOptions {
  std::string name;
  std::string value;
  std::string fallback;
  bool has_fallback = false;
};

bool IsSet(const std::string& name) {
  const auto all = ::bthal::host::ListProperties();
  return std::ranges::any_of(all, [&](const auto& property) { return property.first == name; });
}

int Get(const PropOptions& options) {
  if (!IsSet(options.name) && !options.has_fallback) return Complain(options.name + " is not set");
  printf("%s\n", ::android::base::GetProperty(options.name, options.fallback).c_str());
  return 0;
}

int Set(const PropOptions& options) {
  constexpr size_t kLongestValue = 91;
  if (options.value.size() > kLongestValue) {
    return Complain("a value has at most 91 bytes, this one has " + std::to_string(options.value.size()));
  }
  if (options.name.starts_with("ro.") && IsSet(options.name)) {
    return Complain(options.name + " is read-only and already set, to '" +
                    ::android::base::GetProperty(options.name, "") + "'");
  }
  if (!::android::base::SetProperty(options.name, options.value)) {
    return Complain("cannot set " + options.name + ": not a property's name, or its folder cannot be written");
  }
  return 0;
}

int List(const PropOptions& options) {
  for (const auto& [name, value] : ::bthal::host::ListProperties()) {
    if (name.starts_with(options.name)) printf("[%s]: [%s]\n", name.c_str(), value.c_str());
  }
  return 0;
}

}  // namespace

void AddProp(CLI::App& app, int* status) {
  auto options = std::make_shared<PropOptions>();
  CLI::App* prop = app.add_subcommand("prop", "Read and set system properties");
  prop->require_subcommand(1);

  CLI::App* get = prop->add_subcommand("get", "Print the value of NAME");
  get->add_option("name", options->name)->required();
  CLI::Option* fallback = get->add_option("default", options->fallback, "printed where it is not set");
  get->callback([=] {
    options->has_fallback = fallback->count() != 0;
    *status = Get(*options);
  });

  CLI::App* set = prop->add_subcommand("set", "Set NAME to VALUE; other processes see it at once");
  set->add_option("name", options->name)->required();
  set->add_option("value", options->value)->required();
  set->callback([=] { *status = Set(*options); });

  CLI::App* list = prop->add_subcommand("list", "Print all that are set");
  list->add_option("prefix", options->name, "only those whose name begins so");
  list->callback([=] { *status = List(*options); });

  prop->footer(
      "'persist.' properties outlive a reboot, 'ro.' ones are set once, a value has at most 91 bytes.\n"
      "\nExamples:\n"
      "  bthal prop set persist.bluetooth.vendor.btsnoop true     log all packets from the next start on\n"
      "  bthal prop set persist.bluetooth.disable.accelerate.bt.on true\n"
      "  bthal prop get persist.bluetooth.otp.status Unknown\n"
      "  bthal prop list persist.bluetooth.");
}

}  // namespace bthal::tool
