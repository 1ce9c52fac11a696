#include "bthal/show/snoop/log_printer.h"

#include <android-base/stringprintf.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "bthal/hci/hex.h"
#include "bthal/hci/words.h"

namespace bthal::tool {

void LogPrinter::Print(const SnoopRecord& record) {
  if (!first_us_) first_us_ = record.unix_us;
  if (view_.json) {
    printf("%s\n", PacketJson(&record, record.kind, record.packet).c_str());
    return;
  }
  const double seconds = static_cast<double>(record.unix_us - *first_us_) / 1e6;
  const std::string time =
      view_.time == TimeStyle::kWall ? WallTime(record.unix_us) : ::android::base::StringPrintf("%12.6f", seconds);
  printf("%s", SnoopText(view_.packets, time + "  ", record).c_str());
}

std::string PacketJson(const SnoopRecord* record, uint8_t kind, std::span<const uint8_t> packet) {
  nlohmann::ordered_json object;
  if (record != nullptr) {
    object["time_us"] = record->unix_us;
    object["direction"] = record->from_controller ? "from controller" : "to controller";
  }
  object["kind"] = KindWord(kind);
  object["words"] = PacketWords(kind, packet);
  object["bytes"] = Hex(packet);
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace bthal::tool
