#include "support/json_check.h"

#include <cctype>
#include <string>

namespace bthal::test {
namespace {

class Checker {
 public:
  explicit Checker(std::string_view text) : rest_(text) {}

  bool Whole() { return Value() && (Space(), rest_.empty()); }

 private:
  void Space() { rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size())); }
  bool Take(std::string_view text) {
    if (!rest_.starts_with(text)) return false;
    rest_.remove_prefix(text.size());
    return true;
  }
  bool Value() {
    Space();
    if (rest_.empty()) return false;
    if (rest_[0] == '{') return List('{', '}', true);
    if (rest_[0] == '[') return List('[', ']', false);
    if (rest_[0] == '"') return String();
    return Take("true") || Take("false") || Take("null") || Number();
  }
  bool List(char open, char close, bool named) {
    Take(std::string(1, open));
    Space();
    if (Take(std::string(1, close))) return true;
    do {
      Space();
      if (named && !(String() && (Space(), Take(":")))) return false;
      if (!Value()) return false;
      Space();
    } while (Take(","));
    return Take(std::string(1, close));
  }
  bool String() {
    if (!Take("\"")) return false;
    while (!rest_.empty() && rest_[0] != '"') {
      if (static_cast<unsigned char>(rest_[0]) < 0x20) return false;
      if (Take("\\")) {
        if (Take("u")) {
          for (int i = 0; i < 4; ++i) {
            if (rest_.empty() || !std::isxdigit(static_cast<unsigned char>(rest_[0]))) return false;
            rest_.remove_prefix(1);
          }
          continue;
        }
        if (rest_.empty() || std::string_view("\"\\/bfnrt").find(rest_[0]) == std::string_view::npos) return false;
      }
      rest_.remove_prefix(1);
    }
    return Take("\"");
  }
  bool Number() {
    Take("-");
    const size_t digits = std::min(rest_.find_first_not_of("0123456789"), rest_.size());
    if (digits == 0 || (digits > 1 && rest_[0] == '0')) return false;
    rest_.remove_prefix(digits);
    return true;  // our numbers are whole
  }

  std::string_view rest_;
};

}  // namespace

bool IsJson(std::string_view text) { return Checker(text).Whole(); }

}  // namespace bthal::test
