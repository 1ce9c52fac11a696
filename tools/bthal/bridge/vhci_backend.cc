#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <string.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <filesystem>

#include "bthal/bridge/backend.h"
#include "bthal/run/device_names.h"
#include "bthal/run/power_switch.h"

namespace bthal::tool {
namespace {

using ::android::base::ReadFileToString;
using ::android::base::StringPrintf;
using ::android::base::Trim;
using ::android::base::unique_fd;

// To the kernel:   vendor packet (1) | what to create (1): 0 is a primary controller
// Its answer:      vendor packet (1) | what was created (1) | number of the device (2)
constexpr uint8_t kVendorPacket = 0xFF;
constexpr uint8_t kCreate[] = {kVendorPacket, 0x00};
constexpr size_t kAnswerSize = 4;

// A controller of this machine's kernel is there while the descriptor is open. The kernel itself is the peer, and comes
// at once.
class VhciBackend final : public Backend {
 public:
  explicit VhciBackend(std::string node) : node_(std::move(node)) {}

  bool Check(std::string* error) override {
    if (access(node_.c_str(), R_OK | W_OK) != 0) {
      *error = StringPrintf("cannot open %s: %s (as root: modprobe hci_vhci; chmod or chown for others)", node_.c_str(),
                            strerror(errno));
      return false;
    }
    // The kernel gives every controller an rfkill entry. Where the service looks among the kernel's, and has none of
    // its own, it would take that one, and switch the bridge off when it means its controller.
    const char* root = getenv(kRootVariable);
    if ((root != nullptr && *root != '\0') || !FindPowerSwitch().empty()) return true;
    *error =
        "there is no rfkill entry for the service's own controller, so the service would take the bridge's for its "
        "power switch; load the controller's driver first, or give the service a device root (BTHAL_ROOT)";
    return false;
  }

  bool Open(std::string* error) override {
    device_.reset(open(node_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!device_.ok() || write(device_.get(), kCreate, sizeof(kCreate)) != sizeof(kCreate) || !ReadAnswer()) {
      *error = StringPrintf("cannot create a controller through %s: %s", node_.c_str(), strerror(errno));
      Close();
      return false;
    }
    ready_.reset(eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC));
    Unblock();
    return true;
  }

  void Close() override {
    device_.reset();
    ready_.reset();
  }

  std::string Name() const override { return name_.empty() ? node_ : name_; }
  int ready_fd() const override { return ready_.get(); }

  std::optional<Peer> Accept() override {
    Refuse();
    return Peer{unique_fd(fcntl(device_.get(), F_DUPFD_CLOEXEC, 0)), /*whole_packets=*/true};
  }

  void Refuse() override {
    uint64_t ignored = 0;
    (void)!read(ready_.get(), &ignored, sizeof(ignored));
  }

  bool Release(std::string* error) override {
    Close();
    return Open(error);
  }

 private:
  bool ReadAnswer() {
    constexpr int kPatienceMs = 5000;
    pollfd device{device_.get(), POLLIN, 0};
    uint8_t answer[kAnswerSize];
    if (TEMP_FAILURE_RETRY(poll(&device, 1, kPatienceMs)) <= 0) return false;
    if (read(device_.get(), answer, sizeof(answer)) != sizeof(answer) || answer[0] != kVendorPacket) return false;
    name_ = StringPrintf("hci%d", answer[2] | answer[3] << 8);
    return true;
  }

  // A controller is born blocked where all radios are. Nobody else's block is touched.
  void Unblock() const {
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator("/sys/class/bluetooth/" + name_, none)) {
      if (!::android::base::StartsWith(entry.path().filename().string(), "rfkill")) continue;
      const std::string soft = entry.path().string() + "/soft";
      std::string blocked;
      if (!ReadFileToString(soft, &blocked) || Trim(blocked) != "1") continue;
      const unique_fd file(open(soft.c_str(), O_WRONLY | O_CLOEXEC));
      (void)!write(file.get(), "0", 1);
    }
  }

  const std::string node_;
  std::string name_;
  unique_fd device_;
  unique_fd ready_;
};

}  // namespace

std::unique_ptr<Backend> MakeVhciBackend(const std::string& node) { return std::make_unique<VhciBackend>(node); }

}  // namespace bthal::tool
