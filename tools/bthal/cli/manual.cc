#include "bthal/cli/manual.h"

#include <android-base/strings.h>

#include <cctype>

namespace bthal::tool {
namespace {

using ::android::base::Split;

// As roff reads it: no escape, no request at the beginning of a line, and dashes that can be copied.
std::string Escaped(const std::string& text) {
  std::string escaped;
  bool begins = true;
  for (const char c : text) {
    if (begins && (c == '.' || c == '\'')) escaped += "\\&";
    begins = c == '\n';
    if (c == '\\') {
      escaped += "\\e";
    } else if (c == '-') {
      escaped += "\\-";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::string Bold(const std::string& text) { return "\\fB" + Escaped(text) + "\\fR"; }
std::string Italic(const std::string& text) { return "\\fI" + Escaped(text) + "\\fR"; }

std::string UpperCase(std::string text) {
  for (char& c : text) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  return text;
}

std::string Names(const ParameterDescription& parameter) {
  if (parameter.IsArgument()) return Italic(parameter.names.front());
  std::string names;
  for (const std::string& name : parameter.names) names += (names.empty() ? "" : ", ") + Bold(name);
  return names + (parameter.value.empty() ? "" : " " + Italic(parameter.value));
}

std::string Synopsis(const std::string& command, const CommandDescription& description) {
  std::string line = Bold(command) + " [" + Italic("OPTION") + "...]";
  if (!description.commands.empty()) return line + " " + Italic("COMMAND") + " ...";
  for (const ParameterDescription& parameter : description.parameters) {
    if (!parameter.IsArgument()) continue;
    const std::string name = Names(parameter) + (parameter.repeats ? " ..." : "");
    line += parameter.required ? " " + name : " [" + name + "]";
  }
  return line;
}

std::string Parameters(const CommandDescription& description) {
  std::string text;
  for (const ParameterDescription& parameter : description.parameters) {
    text += ".TP\n" + Names(parameter) + "\n" + Escaped(parameter.about);
    if (!parameter.default_value.empty()) text += " (default: " + Escaped(parameter.default_value) + ")";
    text += "\n";
  }
  return text;
}

bool IsHeading(const std::string& line) {
  return line.size() > 1 && isupper(static_cast<unsigned char>(line.front())) && line.ends_with(':') &&
         line.find(' ') == std::string::npos;
}

// Text laid out for a terminal: lines that begin with a blank stay as they are, the others are one paragraph, and a
// line such as "Examples:" is a heading.
std::string LaidOut(const std::string& text) {
  std::string page;
  bool as_it_is = false;
  for (const std::string& line : Split(text, "\n")) {
    const bool example = line.starts_with(' ') || (line.empty() && as_it_is);
    if (example != as_it_is) page += example ? ".nf\n" : ".fi\n";
    as_it_is = example;
    if (IsHeading(line)) {
      page += ".SH " + UpperCase(line.substr(0, line.size() - 1)) + "\n";
    } else {
      page += line.empty() && !example ? ".PP\n" : Escaped(line) + "\n";
    }
  }
  return page + (as_it_is ? ".fi\n" : "");
}

std::string Footer(const std::string& footer) {
  if (footer.empty()) return "";
  return (IsHeading(footer.substr(0, footer.find('\n'))) ? "" : ".SH NOTES\n") + LaidOut(footer);
}

std::string SubcommandList(const std::string& command, const CommandDescription& description) {
  std::string text;
  for (const CommandDescription& sub : description.commands) {
    text += ".TP\n" + Bold(command + " " + sub.name) + "\n" + Escaped(sub.about) + "\n";
  }
  return text;
}

// A command's own subcommands are explained on its page.
std::string OwnSubcommands(const std::string& command, const CommandDescription& description) {
  std::string text;
  for (const CommandDescription& sub : description.commands) {
    const std::string name = command + " " + sub.name;
    text += ".SS " + Synopsis(name, sub) + "\n" + Escaped(sub.about) + "\n" + Parameters(sub);
    text += OwnSubcommands(name, sub);
  }
  return text;
}

std::string Title(const std::string& page, const std::string& version) {
  return ".TH " + UpperCase(page) + " 1 \"\" \"bthal " + version + "\" \"Bluetooth HAL\"\n.SH NAME\n";
}

std::string ProgramPage(const CommandDescription& program, const std::string& version) {
  const size_t first_end = program.about.find('\n');
  const std::string first = program.about.substr(0, first_end);
  const std::string rest = first_end == std::string::npos ? "" : program.about.substr(first_end + 1);
  std::string text = Title(program.name, version) + Escaped(first) + "\n.SH SYNOPSIS\n";
  text += Synopsis(program.name, program) + "\n.SH DESCRIPTION\n" + LaidOut(rest) + ".SH OPTIONS\n";
  text += Parameters(program) + ".SH COMMANDS\nEach has a page of its own:\n" + Bold("man bthal-hci") + ".\n";
  return text + SubcommandList(program.name, program) + Footer(program.footer);
}

std::string CommandPage(const std::string& program, const CommandDescription& command, const std::string& version) {
  const std::string name = program + " " + command.name;
  std::string text = Title(program + "-" + command.name, version);
  text += Escaped(program + "-" + command.name) + " \\- " + Escaped(command.about) + "\n.SH SYNOPSIS\n";
  text += Synopsis(name, command) + "\n.SH OPTIONS\n" + Parameters(command);
  if (!command.commands.empty()) text += ".SH COMMANDS\n" + OwnSubcommands(name, command);
  return text + Footer(command.footer) + ".SH SEE ALSO\n" + Bold(program) + "(1)\n";
}

}  // namespace

std::vector<std::pair<std::string, std::string>> ManualPages(const CommandDescription& program,
                                                             const std::string& version) {
  std::vector<std::pair<std::string, std::string>> pages = {{program.name + ".1", ProgramPage(program, version)}};
  for (const CommandDescription& command : program.commands) {
    pages.emplace_back(program.name + "-" + command.name + ".1", CommandPage(program.name, command, version));
  }
  return pages;
}

}  // namespace bthal::tool
