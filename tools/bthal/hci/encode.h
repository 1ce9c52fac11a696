// Packets from what people write.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "bthal/hci/dictionary.h"

namespace bthal::tool {

// `arguments` are values in the order of the parameters, or "name=value". Counts of bytes and elements are made up
// unless they are named, or every parameter is given. Nothing, with one line in `error`, when they do not fit.
std::optional<std::vector<uint8_t>> EncodeFields(std::span<const Field> fields, std::span<const std::string> arguments,
                                                 std::string* error);

// The whole HCI command packet, without H4 type byte.
std::optional<std::vector<uint8_t>> BuildCommand(const Entry& command, std::span<const std::string> arguments,
                                                 std::string* error);

// Whether a later parameter's bytes or elements are counted by this one.
bool IsCounter(std::span<const Field> fields, const Field& field);

// Whether there is something to send where nothing is given: a default, or none at all of what is counted.
bool MayBeLeftOut(std::span<const Field> fields, const Field& field);

}  // namespace bthal::tool
