#include "bthal/cli/command.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <string>
#include <utility>

namespace bthal::tool {

Parameter& Parameter::Type(const std::string& name) {
  option_->type_name(name);
  return *this;
}

Parameter& Parameter::ShowDefault() {
  option_->capture_default_str();
  return *this;
}

Parameter& Parameter::ShowDefault(const std::string& text) {
  option_->default_str(text);
  return *this;
}

// The help shows the type instead of the library's own words for the check.
Parameter& Parameter::Within(int least, int most) {
  option_->check(CLI::Range(least, most).description(""));
  return *this;
}

// NaN is on neither side of a bound, so a range alone lets it through.
Parameter& Parameter::Within(double least, double most) {
  const auto is_number = [=](const std::string& text) {
    double value = 0;
    if (!CLI::detail::lexical_cast(text, value) || !std::isnan(value)) return std::string();
    return "Value " + text + " not in range " + std::to_string(least) + " to " + std::to_string(most);
  };
  option_->check(is_number, "")->check(CLI::Range(least, most).description(""));
  return *this;
}

Parameter& Parameter::OneOf(const std::vector<std::string>& words) {
  option_->check(CLI::IsMember(words).description(""));
  return *this;
}

Parameter& Parameter::Required() {
  option_->required();
  return *this;
}

Parameter& Parameter::OneValueEach() {
  option_->allow_extra_args(false);
  return *this;
}

bool Parameter::Given() const { return option_->count() != 0; }

Command Command::Add(const std::string& name, const std::string& about) {
  return Command(app_->add_subcommand(name, about), status_);
}

Parameter Command::Take(const std::string& names, std::string* value, const std::string& about) {
  return Parameter(app_->add_option(names, *value, about));
}

Parameter Command::Take(const std::string& names, std::vector<std::string>* values, const std::string& about) {
  return Parameter(app_->add_option(names, *values, about));
}

Parameter Command::Take(const std::string& names, int* value, const std::string& about) {
  return Parameter(app_->add_option(names, *value, about));
}

Parameter Command::Take(const std::string& names, size_t* value, const std::string& about) {
  return Parameter(app_->add_option(names, *value, about));
}

Parameter Command::Take(const std::string& names, double* value, const std::string& about) {
  return Parameter(app_->add_option(names, *value, about));
}

Parameter Command::Take(const std::string& names, std::function<void(int)> set, const std::string& about) {
  return Parameter(app_->add_option_function<int>(names, std::move(set), about));
}

Parameter Command::Take(const std::string& names, const std::function<void(const std::string&)>& set,
                        const std::string& about) {
  return Parameter(app_->add_option_function<std::string>(names, set, about));
}

Parameter Command::Flag(const std::string& names, bool* value, const std::string& about) {
  return Parameter(app_->add_flag(names, *value, about));
}

void Command::Footer(const std::string& text) { app_->footer(text); }

void Command::NeedsSubcommand() { app_->require_subcommand(1); }

void Command::Run(std::function<int()> run) {
  app_->callback([run = std::move(run), status = status_] { *status = run(); });
}

}  // namespace bthal::tool
