#include "bthal/cli/completion.h"

#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include <algorithm>
#include <functional>

#include "bthal/cli/shell_quotes.h"

namespace bthal::tool {
namespace {

using ::android::base::Join;
using ::android::base::Split;
using ::android::base::StringPrintf;
using ::android::base::StringReplace;

enum class Kind { kFlag, kFile, kFolder, kWords, kOther };

// Values written in small letters are themselves what can be given: "on|off".
Kind KindOf(const ParameterDescription& parameter) {
  const std::string& value = parameter.value;
  if (value.empty()) return Kind::kFlag;
  if (value == "FILE" || parameter.names.front() == "file") return Kind::kFile;
  if (value == "DIR") return Kind::kFolder;
  const bool words = std::ranges::all_of(value, [](char c) { return (c >= 'a' && c <= 'z') || c == '|'; });
  return words ? Kind::kWords : Kind::kOther;
}

// Calls `visit` with every command and its words, "bthal prop get".
void ForEachCommand(const std::string& words, const CommandDescription& command,
                    const std::function<void(const std::string&, const CommandDescription&)>& visit) {
  visit(words, command);
  for (const CommandDescription& sub : command.commands) ForEachCommand(words + " " + sub.name, sub, visit);
}

std::string FirstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

// --- bash

std::string BashValues(Kind kind, const std::string& value) {
  if (kind == Kind::kFile) return "compgen -f -- \"$cur\"";
  if (kind == Kind::kFolder) return "compgen -d -- \"$cur\"";
  if (kind == Kind::kWords) return "compgen -W " + Quoted(StringReplace(value, "|", " ", true)) + " -- \"$cur\"";
  return ":";
}

// The patterns "COMMAND --option" after which a value comes, each with what completes it.
std::string BashAfterOptions(const std::string& words, const CommandDescription& command) {
  std::string cases;
  for (const ParameterDescription& parameter : command.parameters) {
    if (parameter.IsArgument() || KindOf(parameter) == Kind::kFlag) continue;
    std::vector<std::string> patterns;
    for (const std::string& name : parameter.names)
      patterns.push_back(Quoted(StringPrintf("%s %s", words.c_str(), name.c_str())));
    cases += StringPrintf("    %s) found=$(%s) ;;\n", Join(patterns, " | ").c_str(),
                          BashValues(KindOf(parameter), parameter.value).c_str());
  }
  return cases;
}

std::string BashWords(const CommandDescription& command) {
  std::vector<std::string> words;
  for (const CommandDescription& sub : command.commands) words.push_back(sub.name);
  for (const ParameterDescription& parameter : command.parameters) {
    if (!parameter.IsArgument()) words.insert(words.end(), parameter.names.begin(), parameter.names.end());
  }
  return Join(words, ' ');
}

bool TakesFile(const CommandDescription& command) {
  return std::ranges::any_of(command.parameters, [](const ParameterDescription& parameter) {
    return parameter.IsArgument() && KindOf(parameter) == Kind::kFile;
  });
}

// --- zsh

// A description within the brackets and colons of _arguments.
std::string ZshText(std::string text) {
  for (const char* special : {"\\", "[", "]", ":"})
    text = StringReplace(text, special, std::string("\\") + special, true);
  return text;
}

std::string ZshValue(const ParameterDescription& parameter) {
  switch (KindOf(parameter)) {
    case Kind::kFlag:
      return "";
    case Kind::kFile:
      return ":" + ZshText(parameter.value) + ":_files";
    case Kind::kFolder:
      return ":" + ZshText(parameter.value) + ":_files -/";
    case Kind::kWords:
      return ":word:(" + StringReplace(parameter.value, "|", " ", true) + ")";
    case Kind::kOther:
      return ":" + ZshText(parameter.value) + ": ";
  }
  return "";
}

std::string ZshFunction(const std::string& words) { return "_" + StringReplace(words, " ", "_", true); }

std::string ZshArguments(const CommandDescription& command) {
  std::string text;
  for (const ParameterDescription& parameter : command.parameters) {
    const std::string about = ZshText(parameter.about);
    const std::string value = ZshValue(parameter);
    if (parameter.IsArgument()) {
      text += " \\\n    " + Quoted((parameter.repeats ? "*" : "") + (value.empty() ? ": : " : ":" + value.substr(1)));
      continue;
    }
    for (const std::string& name : parameter.names) {
      text += " \\\n    " + Quoted(StringPrintf("%s%s[%s]%s", parameter.repeats ? "*" : "", name.c_str(), about.c_str(),
                                                value.c_str()));
    }
  }
  return text;
}

std::string ZshCommand(const std::string& words, const CommandDescription& command) {
  std::string text = ZshFunction(words) + "() {\n";
  if (command.commands.empty()) return text + "  _arguments -s" + ZshArguments(command) + "\n}\n\n";
  text += "  local context state line\n  local -a commands=(\n";
  for (const CommandDescription& sub : command.commands) {
    text += "    " + Quoted(sub.name + ":" + ZshText(FirstLine(sub.about))) + "\n";
  }
  text += "  )\n  _arguments -C" + ZshArguments(command) + " \\\n    '1: :->command' '*:: :->rest'\n";
  text += "  case $state in\n    command) _describe command commands ;;\n    rest) case $line[1] in\n";
  for (const CommandDescription& sub : command.commands) {
    text += "      " + sub.name + ") " + ZshFunction(words + " " + sub.name) + " ;;\n";
  }
  return text + "    esac ;;\n  esac\n}\n\n";
}

// --- fish

// When a command of these words is being given: all of them were seen, and none of its own subcommands.
std::string FishCondition(const std::string& words, const CommandDescription& command) {
  std::vector<std::string> conditions;
  for (const std::string& word : Split(words, " ")) {
    if (word != Split(words, " ").front()) conditions.push_back("__fish_seen_subcommand_from " + word);
  }
  if (!command.commands.empty()) {
    std::vector<std::string> own;
    for (const CommandDescription& sub : command.commands) own.push_back(sub.name);
    conditions.push_back("not __fish_seen_subcommand_from " + Join(own, ' '));
  }
  return conditions.empty() ? "true" : Join(conditions, "; and ");
}

std::string FishName(const std::string& name) {
  if (name.starts_with("--")) return " -l " + name.substr(2);
  return " -s " + name.substr(1);
}

std::string FishValue(const ParameterDescription& parameter) {
  switch (KindOf(parameter)) {
    case Kind::kFlag:
      return "";
    case Kind::kFile:
      return " -r -F";
    case Kind::kFolder:
      return " -x -a '(__fish_complete_directories)'";
    case Kind::kWords:
      return " -x -a " + Quoted(StringReplace(parameter.value, "|", " ", true));
    case Kind::kOther:
      return " -x";
  }
  return "";
}

std::string FishCommand(const std::string& words, const CommandDescription& command) {
  const std::string prefix =
      "complete -c " + Split(words, " ").front() + " -n " + Quoted(FishCondition(words, command));
  std::string text;
  for (const CommandDescription& sub : command.commands) {
    text += prefix + " -f -a " + sub.name + " -d " + Quoted(FirstLine(sub.about)) + "\n";
  }
  for (const ParameterDescription& parameter : command.parameters) {
    if (parameter.IsArgument()) {
      if (KindOf(parameter) == Kind::kFile) text += prefix + " -F\n";
      continue;
    }
    std::string names;
    for (const std::string& name : parameter.names) names += FishName(name);
    text += prefix + names + FishValue(parameter) + " -d " + Quoted(parameter.about) + "\n";
  }
  return text;
}

}  // namespace

std::string BashCompletion(const CommandDescription& program) {
  std::string commands;
  std::string after_options;
  std::string words_of;
  ForEachCommand(program.name, program, [&](const std::string& words, const CommandDescription& command) {
    if (words != program.name) commands += "      " + Quoted(words) + ") at=" + Quoted(words) + " ;;\n";
    after_options += BashAfterOptions(words, command);
    words_of += "    " + Quoted(words) + ") found=$(compgen -W " + Quoted(BashWords(command)) +
                (TakesFile(command) ? " -f" : "") + " -- \"$cur\") ;;\n";
  });
  const std::string function = "_" + program.name;
  return "# Completion of " + program.name + " for bash.\n" + function + "() {\n" +
         "  local cur=${COMP_WORDS[COMP_CWORD]} at=" + program.name + " found= i\n" +
         "  for ((i = 1; i < COMP_CWORD; i++)); do\n    case \"$at ${COMP_WORDS[i]}\" in\n" + commands +
         "    esac\n  done\n  case \"$at ${COMP_WORDS[COMP_CWORD - 1]}\" in\n" + after_options +
         "    *) case $at in\n" + StringReplace(words_of, "    '", "      '", true) + "    esac ;;\n  esac\n" +
         "  mapfile -t COMPREPLY < <(printf '%s' \"$found\")\n}\n" + "complete -o filenames -F " + function + " " +
         program.name + "\n";
}

std::string ZshCompletion(const CommandDescription& program) {
  std::string text = "#compdef " + program.name + "\n# Completion of " + program.name + " for zsh.\n\n";
  ForEachCommand(program.name, program, [&](const std::string& words, const CommandDescription& command) {
    text += ZshCommand(words, command);
  });
  // Autoloaded, the file is the function; sourced, it announces itself.
  return text + "if [ \"$funcstack[1]\" = _" + program.name + " ]; then\n  _" + program.name +
         " \"$@\"\nelse\n  compdef _" + program.name + " " + program.name + "\nfi\n";
}

std::string FishCompletion(const CommandDescription& program) {
  std::string text = "# Completion of " + program.name + " for fish.\ncomplete -c " + program.name + " -f\n";
  ForEachCommand(program.name, program, [&](const std::string& words, const CommandDescription& command) {
    text += FishCommand(words, command);
  });
  return text;
}

}  // namespace bthal::tool
