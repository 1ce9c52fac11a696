#include "chre/hub_link.h"

#include "os/ground.h"

namespace android::hardware::bluetooth::hci::hub {

std::unique_ptr<HubLink> HubLink::Make() { return os::kOnAndroid ? MakePlatformLink() : MakeSocketLink(); }

}  // namespace android::hardware::bluetooth::hci::hub
