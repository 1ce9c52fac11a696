#include "bthal/show/time_column.h"

#include <android-base/stringprintf.h>

#include <array>
#include <cstring>
#include <ctime>

#include "bthal/hci/hex.h"
#include "bthal/show/journal_words.h"

namespace bthal::tool {
namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;

constexpr int64_t kUsPerSecond = 1000000;
constexpr int64_t kSecondsPerDay = int64_t{24} * 3600;

std::optional<int64_t> ParseAgo(std::string_view text) {
  struct Unit {
    char letter;
    int64_t seconds;
  };
  constexpr std::array<Unit, 4> kUnits = {{{'s', 1}, {'m', 60}, {'h', 3600}, {'d', kSecondsPerDay}}};
  for (const Unit& unit : kUnits) {
    if (text.empty() || text.back() != unit.letter) continue;
    const std::optional<double> count = ParseSeconds(text.substr(0, text.size() - 1));
    if (count) return static_cast<int64_t>(*count * static_cast<double>(unit.seconds * kUsPerSecond));
  }
  return std::nullopt;
}

// The time of `fields` in this machine's zone; -1 where `text` has not this form.
time_t ReadAs(const char* form, const std::string& text, tm fields) {
  const char* end = strptime(text.c_str(), form, &fields);
  if (end == nullptr || *end != '\0') return -1;
  fields.tm_isdst = -1;
  return mktime(&fields);
}

}  // namespace

std::string WallTime(int64_t unix_us) {
  time_t seconds = unix_us / kUsPerSecond;
  int64_t fraction = unix_us % kUsPerSecond;
  if (fraction < 0) {  // before 1970
    fraction += kUsPerSecond;
    --seconds;
  }
  tm local = {};
  localtime_r(&seconds, &local);
  return ::android::base::StringPrintf("%02d:%02d:%02d.%06d", local.tm_hour, local.tm_min, local.tm_sec,
                                       static_cast<int>(fraction));
}

std::optional<int64_t> ParseMoment(std::string_view text, int64_t now_us) {
  if (const std::optional<int64_t> ago = ParseAgo(text)) return now_us - *ago;
  const std::string whole(text);
  const time_t now = now_us / kUsPerSecond;
  tm today = {};
  localtime_r(&now, &today);
  today.tm_sec = 0;
  for (const char* form : {"%H:%M:%S", "%H:%M"}) {
    const time_t moment = ReadAs(form, whole, today);
    if (moment >= 0) return (moment > now ? moment - kSecondsPerDay : moment) * kUsPerSecond;
  }
  for (const char* form : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M"}) {
    const time_t moment = ReadAs(form, whole, tm{});
    if (moment >= 0) return moment * kUsPerSecond;
  }
  return std::nullopt;
}

std::string TimeColumn::At(std::chrono::steady_clock::time_point moment) const {
  if (style_ == TimeStyle::kRelative) return Elapsed(start_, moment) + "  ";
  const auto ago = duration_cast<microseconds>(std::chrono::steady_clock::now() - moment);
  return WallTime(UnixMicroseconds() - ago.count()) + "  ";
}

int64_t UnixMicroseconds() {
  return duration_cast<microseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace bthal::tool
