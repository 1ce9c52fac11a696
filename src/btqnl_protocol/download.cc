#define LOG_TAG "bthal.qnlproto"

#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <memory>

#include "btqnl_protocol/btqnl_protocol.h"
#include "btqnl_protocol/commands.h"
#include "btqnl_protocol/patch_reader.h"
#include "debug_central/debug_central.h"

namespace android::hardware::bluetooth {
namespace {

using ::android::base::StringPrintf;

constexpr size_t kReadChunk = 65536;
constexpr size_t kH4HeaderSize = 1 + hci::kCommandHeaderSize;

// The address that means "where the patch says".
constexpr std::array<uint8_t, 4> kLaunchAddress = {0xFF, 0xFF, 0xFF, 0xFF};

void LogShort(const char* operation, const char* what, ssize_t count, int error) {
  LOG(ERROR) << operation << ": Failed to read patchram " << what << " (" << count << "): " << strerror(error) << " ("
             << error << ")";
}

// A patch is read whole, in a few calls, and cut in memory. A file that grows while it is read is read no further than
// a patch may reach.
bool ReadPatch(const char* operation, int fd, std::vector<uint8_t>* patch) {
  for (;;) {
    const size_t size = patch->size();
    patch->resize(size + kReadChunk);
    const ssize_t count = TEMP_FAILURE_RETRY(read(fd, patch->data() + size, kReadChunk));
    if (count < 0) {
      LogShort(operation, "preamble", count, errno);
      return false;
    }
    patch->resize(size + static_cast<size_t>(count));
    if (count == 0) return true;
    if (patch->size() > static_cast<size_t>(kMaxPatchSize)) {
      LOG(ERROR) << operation << ": more than the " << kMaxPatchSize << " bytes that a patch may have";
      return false;
    }
  }
}

// True at the patch's proper end. A patch that ends inside a record is no error of the system's.
bool EndsWhole(const char* operation, PatchReader::Result last, size_t available) {
  if (last == PatchReader::Result::kEnd) return true;
  LogShort(operation, last == PatchReader::Result::kShortPreamble ? "preamble" : "parameters",
           static_cast<ssize_t>(available), 0);
  return false;
}

void RecordFailure(const std::string& text) {
  DebugCentral::Get().UpdateRecord(AnchorType::kFirmwareDownloadFailed, text);
}

std::string Heading(const char* operation, const PatchRecord& record) {
  return StringPrintf("%s: Sending 0x%04x 0x%02x", operation, record.opcode,
                      static_cast<unsigned>(record.parameters.size()));
}

uint8_t SendRecord(hci::HciFlowControl* flow, const PatchRecord& record) {
  return btqnl_send_command_wait_complete(flow, record.opcode, static_cast<uint8_t>(record.parameters.size()),
                                          record.parameters.data());
}

bool ReportLaunch(const char* operation, uint8_t status) {
  if (status == 0) return true;
  LOG(ERROR) << operation << ": Launch Ram command failed: " << int{status};
  RecordFailure(StringPrintf("%s: Launch Ram command failed: 0x%x", operation, status));
  return false;
}

}  // namespace

bool BtQnlProtocol::send_launch_ram(const char* operation) {
  LOG(INFO) << operation << ": Sending Launch Ram command";
  return ReportLaunch(operation, SendRecord(flow_control().get(), {kOpcodeLaunchRam, kLaunchAddress}));
}

bool BtQnlProtocol::download_direct(int fd, bool fast) {
  LOG(INFO) << "download_direct: Downloading Firmware Patchram data";
  std::vector<uint8_t> patch;
  if (!ReadPatch("download_direct", fd, &patch)) return false;

  PatchReader reader(patch);
  PatchRecord record;
  auto result = PatchReader::Result::kEnd;
  while ((result = reader.Next(&record)) == PatchReader::Result::kRecord) {
    const bool launch = record.opcode == kOpcodeLaunchRam;
    if (launch) {
      LOG(INFO) << Heading("download_direct", record) << " Launch Ram command";
    } else {
      LOG(DEBUG) << Heading("download_direct", record);
    }
    const auto flow = flow_control();
    if (fast && !launch) {
      btqnl_send_command_no_wait(flow.get(), record.opcode, static_cast<uint8_t>(record.parameters.size()),
                                 record.parameters.data());
      continue;
    }
    if (const uint8_t status = SendRecord(flow.get(), record); status != 0) {
      LOG(ERROR) << "download_direct: Failed to write patchram: " << int{status};
      RecordFailure(StringPrintf("%s: Failed to write patchram: 0x%x", "download_direct", status));
      return false;
    }
  }
  if (!EndsWhole("download_direct", result, reader.available())) return false;
  return record.opcode == kOpcodeLaunchRam || send_launch_ram("download_direct");
}

bool BtQnlProtocol::send_batch(const uint8_t* data, size_t length) {
  LOG(INFO) << StringPrintf("download_passthrough: Sending %zu bytes of PatchRam data", length);
  const auto start = std::chrono::system_clock::now();
  const auto flow = flow_control();
  if (flow == nullptr || flow->SendBatch(data, length) == 0) {
    LOG(ERROR) << "download_passthrough: Failed to write PatchRam";
    RecordFailure(StringPrintf("%s: Failed to write PatchRam", "download_passthrough"));
    return false;
  }
  const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now() - start);
  LOG(INFO) << StringPrintf("download_passthrough: Processed %zu bytes of PatchRam in %ld milliseconds", length,
                            static_cast<long>(took.count()));
  return true;
}

bool BtQnlProtocol::download_passthrough(int fd) {
  LOG(INFO) << "download_passthrough: Downloading Firmware PatchRam data";
  std::vector<uint8_t> patch;
  if (!ReadPatch("download_passthrough", fd, &patch)) return false;

  const auto batch = std::make_unique<PatchBatch>();
  size_t total = 0;
  const auto flush = [&] {
    if (batch->empty()) return true;
    if (!send_batch(batch->data(), batch->size())) return false;
    total += batch->size();
    batch->Clear();
    return true;
  };

  PatchReader reader(patch);
  PatchRecord record;
  auto result = PatchReader::Result::kEnd;
  while ((result = reader.Next(&record)) == PatchReader::Result::kRecord) {
    if (record.opcode != kOpcodeLaunchRam) {
      batch->Append(record);
      if (batch->full() && !flush()) return false;
      continue;
    }
    if (!flush()) return false;
    LOG(INFO) << Heading("download_passthrough", record) << " Launch Ram command";
    if (!ReportLaunch("download_passthrough", SendRecord(flow_control().get(), record))) return false;
    total += kH4HeaderSize + record.parameters.size();
  }
  if (!EndsWhole("download_passthrough", result, reader.available()) || !flush()) return false;
  if (record.opcode != kOpcodeLaunchRam) {
    if (!send_launch_ram("download_passthrough")) return false;
    total += kH4HeaderSize + kLaunchAddress.size();
  }
  LOG(INFO) << "download_passthrough: total bytes sent " << total;
  return true;
}

}  // namespace android::hardware::bluetooth
