// The classes that stand in for generated ones do what the .aidl files say: every transaction code is tried on a real
// object, and every method of the proxy.
#include <aidl/android/hardware/bluetooth/BpBluetoothHci.h>
#include <aidl/android/hardware/bluetooth/BpBluetoothHciCallbacks.h>
#include <aidl/vendor/tovani/bluetooth_ext/BnBTChannelAvoidance.h>
#include <aidl/vendor/tovani/bluetooth_ext/BnBluetoothCcc.h>
#include <aidl/vendor/tovani/bluetooth_ext/BnBluetoothEwp.h>
#include <aidl/vendor/tovani/bluetooth_ext/BnBluetoothExt.h>
#include <aidl/vendor/tovani/bluetooth_ext/BnBluetoothFinder.h>
#include <aidl/vendor/tovani/bluetooth_ext/BnBluetoothSar.h>
#include <aidl/vendor/tovani/bluetooth_ext/BpBTChannelAvoidance.h>
#include <aidl/vendor/tovani/bluetooth_ext/BpBluetoothCcc.h>
#include <aidl/vendor/tovani/bluetooth_ext/BpBluetoothEwp.h>
#include <aidl/vendor/tovani/bluetooth_ext/BpBluetoothExt.h>
#include <aidl/vendor/tovani/bluetooth_ext/BpBluetoothFinder.h>
#include <aidl/vendor/tovani/bluetooth_ext/BpBluetoothSar.h>
#include <android-base/strings.h>

#include <regex>
#include <type_traits>

#include "host/binder_objects.h"
#include "support/test.h"

namespace bthal::test {
namespace {

namespace hci = ::aidl::android::hardware::bluetooth;
namespace ext = ::aidl::vendor::tovani::bluetooth_ext;
using ::android::base::Join;
using ::android::base::Split;
using ::android::base::Trim;

const fs::path kInterfaces = fs::path(SOURCE_TREE) / "interfaces";

struct Method {
  std::string returned;
  std::string name;
  std::vector<std::string> types;
  bool operator==(const Method&) const = default;
};
struct Definition {
  std::string descriptor;
  std::vector<Method> methods;           // of an interface
  std::vector<std::string> enumerators;  // of an enum
  bool operator==(const Definition&) const = default;
};

std::smatch Match(const std::string& text, const std::string& pattern) {
  std::smatch match;
  if (!std::regex_match(text, match, std::regex(pattern))) throw std::runtime_error("cannot read: " + text);
  return match;
}

std::vector<std::string> Parts(const std::string& text, const std::string& delimiter) {
  std::vector<std::string> parts;
  for (const std::string& part : Split(text, delimiter)) {
    if (!Trim(part).empty()) parts.push_back(Trim(part));
  }
  return parts;
}

Definition Parse(const fs::path& file) {
  std::string text = ContentOf(file);
  text = Join(Parts(std::regex_replace(text, std::regex(R"(/\*[^]*?\*/|//[^\n]*)"), " "), "\n"), " ");
  const std::string annotation = R"_((?:@\w+(?:\([^)]*\))? )*)_";
  const std::smatch all =
      Match(text, "package ([\\w.]+); (?:import [\\w.]+; )*" + annotation + R"((interface|enum) (\w+) \{ ?([^{}]*)\})");
  Definition definition{.descriptor = all[1].str() + "." + all[3].str(), .methods = {}, .enumerators = {}};
  if (all[2] == "enum") {
    for (const std::string& name : Parts(all[4], ",")) definition.enumerators.push_back(Match(name, "\\w+")[0]);
    return definition;
  }
  for (const std::string& statement : Parts(all[4], ";")) {
    const std::smatch method = Match(statement, R"((\w+) (\w+)\((.*)\))");
    definition.methods.push_back({method[1], method[2], {}});
    for (const std::string& argument : Parts(method[3], ",")) {
      definition.methods.back().types.push_back(Match(argument, R"(in ([\w\[\]]+) \w+)")[1]);
    }
  }
  return definition;
}

// A value of each type for the argument at `place`, and what it looks like to a method that gets it as that type.
template <typename T>
struct As {};
uint8_t First(size_t place) { return static_cast<uint8_t>(0x81 + place); }

Bytes Sample(As<Bytes>, size_t place) { return {First(place), 2, 3}; }
template <size_t N>
std::array<uint8_t, N> Sample(As<std::array<uint8_t, N>>, size_t place) {
  return {First(place), 2};
}
int8_t Sample(As<int8_t>, size_t place) { return static_cast<int8_t>(First(place)); }
bool Sample(As<bool>, size_t) { return true; }
HciStatus Sample(As<HciStatus>, size_t) { return HciStatus::TRANSPORT_ERROR; }
std::shared_ptr<Callbacks> Sample(As<std::shared_ptr<Callbacks>>, size_t) {
  static const std::shared_ptr<Callbacks> callbacks = SharedRefBase::make<FakeCallbacks>();
  return callbacks;
}

template <typename Container>
std::string ShowBytes(const std::string& type, const Container& bytes) {
  std::string text = type;
  for (const uint8_t byte : bytes) text += " " + std::to_string(byte);
  return text;
}
std::string Show(const Bytes& value) { return ShowBytes("byte[]", value); }
template <size_t N>
std::string Show(const std::array<uint8_t, N>& value) {
  return ShowBytes("byte[" + std::to_string(N) + "]", value);
}
std::string Show(int8_t value) { return "byte " + std::to_string(value); }
std::string Show(bool value) { return value ? "boolean true" : "boolean false"; }
std::string Show(HciStatus value) { return "Status " + std::to_string(static_cast<int32_t>(value)); }
template <typename I>
std::string Show(const std::shared_ptr<I>& value) {
  return value == nullptr ? "null" : Split(I::descriptor, ".").back();
}

// Writes the sample of an AIDL type as the wire has it, and says what it is to look like.
std::string WriteSample(AParcel* parcel, const std::string& type, size_t place) {
  std::smatch array;
  if (std::regex_match(type, array, std::regex(R"(byte\[(\d*)\])"))) {
    Bytes bytes = Sample(As<Bytes>(), place);
    if (array[1].length() != 0) {
      bytes = {First(place), 2};
      bytes.resize(std::stoul(array[1]));
    }
    AParcel_writeByteArray(parcel, reinterpret_cast<const int8_t*>(bytes.data()), static_cast<int32_t>(bytes.size()));
    return ShowBytes(type, bytes);
  }
  if (type == "byte") {
    AParcel_writeByte(parcel, Sample(As<int8_t>(), place));
    return "byte " + std::to_string(Sample(As<int8_t>(), place));
  }
  if (type == "boolean") {
    AParcel_writeBool(parcel, true);
    return "boolean true";
  }
  if (type == "Status") {
    AParcel_writeInt32(parcel, 4);
    return "Status 4";
  }
  if (type != "IBluetoothHciCallbacks") throw std::runtime_error("no sample of type " + type);
  AParcel_writeStrongBinder(parcel, Sample(As<std::shared_ptr<Callbacks>>(), place)->asBinder().get());
  return type;
}

// What a method says of its call goes back as its outcome's message.
template <typename... Args>
ScopedAStatus Heard(const char* method, const Args&... args) {
  const std::string text = std::string(method) + "(" + Join(std::vector<std::string>{Show(args)...}, ", ") + ")";
  return ScopedAStatus::fromServiceSpecificErrorWithMessage(1, text.c_str());
}

struct HeardHci : hci::BnBluetoothHci {
  ScopedAStatus close() override { return Heard(__func__); }
  ScopedAStatus initialize(const std::shared_ptr<Callbacks>& callbacks) override { return Heard(__func__, callbacks); }
  ScopedAStatus sendAclData(const Bytes& data) override { return Heard(__func__, data); }
  ScopedAStatus sendHciCommand(const Bytes& command) override { return Heard(__func__, command); }
  ScopedAStatus sendIsoData(const Bytes& data) override { return Heard(__func__, data); }
  ScopedAStatus sendScoData(const Bytes& data) override { return Heard(__func__, data); }
};
struct HeardCallbacks : hci::BnBluetoothHciCallbacks {
  ScopedAStatus aclDataReceived(const Bytes& data) override { return Heard(__func__, data); }
  ScopedAStatus hciEventReceived(const Bytes& event) override { return Heard(__func__, event); }
  ScopedAStatus initializationComplete(HciStatus status) override { return Heard(__func__, status); }
  ScopedAStatus isoDataReceived(const Bytes& data) override { return Heard(__func__, data); }
  ScopedAStatus scoDataReceived(const Bytes& data) override { return Heard(__func__, data); }
};
struct HeardAvoidance : ext::BnBTChannelAvoidance {
  ScopedAStatus setBluetoothChannelStatus(const std::array<uint8_t, 10>& map) override { return Heard(__func__, map); }
};
struct HeardCcc : ext::BnBluetoothCcc {
  ScopedAStatus registerForLmpEvents(const std::array<uint8_t, 6>& address, const Bytes& events) override {
    return Heard(__func__, address, events);
  }
  ScopedAStatus unregisterLmpEvents(const std::array<uint8_t, 6>& address) override { return Heard(__func__, address); }
};
struct HeardEwp : ext::BnBluetoothEwp {};
struct HeardExt : ext::BnBluetoothExt {
  ScopedAStatus sendHciCommand(const Bytes& command) override { return Heard(__func__, command); }
};
struct HeardFinder : ext::BnBluetoothFinder {
  ScopedAStatus sendPrecomputedKeys(const Bytes& keys) override { return Heard(__func__, keys); }
  ScopedAStatus setPoweredOffMode(bool enable) override { return Heard(__func__, enable); }
};
struct HeardSar : ext::BnBluetoothSar {
  ScopedAStatus setBluetoothTxPowerCap(int8_t cap) override { return Heard(__func__, cap); }
};

// Calls by number, as a client of another build would. Returns what was heard; `*expected` is what should have been.
std::string Transact(AIBinder* binder, size_t place, const Method& method, std::string* expected) {
  AParcel* in = nullptr;
  ::ndk::ScopedAParcel out;
  EXPECT_EQ(AIBinder_prepareTransaction(binder, &in), STATUS_OK);
  std::vector<std::string> arguments;
  for (const std::string& type : method.types) arguments.push_back(WriteSample(in, type, arguments.size()));
  *expected = method.name + "(" + Join(arguments, ", ") + ")";
  const auto code = static_cast<transaction_code_t>(FIRST_CALL_TRANSACTION + place);
  const binder_status_t status = AIBinder_transact(binder, code, &in, out.getR(), 0);
  if (status != STATUS_OK) return "status " + std::to_string(status);
  ScopedAStatus outcome;
  EXPECT_EQ(AParcel_readStatusHeader(out.get(), outcome.getR()), STATUS_OK);
  // A method that returns something has it behind the outcome.
  EXPECT_EQ(method.returned, "void");
  EXPECT_EQ(AParcel_getDataPosition(out.get()), AParcel_getDataSize(out.get()));
  return outcome.getMessage();
}

template <typename I, typename... Args, size_t... PLACE>
std::string CallMethod(I& object, host::Method<I, Args...> method, std::index_sequence<PLACE...>) {
  return (object.*method)(Sample(As<std::decay_t<Args>>(), PLACE)...).getMessage();
}
template <typename I, typename... Args>
std::string CallMethod(I& object, host::Method<I, Args...> method) {
  return CallMethod(object, method, std::index_sequence_for<Args...>());
}
template <typename I, auto... METHODS>
std::vector<std::string> CallMethods([[maybe_unused]] I& object, host::Methods<METHODS...>) {
  return {CallMethod(object, METHODS)...};
}

template <typename Local, typename Remote, typename I>
void Check(const Definition& definition) {
  const auto object = SharedRefBase::make<Local>();
  const ::ndk::SpAIBinder binder = object->asBinder();
  EXPECT_EQ(I::descriptor, definition.descriptor);
  EXPECT_EQ(AIBinder_Class_getDescriptor(AIBinder_getClass(binder.get())), definition.descriptor);
  std::vector<std::string> expected(definition.methods.size());
  std::vector<std::string> heard;
  for (const Method& method : definition.methods) {
    heard.push_back(Transact(binder.get(), heard.size(), method, &expected[heard.size()]));
  }
  EXPECT_EQ(heard, expected) << "what the object served, by transaction code";
  const std::string none = "status " + std::to_string(STATUS_UNKNOWN_TRANSACTION);
  std::string ignored;
  EXPECT_EQ(Transact(binder.get(), expected.size(), {"void", "", {}}, &ignored), none) << "a method too many";
  const auto proxy = SharedRefBase::make<Remote>(binder);
  EXPECT_EQ(CallMethods<I>(*proxy, typename I::Methods()), expected) << "what the proxy's methods reached";
}

void CheckStatus(const Definition& definition) {
  static_assert(std::is_same_v<std::underlying_type_t<HciStatus>, int32_t>);
  int32_t value = 0;
  for (const std::string& name : definition.enumerators) EXPECT_EQ(toString(static_cast<HciStatus>(value++)), name);
  EXPECT_EQ(toString(static_cast<HciStatus>(value)), std::to_string(value)) << "an enumerator too many";
}

TEST(AidlTest, TheClassesDoWhatTheDefinitionsSay) {
  const std::map<std::string, std::function<void(const Definition&)>> checks = {
      {"android/hardware/bluetooth/IBluetoothHci.aidl", Check<HeardHci, hci::BpBluetoothHci, hci::IBluetoothHci>},
      {"android/hardware/bluetooth/IBluetoothHciCallbacks.aidl",
       Check<HeardCallbacks, hci::BpBluetoothHciCallbacks, hci::IBluetoothHciCallbacks>},
      {"android/hardware/bluetooth/Status.aidl", CheckStatus},
      {"vendor/tovani/bluetooth_ext/IBTChannelAvoidance.aidl",
       Check<HeardAvoidance, ext::BpBTChannelAvoidance, ext::IBTChannelAvoidance>},
      {"vendor/tovani/bluetooth_ext/IBluetoothCcc.aidl", Check<HeardCcc, ext::BpBluetoothCcc, ext::IBluetoothCcc>},
      {"vendor/tovani/bluetooth_ext/IBluetoothEwp.aidl", Check<HeardEwp, ext::BpBluetoothEwp, ext::IBluetoothEwp>},
      {"vendor/tovani/bluetooth_ext/IBluetoothExt.aidl", Check<HeardExt, ext::BpBluetoothExt, ext::IBluetoothExt>},
      {"vendor/tovani/bluetooth_ext/IBluetoothFinder.aidl",
       Check<HeardFinder, ext::BpBluetoothFinder, ext::IBluetoothFinder>},
      {"vendor/tovani/bluetooth_ext/IBluetoothSar.aidl", Check<HeardSar, ext::BpBluetoothSar, ext::IBluetoothSar>},
  };
  size_t definitions = 0;
  for (const char* owner : {"android", "vendor"}) {
    for (const auto& entry : fs::recursive_directory_iterator(kInterfaces / owner)) {
      if (entry.path().extension() != ".aidl") continue;
      const std::string file = entry.path().lexically_relative(kInterfaces).string();
      SCOPED_TRACE(file);
      ++definitions;
      const Definition definition = Parse(entry.path());
      EXPECT_EQ(std::regex_replace(definition.descriptor, std::regex("\\."), "/") + ".aidl", file);
      ASSERT_TRUE(checks.contains(file)) << "nobody checks it";
      checks.at(file)(definition);
    }
  }
  EXPECT_EQ(definitions, checks.size());
}

TEST(AidlTest, AnObjectOfAnotherInterfaceIsNotMistakenForOneOfThis) {
  const auto other = SharedRefBase::make<HeardExt>();
  EXPECT_EQ(ext::IBluetoothSar::fromBinder(other->asBinder()), nullptr);
  EXPECT_EQ(ext::IBluetoothExt::fromBinder(other->asBinder()), other);
}

TEST(AidlTest, WhatIsFrozenIsWhatIsDefined) {
  size_t snapshots = 0;
  for (const char* version : {"1", "current"}) {
    const fs::path snapshot = kInterfaces / "aidl_api/vendor.tovani.bluetooth_ext" / version;
    for (const auto& entry : fs::recursive_directory_iterator(snapshot)) {
      if (entry.path().extension() != ".aidl") continue;
      ++snapshots;
      const fs::path file = entry.path().lexically_relative(snapshot);
      EXPECT_EQ(Parse(entry.path()), Parse(kInterfaces / file)) << version << "/" << file.string();
    }
  }
  EXPECT_EQ(snapshots, 2u * 6u);
}

}  // namespace
}  // namespace bthal::test
