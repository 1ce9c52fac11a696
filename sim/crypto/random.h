// Numbers that nobody can guess.
#pragma once

#include "sim/base/bytes.h"

namespace bthal::sim {

Bytes RandomBytes(size_t size);

}  // namespace bthal::sim
