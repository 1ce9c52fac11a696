#include "sim/controller/firmware/patch_file.h"

#include <algorithm>
#include <functional>
#include <numeric>

#include "sim/controller/opcodes.h"

namespace bthal::sim {
namespace {

constexpr size_t kCommandHeader = 3;
constexpr size_t kSequenceAt = 4;
constexpr size_t kTotalAt = 6;
constexpr size_t kImageAt = 8;
constexpr size_t kSumSize = 1;
constexpr size_t kImageBytes = 240;
constexpr uint32_t kLoadAddress = 0x00210000;
constexpr uint32_t kLaunchAddress = 0xFFFFFFFF;

// Bytes that look like code and differ from record to record; the same for the same name.
Bytes ImagePiece(const std::string& name, size_t sequence) {
  Bytes piece;
  if (sequence == 0) {
    piece.assign(name.begin(), name.end());
    Put8(piece, 0);
  }
  uint32_t state = static_cast<uint32_t>(sequence * 2654435761u + std::hash<std::string>()(name));
  while (piece.size() < kImageBytes) {
    state = state * 1664525u + 1013904223u;
    Put8(piece, state >> 24);
  }
  return piece;
}

uint8_t SumOf(const Bytes& bytes) { return static_cast<uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0u)); }

void PutCommand(Bytes& file, uint16_t opcode, const Bytes& parameters) {
  Put16(file, opcode);
  Put8(file, static_cast<unsigned>(parameters.size()));
  PutAll(file, parameters);
}

}  // namespace

Bytes MakePatchFile(const std::string& image_name, size_t records, bool with_launch) {
  const size_t total = std::clamp<size_t>(records, 1, kMaxPatchRecords);
  Bytes file;
  for (size_t sequence = 0; sequence < total; ++sequence) {
    Bytes parameters;
    Put32(parameters, kLoadAddress + static_cast<uint32_t>(sequence * kImageBytes));
    Put16(parameters, static_cast<unsigned>(sequence));
    Put16(parameters, static_cast<unsigned>(total));
    PutAll(parameters, ImagePiece(image_name, sequence));
    Put8(parameters, 0x100u - SumOf(parameters));
    PutCommand(file, kWriteRam, parameters);
  }
  if (with_launch) {
    Bytes address;
    Put32(address, kLaunchAddress);
    PutCommand(file, kLaunchRam, address);
  }
  return file;
}

bool ReadPatchRecord(const Bytes& parameters, PatchRecord* record, std::string* why) {
  if (parameters.size() < kImageAt + kSumSize) {
    *why = "is too short";
  } else if (SumOf(parameters) != 0) {
    *why = "its sum is wrong";
  } else {
    const auto image = parameters.begin() + kImageAt;
    *record = {GetLe16(&parameters[kSequenceAt]), GetLe16(&parameters[kTotalAt]),
               std::string(image, std::find(image, parameters.end() - kSumSize, 0))};
    return true;
  }
  return false;
}

size_t PatchRecordCount(const Bytes& file) {
  if (file.size() < kCommandHeader || GetLe16(file.data()) != kWriteRam) return 0;
  if (file.size() < kCommandHeader + file[2]) return 0;
  PatchRecord record;
  std::string why;
  const bool whole = ReadPatchRecord(Part(file, kCommandHeader, file[2]), &record, &why);
  return whole ? record.total : 0;
}

}  // namespace bthal::sim
