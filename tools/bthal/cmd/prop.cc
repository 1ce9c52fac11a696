// bthal prop: system properties.
#include <android-base/logging.h>
#include <android-base/properties.h>
#include <android-base/stringprintf.h>
#include <host/device_root.h>
#include <host/property_store.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <string_view>
#include <vector>

#include "bthal/cli/command.h"
#include "bthal/cli/help_text.h"
#include "bthal/cmd/commands.h"
#include "bthal/run/device_root.h"
#include "bthal/show/known_names.h"
#include "bthal/show/terminal.h"

namespace bthal::tool {
namespace {

constexpr std::string_view kLasting = "persist.";

struct PropOptions {
  std::string name;
  std::string value;
  std::string fallback;
  bool has_fallback = false;
  bool known = false;
};

bool IsSet(const std::string& name) {
  const auto all = ::bthal::host::ListProperties();
  return std::ranges::any_of(all, [&](const auto& property) { return property.first == name; });
}

// The platform's rule.
bool IsPropertyName(const std::string& name) {
  constexpr size_t kLongestName = 200;
  const auto may_be_in = [](char c) { return isalnum(static_cast<unsigned char>(c)) != 0 || strchr("._-@:", c); };
  return !name.empty() && name.size() <= kLongestName && std::ranges::all_of(name, may_be_in) && name.front() != '.' &&
         name.back() != '.' && name.find("..") == std::string::npos;
}

int Get(const PropOptions& options) {
  std::string error;
  const bool set = IsSet(options.name);
  if (!set && !options.name.starts_with(kLasting) && !MeetingPlaceIsOpen(&error)) return Complain(error);
  if (!set && !options.has_fallback) return Complain(options.name + " is not set");
  printf("%s\n", ::android::base::GetProperty(options.name, options.fallback).c_str());
  return 0;
}

int Set(const PropOptions& options) {
  if (!IsPropertyName(options.name)) {
    return Complain("'" + options.name +
                    "' is no property's name; it has letters, digits and ._-@:, at most 200, and " +
                    "no dot at an end or behind another");
  }
  constexpr size_t kLongestValue = 91;
  if (options.value.size() > kLongestValue) {
    return Complain("a value has at most 91 bytes, this one has " + std::to_string(options.value.size()));
  }
  if (options.name.starts_with("ro.") && IsSet(options.name)) {
    return Complain(options.name + " is read-only and already set, to '" +
                    ::android::base::GetProperty(options.name, "") + "'");
  }
  // Its own words for it name functions; ours name the folder.
  ::android::base::SetLogger([](auto...) {});
  const bool set = ::android::base::SetProperty(options.name, options.value);
  const int reason = errno;
  if (set) return 0;
  const char* folder = options.name.starts_with(kLasting) ? "/var/lib/bthal" : "/run/bthal";
  return Complain("cannot set " + options.name + " below " + ::bthal::host::BelowDeviceRoot(folder) + ": " +
                  strerror(reason));
}

int List(const PropOptions& options) {
  if (options.known) {
    std::vector<KnownName> shown;
    std::ranges::copy_if(KnownProperties(), std::back_inserter(shown),
                         [&](const KnownName& known) { return known.name.starts_with(options.name); });
    printf("%s", HelpOnTerminal(Explained(shown)).c_str());
    return 0;
  }
  for (const auto& [name, value] : ::bthal::host::ListProperties()) {
    if (name.starts_with(options.name))
      printf("%s\n", Folded(::android::base::StringPrintf("[%s]: [%s]", name.c_str(), value.c_str())).c_str());
  }
  std::string error;
  return options.name.starts_with(kLasting) || MeetingPlaceIsOpen(&error) ? 0 : Complain(error);
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
  list.Flag("--known", &options->known, "not what is set, but what the service looks at, and what it does");
  list.Run([=] { return List(*options); });

  prop.Footer(
      "'persist.' properties outlive a reboot, 'ro.' ones are set once, a value has at most 91 bytes.\n"
      "\nExamples:\n"
      "  bthal prop set persist.bluetooth.vendor.btsnoop true     log all packets from the next start on\n"
      "  bthal prop set persist.bluetooth.disable.accelerate.bt.on true\n"
      "  bthal prop get persist.bluetooth.otp.status Unknown\n"
      "  bthal prop list persist.bluetooth.\n"
      "\nProperties:\n" +
      Explained(KnownProperties()));
}

}  // namespace bthal::tool
