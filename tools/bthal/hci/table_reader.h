// Reads the dictionary's text; dictionary/tables.h says how it is written.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "bthal/hci/dictionary.h"

namespace bthal::tool {

using TypeTable = std::map<std::string, FieldType, std::less<>>;

// Both throw std::invalid_argument, with the line, where they cannot be understood.
void ReadTypes(std::string_view text, TypeTable* types);
void ReadEntries(std::string_view text, const TypeTable& types, std::vector<Entry>* entries);

}  // namespace bthal::tool
