// What an Android build, init, the framework and the policy are told of the service, held against the service.
#include <android-base/strings.h>
#include <host/service_registry.h>
#include <tinyxml2.h>

#include <regex>

#include "house/source_tree.h"
#include "support/run_program.h"
#include "support/service_harness.h"
#include "support/test.h"

namespace bthal::test {
namespace {

const fs::path kTree = SOURCE_TREE;
const fs::path kAndroid = kTree / "packaging/android";
constexpr char kService[] = "android.hardware.bluetooth-service.qnlbtlinux";
constexpr char kLibrary[] = "libbthal_qnlbtlinux";

using Names = std::set<std::string>;

Names NamesIn(const fs::path& path, const std::string& pattern) {
  const std::vector<std::string> found = Matches(ContentOf(path), pattern);
  return {found.begin(), found.end()};
}

// A build file's modules, each with the strings of its list `property`.
std::map<std::string, std::vector<std::string>> ListsOfModules(const fs::path& file, const std::string& property) {
  std::map<std::string, std::vector<std::string>> lists;
  for (const std::string& module : Matches(ContentOf(file), R"(^\w+ (\{\n(?:[^}].*\n|\n)*\}))")) {
    const std::vector<std::string> name = Matches(module, R"_(^    name: "([^"]*)")_");
    const std::vector<std::string> list = Matches(module, "^    " + property + R"(: (\[[^\]]*\]))");
    if (!name.empty() && !list.empty()) lists[name[0]] = Matches(list[0], R"_("([^"]*)")_");
  }
  return lists;
}

Names NamesBelow(const fs::path& folder, const std::string& extension) {
  Names names;
  for (const fs::path& file : FilesBelow(folder, {extension})) names.insert(file.lexically_relative(kTree).string());
  return names;
}

TEST(AndroidPackagingTest, EverySourceIsBuiltOnceAndWhereItBelongs) {
  std::map<std::string, std::vector<std::string>> modules_of;
  for (const auto& [module, sources] : ListsOfModules(kTree / "Android.bp", "srcs")) {
    for (const std::string& source : sources) modules_of[source].push_back(module);
  }
  for (const std::string& source : NamesBelow(kTree / "src", ".cc")) {
    const std::string module = source == "src/service.cc" ? kService : kLibrary;
    EXPECT_EQ(modules_of[source], std::vector<std::string>{module})
        << "Android.bp must have once, in srcs of " << module << " and nowhere else:\n        \"" << source << "\",";
    modules_of.erase(source);
  }
  for (const std::string& schema : NamesBelow(kTree / "src", ".fbs")) {
    EXPECT_EQ(modules_of[schema], std::vector<std::string>{"bthal_hub_schema"}) << schema;
    modules_of.erase(schema);
  }
  for (const auto& [source, modules] : modules_of) {
    ADD_FAILURE() << "Android.bp must lose, in srcs of " << modules[0] << ", what is not there:\n        \"" << source
                  << "\",";
  }
}

TEST(AndroidPackagingTest, TheVendorsInterfacesAreBuiltAndFrozen) {
  const std::string package = "vendor.tovani.bluetooth_ext";
  const fs::path interfaces = kTree / "interfaces";
  const auto sources = ListsOfModules(interfaces / "Android.bp", "srcs");
  Names listed;
  for (const std::string& source : sources.at(package)) {
    listed.insert((fs::path("interfaces") / source).string());
  }
  EXPECT_EQ(listed, NamesBelow(interfaces / "vendor", ".aidl")) << "srcs in interfaces/Android.bp";
  // As the platform's build computes it.
  const fs::path frozen = interfaces / "aidl_api" / package / "1";
  const ProgramResult hash = RunProgram(
      {"/bin/sh", "-c",
       "cd '" + frozen.string() +
           "' && { find ./ -name '*.aidl' -print0 | LC_ALL=C sort -z | xargs -0 sha1sum && echo 1; } | sha1sum"});
  EXPECT_EQ(hash.out.substr(0, 40) + "\n", ContentOf(frozen / ".hash"))
      << "version 1 was given out, and stays as it is";
}

TEST(AndroidPackagingTest, WhatIsPublishedIsWhatEverybodyIsTold) {
  const TempRoot root;
  SetProperty("persist.bluetooth.disable.accelerate.bt.on", "true");
  ServiceProcess service(SERVICE_PROGRAM, root.path());
  ASSERT_TRUE(service.WaitUntilPublished());
  Names published;
  for (const auto& entry : host::ListServices()) published.insert(entry.instance);

  tinyxml2::XMLDocument manifest;
  const std::string path = (kAndroid / (std::string(kService) + ".xml")).string();
  ASSERT_EQ(manifest.LoadFile(path.c_str()), tinyxml2::XML_SUCCESS) << manifest.ErrorStr();
  ASSERT_STREQ(manifest.RootElement()->Name(), "manifest");
  EXPECT_STREQ(manifest.RootElement()->Attribute("type"), "device");
  Names declared;
  for (auto* hal = manifest.RootElement()->FirstChildElement("hal"); hal; hal = hal->NextSiblingElement("hal")) {
    EXPECT_STREQ(hal->Attribute("format"), "aidl");
    EXPECT_STREQ(hal->FirstChildElement("version")->GetText(), "1");
    const std::string package = hal->FirstChildElement("name")->GetText();
    for (auto* name = hal->FirstChildElement("fqname"); name; name = name->NextSiblingElement("fqname")) {
      declared.insert(package + "." + name->GetText());
    }
  }
  EXPECT_EQ(declared, published) << path;

  const fs::path script = kAndroid / (std::string(kService) + ".rc");
  EXPECT_EQ(NamesIn(script, R"(^    interface aidl (\S+)$)"), published) << script;
  EXPECT_EQ(NamesIn(script, R"(^service \S+ (\S+)$)"),
            Names{"/vendor/bin/hw/" + fs::path(SERVICE_PROGRAM).filename().string()});
  // The platform's policy knows its own service.
  Names labelled = NamesIn(kAndroid / "sepolicy/service_contexts", R"(^(\S+/default) )");
  labelled.insert("android.hardware.bluetooth.IBluetoothHci/default");
  EXPECT_EQ(labelled, published) << "sepolicy/service_contexts";

  EXPECT_TRUE(fs::exists(kTree / ListsOfModules(kTree / "Android.bp", "init_rc")[kService].at(0)));
  EXPECT_TRUE(fs::exists(kTree / ListsOfModules(kTree / "Android.bp", "vintf_fragments")[kService].at(0)));
}

// Where a link of the kernel's leads; the policy names the place itself.
std::string WithoutLinks(const std::string& path) {
  return std::regex_replace(
      std::regex_replace(path, std::regex("^/proc/device-tree/"), "/sys/firmware/devicetree/base/"),
      std::regex("^/sys/class/rfkill/"), "/sys/devices/platform/rfkill/");
}

bool HasLabel(const std::string& path) {
  static const Names patterns = NamesIn(kAndroid / "sepolicy/file_contexts", R"(^(/\S+) )");
  static const Names prefixes = NamesIn(kAndroid / "sepolicy/genfs_contexts", R"(^genfscon (\w+ +\S+) )");
  for (const std::string& pattern : patterns) {
    if (std::regex_match(path, std::regex(pattern))) return true;
  }
  for (const std::string& prefix : prefixes) {
    if (path.starts_with("/" + std::regex_replace(prefix, std::regex("(fs)? +"), ""))) return true;
  }
  // The platform's own labels.
  return path.starts_with("/sys/class/power_supply/battery/") || path.starts_with("/proc/self/");
}

TEST(AndroidPackagingTest, ThePlacesTheServiceUsesAreThereAndAllowed) {
  const fs::path script = kAndroid / (std::string(kService) + ".rc");
  const Names folders = NamesIn(script, R"(^    mkdir (\S+) 0\d{3} bluetooth \w+$)");
  Names used;
  for (const char* extension : {".cc", ".h"}) {
    for (const std::string& source : NamesBelow(kTree / "src", extension)) {
      for (const std::string& path : Matches(ContentOf(kTree / source), R"_("(/(?:dev|sys|proc|data)/[^"\s]*)")_")) {
        EXPECT_TRUE(HasLabel(WithoutLinks(path)))
            << "no label in packaging/android/sepolicy for " << path << ", named in " << source;
        if (path.starts_with("/data/")) used.insert(path.substr(0, path.rfind('/')));
      }
    }
  }
  EXPECT_EQ(folders, used) << "mkdir in " << script;
  // What has a label has a type, and the service may do something with it.
  const std::string rules = ContentOf(kAndroid / "sepolicy/hal_bluetooth_qnlbtlinux.te");
  for (const char* file : {"file_contexts", "genfs_contexts", "property_contexts", "service_contexts"}) {
    for (const std::string& type : NamesIn(kAndroid / "sepolicy" / file, R"(u:object_r:(\w+):s0$)")) {
      EXPECT_TRUE(std::regex_search(rules, std::regex("(^|\n)(type|vendor_internal_prop\\() ?" + type + "\\b")))
          << type;
    }
  }
}

}  // namespace
}  // namespace bthal::test
