// bthal prop: system properties.
#include <android-base/properties.h>
#include <android-base/stringprintf.h>
#include <host/property_store.h>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "bthal/cli/command.h"
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
    if (name.starts_with(options.name))
      printf("%s\n", Folded(::android::base::StringPrintf("[%s]: [%s]", name.c_str(), value.c_str())).c_str());
  }
  return 0;
}

}  // namespace

void AddProp(Command& app) {
  auto options = std::make_shared<PropOptions>();
  Command prop = app.Add("prop", "Read and set system properties");
  prop.NeedsSubcommand();

  Command get = prop.Add("get", "Print the value of NAME");
  get.Take("name", &options->name, "").Required();
  const Parameter fallback = get.Take("default", &options->fallback, "printed where it is not set");
  get.Run([=] {
    options->has_fallback = fallback.Given();
    return Get(*options);
  });

  Command set = prop.Add("set", "Set NAME to VALUE; other processes see it at once");
  set.Take("name", &options->name, "").Required();
  set.Take("value", &options->value, "").Required();
  set.Run([=] { return Set(*options); });

  Command list = prop.Add("list", "Print all that are set");
  list.Take("prefix", &options->name, "only those whose name begins so");
  list.Run([=] { return List(*options); });

  prop.Footer(
      "'persist.' properties outlive a reboot, 'ro.' ones are set once, a value has at most 91 bytes.\n"
      "\nExamples:\n"
      "  bthal prop set persist.bluetooth.vendor.btsnoop true     log all packets from the next start on\n"
      "  bthal prop set persist.bluetooth.disable.accelerate.bt.on true\n"
      "  bthal prop get persist.bluetooth.otp.status Unknown\n"
      "  bthal prop list persist.bluetooth.");
}

}  // namespace bthal::tool
