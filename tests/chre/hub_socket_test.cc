// Who may play the sensor hub.
#include <sys/un.h>

#include "chre/hub_link.h"
#include "conf/userial_type.h"
#include "support/test.h"

namespace android::hardware::bluetooth::hci::hub {
namespace {

using namespace ::bthal::test;
using std::filesystem::perms;

constexpr uid_t kUser = 65534;
constexpr uid_t kStranger = 65533;

// Whether a service of `user` takes a hub that `listener` plays where everybody may.
HubLink::Connected Connect(uid_t listener, uid_t user, std::string* why) {
  const TempRoot root;
  const std::filesystem::path path = root.Below(std::string(conf::kSensorHubFolder) + "/" + conf::kSensorHubSocket);
  std::filesystem::permissions(root.path(), perms::all);
  std::filesystem::permissions(path.parent_path(), perms::all);
  const uid_t before = geteuid();
  const unique_fd socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  path.string().copy(address.sun_path, sizeof(address.sun_path) - 1);
  EXPECT_EQ(seteuid(listener), 0);
  EXPECT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  EXPECT_EQ(listen(socket.get(), 1), 0);
  std::filesystem::permissions(path, perms::all);
  EXPECT_EQ(seteuid(before), 0);
  EXPECT_EQ(seteuid(user), 0);
  const HubLink::Connected connected = MakeSocketLink()->Connect(why);
  EXPECT_EQ(seteuid(before), 0);
  return connected;
}

TEST(HubSocketTest, IsPlayedByTheServicesOwnUserOrRoot) {
  std::string why;
  EXPECT_EQ(Connect(geteuid(), geteuid(), &why), HubLink::Connected::kYes) << why;
  if (geteuid() != 0) GTEST_SKIP() << "needs to be root, to become others";
  EXPECT_EQ(Connect(kUser, kUser, &why), HubLink::Connected::kYes) << why;
  EXPECT_EQ(Connect(0, kUser, &why), HubLink::Connected::kYes) << why;
  for (const uid_t user : {kUser, uid_t{0}}) {
    EXPECT_EQ(Connect(kStranger, user, &why), HubLink::Connected::kNotYet);
    EXPECT_THAT(why, ContainsRegex("^no sensor hub at .*/run/bthal/sensor-hub: a process of user 65533 listens there, "
                                   "not one of user " +
                                   std::to_string(user) + " or root$"));
  }
}

}  // namespace
}  // namespace android::hardware::bluetooth::hci::hub
