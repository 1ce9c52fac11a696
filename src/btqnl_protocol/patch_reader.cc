#include "btqnl_protocol/patch_reader.h"

#include <algorithm>

namespace android::hardware::bluetooth {
namespace {

constexpr size_t kPreambleSize = 3;
constexpr size_t kLengthOffset = 2;
constexpr uint8_t kH4Command = 0x01;

}  // namespace

PatchReader::Result PatchReader::Next(PatchRecord* record) {
  if (rest_.empty()) return Result::kEnd;
  if (rest_.size() < kPreambleSize) {
    available_ = rest_.size();
    return Result::kShortPreamble;
  }
  const size_t length = rest_[kLengthOffset];
  const auto parameters = rest_.subspan(kPreambleSize);
  if (parameters.size() < length) {
    available_ = parameters.size();
    return Result::kShortParameters;
  }
  record->opcode = static_cast<uint16_t>(rest_[0] | rest_[1] << 8);
  record->parameters = parameters.first(length);
  rest_ = parameters.subspan(length);
  return Result::kRecord;
}

//   0x01 | opcode (2) | parameter length (1) | parameters
void PatchBatch::Append(const PatchRecord& record) {
  uint8_t* out = bytes_.data() + size_;
  *out++ = kH4Command;
  *out++ = static_cast<uint8_t>(record.opcode);
  *out++ = static_cast<uint8_t>(record.opcode >> 8);
  *out++ = static_cast<uint8_t>(record.parameters.size());
  out = std::copy_n(record.parameters.data(), record.parameters.size(), out);
  size_ = static_cast<size_t>(out - bytes_.data());
}

}  // namespace android::hardware::bluetooth
