// The records of a firmware patch file, and the batches in which the sensor-hub path takes them.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace android::hardware::bluetooth {

// Patches have a few hundred kilobytes; they are read whole into memory.
inline constexpr off_t kMaxPatchSize = off_t{16} * 1024 * 1024;

// A patch file is a plain sequence of HCI commands, nothing else:
//   opcode (2, little-endian) | parameter length n (1) | parameters (n)
struct PatchRecord {
  uint16_t opcode = 0;
  std::span<const uint8_t> parameters;  // at most 255 bytes
};

// Cuts records off the front of a patch held in memory. Pure: it does no I/O and keeps nothing but its place.
class PatchReader {
 public:
  enum class Result {
    kRecord,           // `record` holds the next one
    kEnd,              // the patch ended between two records
    kShortPreamble,    // it ended inside a record's opcode and length
    kShortParameters,  // it ended inside a record's parameters
  };

  // `patch` must outlive the reader and every record it yields.
  explicit PatchReader(std::span<const uint8_t> patch) : rest_(patch) {}

  Result Next(PatchRecord* record);

  // After a short result: how many bytes of the preamble, or of the parameters, there were.
  size_t available() const { return available_; }

 private:
  std::span<const uint8_t> rest_;
  size_t available_ = 0;
};

// Commands laid end to end, each behind its H4 type byte.
class PatchBatch {
 public:
  static constexpr size_t kCapacity = 32768;
  // From here on the batch goes out: one more record of the largest size (4 + 255 bytes) still fits below the capacity.
  static constexpr size_t kFullAt = 32508;

  // The batch must not be full.
  void Append(const PatchRecord& record);
  void Clear() { size_ = 0; }

  bool full() const { return size_ >= kFullAt; }
  bool empty() const { return size_ == 0; }
  const uint8_t* data() const { return bytes_.data(); }
  size_t size() const { return size_; }

 private:
  std::array<uint8_t, kCapacity> bytes_{};
  size_t size_ = 0;
};

}  // namespace android::hardware::bluetooth
