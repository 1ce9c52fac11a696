#include "bthal/run/extension_clients.h"

#include <aidl/vendor/tovani/bluetooth_ext/IBTChannelAvoidance.h>
#include <aidl/vendor/tovani/bluetooth_ext/IBluetoothFinder.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include <algorithm>
#include <bit>
#include <functional>
#include <memory>

#include "bthal/hci/hex.h"
#include "bthal/hci/lines/split_words.h"
#include "bthal/run/service_calls.h"

namespace bthal::tool {
namespace {

using ::aidl::vendor::tovani::bluetooth_ext::IBluetoothFinder;
using ::aidl::vendor::tovani::bluetooth_ext::IBTChannelAvoidance;
using ::android::base::StringPrintf;

constexpr int kServiceErrorOff = -22;
constexpr uint8_t kLastChannels = 0x7F;  // 72 to 78; the top bit is no channel

template <typename I>
std::shared_ptr<I> Find(std::string* error) {
  return I::fromBinder(FindService(std::string(I::descriptor) + "/default", error));
}

bool Works(std::function<::ndk::ScopedAStatus()> call, const char* what, std::string* error) {
  const std::optional<::ndk::ScopedAStatus> status = Called(std::move(call), error);
  if (!status || CallWorked(*status, what, error)) return status.has_value();
  if (status->getExceptionCode() == EX_SERVICE_SPECIFIC && status->getServiceSpecificError() == kServiceErrorOff) {
    *error = std::string(what) + ": Bluetooth is off (a client must have the HAL, as bthal hci does)";
  }
  return false;
}

}  // namespace

bool SetChannelMap(const ChannelMap& map, std::string* error) {
  const auto service = Find<IBTChannelAvoidance>(error);
  return service != nullptr &&
         Works([=] { return service->setBluetoothChannelStatus(map); }, "cannot set the channel map", error);
}

bool SendFinderKeys(const std::vector<uint8_t>& keys, std::string* error) {
  const auto service = Find<IBluetoothFinder>(error);
  return service != nullptr && Works([=] { return service->sendPrecomputedKeys(keys); }, "cannot give the keys", error);
}

bool SetFinderMode(bool enable, std::string* error) {
  const auto service = Find<IBluetoothFinder>(error);
  return service != nullptr &&
         Works([=] { return service->setPoweredOffMode(enable); }, "cannot switch the powered-off mode", error);
}

std::optional<ChannelMap> ParseChannelMap(std::string_view text, std::string* error) {
  const std::optional<std::vector<uint8_t>> bytes = ParseHex(text);
  if (!bytes || bytes->size() != kChannelMapSize) {
    *error = StringPrintf("'%s' is no channel map: expected 10 bytes in hex, bit n for channel n, as in %s",
                          std::string(text).c_str(), "ffffffffffffffffff7f");
    return std::nullopt;
  }
  ChannelMap map;
  std::ranges::copy(*bytes, map.begin());
  return map;
}

std::optional<ChannelMap> MapWithout(const std::string& channels, std::string* error) {
  constexpr uint64_t kLastChannel = 78;
  ChannelMap map;
  map.fill(0xFF);
  map.back() = kLastChannels;
  for (const std::string& range : ::android::base::Split(channels, ",")) {
    const size_t dash = range.find('-');
    const std::optional<uint64_t> first = ParseNumber(range.substr(0, dash), kLastChannel);
    const std::optional<uint64_t> last =
        dash == std::string::npos ? first : ParseNumber(range.substr(dash + 1), kLastChannel);
    if (!first || !last || *last < *first) {
      *error = "'" + range + "' is no channel: expected numbers from 0 to 78, or ranges of them, as in 0-10,37";
      return std::nullopt;
    }
    for (uint64_t channel = *first; channel <= *last; ++channel) {
      map[channel / 8] = static_cast<uint8_t>(map[channel / 8] & ~(1 << channel % 8));
    }
  }
  return map;
}

bool LeavesEnoughChannels(const ChannelMap& map, std::string* error) {
  constexpr int kLeast = 20;
  int left = std::popcount(static_cast<uint8_t>(map.back() & kLastChannels));
  for (size_t i = 0; i + 1 < map.size(); ++i) left += std::popcount(map[i]);
  if (left >= kLeast) return true;
  *error = StringPrintf("the map leaves %d of the 79 channels, and a controller takes none that leaves fewer than %d",
                        left, kLeast);
  return false;
}

std::optional<FinderFile> ParseFinderFile(const std::string& content, std::string* error) {
  FinderFile file;
  int number = 0;
  for (const std::string& line : ::android::base::Split(content, "\n")) {
    ++number;
    const std::string text = ::android::base::Join(SplitWords(line.substr(0, line.find('#'))), ' ');
    if (text.empty()) continue;
    if (text == "mode on" || text == "mode off") {
      file.enable = text == "mode on";
      continue;
    }
    const std::optional<std::vector<uint8_t>> key = ParseHex(text);
    if (!key || key->size() != kFinderKeySize) {
      *error = StringPrintf("line %d is neither a key of 20 bytes in hex nor 'mode on' nor 'mode off'", number);
      return std::nullopt;
    }
    file.keys.insert(file.keys.end(), key->begin(), key->end());
  }
  return file;
}

}  // namespace bthal::tool
