#include "sim/controller/firmware.h"

#include <algorithm>
#include <functional>
#include <numeric>

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

constexpr uint8_t kSuccess = 0x00;
constexpr uint8_t kDisallowed = 0x0C;
constexpr uint8_t kInvalidParameters = 0x12;

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

uint8_t SumOf(const uint8_t* bytes, size_t length) {
  return static_cast<uint8_t>(std::accumulate(bytes, bytes + length, 0u));
}

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
    Put8(parameters, 0x100u - SumOf(parameters.data(), parameters.size()));
    PutCommand(file, kWriteRamOpcode, parameters);
  }
  if (with_launch) {
    Bytes address;
    Put32(address, kLaunchAddress);
    PutCommand(file, kLaunchRamOpcode, address);
  }
  return file;
}

size_t PatchRecordCount(const Bytes& file) {
  if (file.size() < kCommandHeader || GetLe16(file.data()) != kWriteRamOpcode) return 0;
  const size_t length = file[2];
  if (length < kImageAt + kSumSize || file.size() < kCommandHeader + length) return 0;
  const uint8_t* parameters = &file[kCommandHeader];
  return SumOf(parameters, length) == 0 ? GetLe16(parameters + kTotalAt) : 0;
}

void PatchLoader::Start() {
  received_ = total_ = 0;
  broken_ = false;
  image_name_.clear();
}

uint8_t PatchLoader::Write(const uint8_t* parameters, size_t length, std::string* error) {
  auto refuse = [&](const std::string& why) {
    *error = "patch record " + std::to_string(received_) + ": " + why;
    broken_ = true;
    return kInvalidParameters;
  };
  if (!check_) {
    ++received_;
    return kSuccess;
  }
  if (broken_) return refuse("comes after one that was refused");
  if (length < kImageAt + kSumSize) return refuse("is too short");
  if (SumOf(parameters, length) != 0) return refuse("its sum is wrong");
  const size_t sequence = GetLe16(parameters + kSequenceAt);
  if (sequence != received_) return refuse("calls itself number " + std::to_string(sequence));
  if (received_ == 0) {
    total_ = GetLe16(parameters + kTotalAt);
    const uint8_t* image = parameters + kImageAt;
    image_name_.assign(image, std::find(image, parameters + length - kSumSize, 0));
  }
  ++received_;
  return kSuccess;
}

uint8_t PatchLoader::Launch(const uint8_t* /*parameters*/, size_t length, std::string* error) {
  if (length != sizeof(uint32_t)) {
    *error = "Launch RAM takes an address of four bytes";
    return kInvalidParameters;
  }
  if (check_ && (broken_ || received_ == 0 || received_ != total_)) {
    *error = "Launch RAM after " + std::to_string(received_) + " good records of " + std::to_string(total_);
    return kDisallowed;
  }
  return kSuccess;
}

}  // namespace bthal::sim
