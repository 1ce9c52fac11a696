#include "sim/controller/firmware/patch_loader.h"

#include "sim/controller/codes.h"
#include "sim/controller/firmware/patch_file.h"

namespace bthal::sim {

void PatchLoader::Start() {
  received_ = total_ = 0;
  broken_ = false;
  image_name_.clear();
}

uint8_t PatchLoader::Write(const Bytes& parameters, std::string* error) {
  PatchRecord record;
  std::string why;
  if (broken_) {
    why = "comes after one that was refused";
  } else if (ReadPatchRecord(parameters, &record, &why) && record.sequence != received_) {
    why = "calls itself number " + std::to_string(record.sequence);
  }
  if (!why.empty()) {
    *error = "patch record " + std::to_string(received_) + ": " + why;
    broken_ = true;
    return kInvalidParameters;
  }
  if (received_ == 0) {
    total_ = record.total;
    image_name_ = record.image_name;
  }
  ++received_;
  return kSuccess;
}

uint8_t PatchLoader::Launch(const Bytes& parameters, std::string* error) const {
  if (parameters.size() != sizeof(uint32_t)) {
    *error = "Launch RAM takes an address of four bytes";
    return kInvalidParameters;
  }
  if (broken_ || received_ == 0 || received_ != total_) {
    *error = "Launch RAM after " + std::to_string(received_) + " good records of " + std::to_string(total_);
    return kCommandDisallowed;
  }
  return kSuccess;
}

}  // namespace bthal::sim
