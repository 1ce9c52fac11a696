#include "bthal/hci/values.h"

#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include <algorithm>
#include <charconv>
#include <cmath>

#include "bthal/hci/characters.h"
#include "bthal/hci/hex.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using Base = FieldType::Base;

constexpr int64_t kLargestHandle = 0x0EFF;

uint64_t Largest(const FieldType& type) {
  return type.width >= 8 ? ~uint64_t{0} : (uint64_t{1} << (8 * type.width)) - 1;
}

std::optional<uint64_t> ParseSigned(const FieldType& type, std::string_view text) {
  const bool negative = text.starts_with('-');
  // A signed byte may also be written as it lies on the wire: 0x81.
  const uint64_t max = negative ? Largest(type) / 2 + 1 : Largest(type);
  const std::optional<uint64_t> number = ParseNumber(negative ? text.substr(1) : text, max);
  if (!number) return std::nullopt;
  const uint64_t on_wire = (negative ? 0 - *number : *number) & Largest(type);
  return on_wire > Largest(type) / 2 ? on_wire | ~Largest(type) : on_wire;
}

// "10ms", where a step is 0.625 ms. Nothing when it is no whole count of steps.
std::optional<uint64_t> ParseWithUnit(const FieldType& type, std::string_view text) {
  if (type.unit.empty() || !text.ends_with(type.unit)) return std::nullopt;
  text.remove_suffix(type.unit.size());
  double amount = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), amount, std::chars_format::fixed);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  const double steps = std::round(amount / type.step);
  constexpr double kInexact = 1e-9;
  const uint64_t largest = type.is_signed ? Largest(type) >> 1 : Largest(type);
  const auto most = static_cast<double>(largest);
  const double least = type.is_signed ? -most - 1 : 0;
  if (std::abs(steps * type.step - amount) > kInexact * std::max(1.0, std::abs(amount))) return std::nullopt;
  if (!(steps >= least && steps <= most)) return std::nullopt;
  return static_cast<uint64_t>(static_cast<int64_t>(steps));
}

std::optional<uint64_t> ParseOne(const FieldType& type, std::string_view text) {
  if (type.words) {
    const std::string name = ScriptName(text);
    const auto called = [&](const CodeWord& word) { return ScriptName(word.words) == name; };
    const auto found = std::ranges::find_if(*type.words, called);
    if (!name.empty() && found != type.words->end()) return type.bits ? uint64_t{1} << found->code : found->code;
  }
  if (type.is_signed) {
    if (const std::optional<uint64_t> number = ParseSigned(type, text)) return number;
  } else if (const std::optional<uint64_t> number = ParseNumber(text, Largest(type))) {
    return number;
  }
  return ParseWithUnit(type, text);
}

// Words name what is allowed, not all that is: a code without words passes.
bool InRange(const FieldType& type, uint64_t number) {
  if (FindWords(type, number) != nullptr && !type.bits) return true;
  const auto value = static_cast<int64_t>(number);
  return (!type.least || value >= *type.least) && (!type.most || value <= *type.most);
}

std::string Plain(const FieldType& type, uint64_t number) {
  if (type.is_signed) return std::to_string(static_cast<int64_t>(number));
  if (!type.hex) return std::to_string(number);
  const auto value = static_cast<unsigned long long>(number);
  constexpr int kHandleBits = 12;
  if (type.most != kLargestHandle) return StringPrintf("0x%0*llX", static_cast<int>(2 * type.width), value);
  const std::string handle = StringPrintf("0x%03llX", value & ((1 << kHandleBits) - 1));
  return value >> kHandleBits == 0 ? handle : handle + StringPrintf(" flags 0x%llX", value >> kHandleBits);
}

std::string Scaled(const FieldType& type, uint64_t number) {
  const double amount =
      type.is_signed ? static_cast<double>(static_cast<int64_t>(number)) : static_cast<double>(number);
  return StringPrintf("%.10g %s", amount * type.step, type.unit.c_str());
}

std::string BitWords(const FieldType& type, uint64_t number, const char* between) {
  std::string text;
  for (const CodeWord& word : *type.words) {
    if ((number >> word.code & 1) == 0) continue;
    if (!text.empty()) text += between;
    text += word.words;
  }
  return text;
}

std::string RangeWords(const FieldType& type) {
  const auto limit = [&](int64_t value) {
    const bool large = *type.least > 0xFF || type.most.value_or(0x100) > 0xFF;
    const bool hex = type.hex || (large && *type.least >= 0);
    return hex ? StringPrintf("0x%0*llX", static_cast<int>(2 * type.width), static_cast<unsigned long long>(value))
               : std::to_string(value);
  };
  const int64_t most = type.most.value_or(static_cast<int64_t>(Largest(type)));
  std::string text = ", " + limit(*type.least) + " to " + limit(most);
  if (type.unit.empty()) return text;
  const auto worth = [&](int64_t value) { return Scaled(type, static_cast<uint64_t>(value)); };
  return text + " (" + worth(*type.least) + " to " + worth(most) + ")";
}

// ": 0 off, 1 on"; of very many only that there are some.
std::string NamesWords(const FieldType& type) {
  constexpr size_t kWorthListing = 20;
  if (type.words->size() > kWorthListing) return type.bits ? ", or names of bits" : ", or a name";
  std::string names;
  for (const CodeWord& word : *type.words) {
    names += names.empty() ? "" : ", ";
    names += type.hex && !type.bits ? Plain(type, word.code) : std::to_string(word.code);
    names += "=" + (word.words.find(' ') == word.words.npos ? word.words : ScriptName(word.words));
  }
  return (type.bits ? ", or bits as in a+b: " : ": ") + names;
}

std::string NumberWords(const FieldType& type) {
  std::string text = StringPrintf("%zu byte%s", type.width, type.width == 1 ? "" : "s");
  if (type.is_signed) text += ", signed";
  if (type.least) text += RangeWords(type);
  if (type.step != 1) text += StringPrintf(" in steps of %g %s", type.step, type.unit.c_str());
  if (type.step == 1 && !type.unit.empty() && !type.least) text += ", in " + type.unit;
  return type.words ? text + NamesWords(type) : text;
}

}  // namespace

std::optional<uint64_t> ParseValue(const FieldType& type, std::string_view text) {
  const bool as_it_is = text.starts_with('!');
  if (as_it_is) text.remove_prefix(1);
  std::optional<uint64_t> number = ParseOne(type, text);
  if (!number && type.bits) {
    number = 0;
    for (const std::string& piece : ::android::base::Split(std::string(text), "+")) {
      const std::optional<uint64_t> bits = ParseOne(type, piece);
      if (!bits) return std::nullopt;
      *number |= *bits;
    }
  }
  return number && (as_it_is || InRange(type, *number)) ? number : std::nullopt;
}

std::string TypeWords(const FieldType& type) {
  const std::string at_most = type.width == 0 ? "" : "at most " + std::to_string(type.width) + " ";
  switch (type.base) {
    case Base::kNumber:
      return NumberWords(type);
    case Base::kAddress:
      return "an address AA:BB:CC:DD:EE:FF";
    case Base::kBytes:
      return at_most + "hex bytes";
    case Base::kText:
      return type.width == 0 ? "text" : "text of at most " + std::to_string(type.width) + " bytes";
    case Base::kAdvertising:
      return at_most + "hex bytes of advertising data";
    case Base::kElements:
      return "elements with ',' between them, '/' between their parameters";
  }
  return "";
}

std::string NumberText(const FieldType& type, uint64_t number, bool brief) {
  if (type.name == "opcode")
    return OpcodeWords(static_cast<uint16_t>(number)) + (brief ? "" : " (" + Plain(type, number) + ")");
  const std::string plain = Plain(type, number);
  if (type.words && type.bits) {
    const std::string words = BitWords(type, number, brief ? "+" : ", ");
    return words.empty() ? plain : brief ? words : plain + " (" + words + ")";
  }
  if (const std::string* words = FindWords(type, number)) {
    // What is an error is also known by its number.
    return brief && (!type.hex || number == 0) ? *words : *words + " (" + plain + ")";
  }
  if (type.unit.empty()) return type.words && type.hex && brief ? type.name + " " + plain : plain;
  if (brief || type.step == 1) return Scaled(type, number);
  return plain + " (" + Scaled(type, number) + ")";
}

std::string AddressWords(std::span<const uint8_t> six_bytes) {
  return StringPrintf("%02X:%02X:%02X:%02X:%02X:%02X", six_bytes[5], six_bytes[4], six_bytes[3], six_bytes[2],
                      six_bytes[1], six_bytes[0]);
}

std::string QuotedText(std::span<const uint8_t> bytes) {
  const auto end = std::ranges::find(bytes, 0);
  std::string text = "\"";
  for (std::string_view rest(reinterpret_cast<const char*>(bytes.data()), static_cast<size_t>(end - bytes.begin()));
       !rest.empty();) {
    const bool plain = rest[0] >= 0x20 && rest[0] < 0x7F;
    const size_t length = plain ? 1 : WideLength(rest);
    const bool passes = length != 0 && length != kMoreMustCome;
    text += passes ? rest.substr(0, length) : ".";
    rest.remove_prefix(passes ? length : 1);
  }
  return text + '"';
}

}  // namespace bthal::tool
