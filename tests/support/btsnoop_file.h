// A btsnoop file, read back without the logger's help.
#pragma once

#include "support/test.h"

namespace bthal::test {

struct SnoopRecord {
  uint32_t original_length = 0;
  uint32_t included_length = 0;
  uint32_t flags = 0;
  uint32_t drops = 0;
  uint64_t time = 0;
  uint8_t type = 0;
  std::string packet;
};

struct SnoopFile {
  std::vector<SnoopRecord> records;
  size_t bytes_left = 0;  // after the last whole record
};

inline uint64_t BigEndian(const std::string& bytes, size_t offset, size_t size) {
  uint64_t value = 0;
  for (size_t i = 0; i < size; ++i) value = value << 8 | static_cast<uint8_t>(bytes[offset + i]);
  return value;
}

// Nothing unless the file begins with the sixteen bytes that the format begins with.
inline std::optional<SnoopFile> ParseSnoopFile(const std::string& bytes) {
  constexpr char kHeader[] = "btsnoop\0\0\0\0\1\0\0\3\xEA";
  constexpr size_t kHeaderSize = 16;
  constexpr size_t kRecordHeaderSize = 24;
  if (bytes.size() < kHeaderSize || memcmp(bytes.data(), kHeader, kHeaderSize) != 0) return std::nullopt;
  SnoopFile file;
  size_t at = kHeaderSize;
  while (bytes.size() - at >= kRecordHeaderSize) {
    SnoopRecord record;
    record.original_length = static_cast<uint32_t>(BigEndian(bytes, at, 4));
    record.included_length = static_cast<uint32_t>(BigEndian(bytes, at + 4, 4));
    record.flags = static_cast<uint32_t>(BigEndian(bytes, at + 8, 4));
    record.drops = static_cast<uint32_t>(BigEndian(bytes, at + 12, 4));
    record.time = BigEndian(bytes, at + 16, 8);
    if (record.included_length == 0 || bytes.size() - at - kRecordHeaderSize < record.included_length) break;
    record.type = static_cast<uint8_t>(bytes[at + kRecordHeaderSize]);
    record.packet = bytes.substr(at + kRecordHeaderSize + 1, record.included_length - 1);
    file.records.push_back(record);
    at += kRecordHeaderSize + record.included_length;
  }
  file.bytes_left = bytes.size() - at;
  return file;
}

}  // namespace bthal::test
