// Who an emulator is that obeys the standard commands in our place.
#pragma once

#include <string>

#include "sim/base/bytes.h"
#include "sim/wire/backend.h"

namespace bthal::sim {

// Asks the emulator, and waits for its answer. Empty, with the reason in `error`, if it tells no address.
Bytes AskEmulatorsAddress(Backend* emulator, std::string* error);

}  // namespace bthal::sim
