// Patch files: whatever the bytes, every record lies inside them, their sum is what was read, and a batch holds them as
// the wire takes them.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#include "btqnl_protocol/patch_reader.h"

namespace bluetooth = android::hardware::bluetooth;

namespace {

constexpr size_t kPreambleSize = 3;
constexpr size_t kH4HeaderSize = 4;

void Check(bool holds) {
  if (!holds) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using Result = bluetooth::PatchReader::Result;
  bluetooth::PatchReader reader(std::span(data, size));
  bluetooth::PatchRecord record;
  const auto batch = std::make_unique<bluetooth::PatchBatch>();
  size_t consumed = 0;
  Result result;
  while ((result = reader.Next(&record)) == Result::kRecord) {
    Check(record.opcode == (data[consumed] | data[consumed + 1] << 8));
    consumed += kPreambleSize + record.parameters.size();
    Check(record.parameters.data() + record.parameters.size() == data + consumed);

    const size_t before = batch->size();
    batch->Append(record);
    Check(batch->size() == before + kH4HeaderSize + record.parameters.size());
    Check(batch->size() < bluetooth::PatchBatch::kCapacity);
    Check(memcmp(batch->data() + before + 1, data + consumed - kPreambleSize - record.parameters.size(),
                 kPreambleSize + record.parameters.size()) == 0);
    if (batch->full()) batch->Clear();
  }
  const size_t left = size - consumed;
  switch (result) {
    case Result::kEnd:
      Check(left == 0);
      break;
    case Result::kShortPreamble:
      Check(reader.available() == left && left > 0 && left < kPreambleSize);
      break;
    default:
      Check(reader.available() == left - kPreambleSize && reader.available() < data[consumed + 2]);
  }
  return 0;
}
