// What the diagnostics' tests share: debug central's report as text, and files found by prefix.
#pragma once

#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "debug_central/debug_central.h"

namespace bthal::test {

// The report that `dump` prints.
inline std::string DumpText() {
  FILE* const file = tmpfile();
  android::hardware::bluetooth::DebugCentral::Get().Dump(fileno(file));
  std::string text(static_cast<size_t>(lseek(fileno(file), 0, SEEK_END)), '\0');
  if (pread(fileno(file), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) text.clear();
  fclose(file);
  return text;
}

// The lines of the report's section with this title, without the rules around it.
inline std::vector<std::string> DumpSection(const std::string& title) {
  const std::string rule = std::string(45, '=') + "\n";
  const std::string report = DumpText();
  const std::string heading = rule + title + "\n" + rule;
  size_t at = report.find(heading);
  std::vector<std::string> lines;
  if (at == std::string::npos) return lines;
  at += heading.size();
  const size_t end = std::min(report.find(rule, at), report.size());
  while (at < end) {
    const size_t line_end = report.find('\n', at);
    lines.push_back(report.substr(at, line_end - at));
    at = line_end + 1;
  }
  return lines;
}

// The names of a folder's entries that begin with `prefix`, sorted; none without the folder.
inline std::vector<std::string> NamesIn(const std::string& folder, const std::string& prefix = "") {
  std::vector<std::string> names;
  std::error_code absent;
  for (const auto& entry : std::filesystem::directory_iterator(folder, absent)) {
    const std::string name = entry.path().filename();
    if (name.starts_with(prefix)) names.push_back(name);
  }
  std::ranges::sort(names);
  return names;
}

}  // namespace bthal::test
