// Asks a virtual board that plays below the device root.
#pragma once

#include <string>

namespace bthal::tool {

// `question` is a line of its control socket's language: "fault late-answer,opcode=reset", "list", "clear" or "state".
// `*answer` becomes the answer's lines. False with one line in `error` when there is no board, or it refuses.
bool AskBoard(const std::string& question, std::string* answer, std::string* error);

}  // namespace bthal::tool
