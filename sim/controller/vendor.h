// The maker's own commands.
#pragma once

#include "sim/base/journal.h"
#include "sim/controller/command_table.h"
#include "sim/controller/firmware.h"
#include "sim/controller/identity.h"

namespace bthal::sim {

class VendorCommands {
 public:
  // What these commands do to the controller as a whole.
  class Owner {
   public:
    virtual ~Owner() = default;
    virtual bool InMinidriver() const = 0;
    virtual void EnterMinidriver() = 0;
    virtual void BootPatch(const std::string& image_name) = 0;
    virtual void ChangeSpeed(uint32_t speed) = 0;
    virtual void SetSleepMode() = 0;
  };

  VendorCommands(const BoardOptions& options, Outlet* outlet, Owner* owner, EventJournal* journal, Identity* identity);

  void AddTo(CommandTable* table);
  void Forget();
  // Told of each packet from the host, before it is obeyed.
  void HostGoesOn() { ++packets_; }
  // Whether a command with this opcode is answered at once, so that the host must wait for the answer.
  bool IsAnswered(uint16_t opcode) const;
  // Whether it is not answered at all, be it obeyed or refused.
  bool IsSilent(uint16_t opcode) const;
  // Whether the minidriver knows it.
  static bool IsForMinidriver(uint16_t opcode);

 private:
  // How the loader acknowledges the records of a patch.
  enum class Records { kAnswered, kSilent, kAnsweredWhenIdle };

  Records RecordsAre() const;
  Answer WriteAddress(const Bytes& parameters);
  Answer ChangeSpeed(const Bytes& parameters);
  Answer SetSleepMode(const Bytes& parameters);
  Answer DownloadMinidriver();
  Answer WriteRam(const Bytes& parameters);
  Answer LaunchRam(const Bytes& parameters);
  Answer Version() const;
  Answer SetDownloadMode(const Bytes& parameters);
  Answer CheckOtp(const Bytes& parameters) const;
  Answer DebugInformation();
  Answer Capabilities() const;
  Answer QualityReports(const Bytes& parameters);
  Answer Finder(const Bytes& parameters);

  const BoardOptions& options_;
  Outlet* const outlet_;
  Owner* const owner_;
  EventJournal* const journal_;
  Identity* const identity_;
  PatchLoader loader_;
  bool fast_ = false;
  size_t finder_keys_ = 0;
  uint32_t quality_mask_ = 0;
  uint64_t packets_ = 0;
};

}  // namespace bthal::sim
