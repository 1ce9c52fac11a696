#include "bthal/hci/encode.h"

#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include <algorithm>
#include <bit>

#include "bthal/hci/hex.h"
#include "bthal/hci/values.h"

namespace bthal::tool {
namespace {

using ::android::base::StringPrintf;
using Arguments = std::span<const std::string>;
using Base = FieldType::Base;
using Bytes = std::vector<uint8_t>;

void AppendNumber(uint64_t number, size_t width, Bytes* out) {
  for (size_t i = 0; i < width; ++i) out->push_back(static_cast<uint8_t>(number >> (8 * i)));
}

// One list of parameters: first who gets which text, then each one's bytes, then what is counted of them.
class FieldEncoder {
 public:
  FieldEncoder(std::span<const Field> fields, std::string* error)
      : fields_(fields), error_(error), texts_(fields.size()), bodies_(fields.size()), counts_(fields.size()) {}

  std::optional<Bytes> Encode(Arguments arguments) {
    if (!Assign(arguments)) return std::nullopt;
    for (size_t i = 0; i < fields_.size(); ++i) {
      if (!IsCounter(fields_, fields_[i]) && !EncodeOne(i)) return std::nullopt;
    }
    for (size_t i = 0; i < fields_.size(); ++i) {
      if (IsCounter(fields_, fields_[i]) && !EncodeCounter(i)) return std::nullopt;
    }
    Bytes all;
    for (const Bytes& body : bodies_) all.insert(all.end(), body.begin(), body.end());
    return all;
  }

 private:
  bool Fail(const std::string& why) {
    *error_ = why;
    return false;
  }

  bool Refuse(const Field& field, const std::string& text) {
    return Fail(field.name + " cannot be '" + text + "'; it takes " + TypeWords(field.type));
  }

  size_t IndexOf(std::string_view name) const {
    return static_cast<size_t>(std::ranges::find(fields_, name, &Field::name) - fields_.begin());
  }

  // The parameter that is named in front of a '='.
  size_t Named(const std::string& text) const {
    const size_t equals = text.find('=');
    return equals == text.npos ? fields_.size() : IndexOf(text.substr(0, equals));
  }

  size_t NextUnnamed(bool counts_too) const {
    size_t at = 0;
    while (at < fields_.size() && (texts_[at] || (!counts_too && IsCounter(fields_, fields_[at])))) ++at;
    return at;
  }

  // Who gets which text.
  bool Assign(Arguments arguments) {
    const auto is_named = [&](const std::string& text) { return Named(text) < fields_.size(); };
    const bool counts_too = arguments.size() == fields_.size() && std::ranges::none_of(arguments, is_named);
    for (size_t i = 0; i < arguments.size(); ++i) {
      const std::string& text = arguments[i];
      const size_t equals = is_named(text) ? text.find('=') : text.npos;
      const size_t at = equals != text.npos ? Named(text) : NextUnnamed(counts_too);
      if (at == fields_.size()) return Surplus(text);
      const bool is_text = fields_[at].type.base == Base::kText;
      if (equals == text.npos && !is_text && text.find('=') != text.npos) return Surplus(text);
      if (texts_[at]) return Fail(fields_[at].name + " is given twice");
      texts_[at] = equals == text.npos ? text : text.substr(equals + 1);
      // A name may have blanks in it.
      while (is_text && at + 1 == fields_.size() && i + 1 < arguments.size()) *texts_[at] += " " + arguments[++i];
    }
    return true;
  }

  bool Surplus(const std::string& text) {
    const size_t equals = text.find('=');
    if (equals == text.npos) return Fail("too many parameters");
    return Fail("there is no parameter '" + text.substr(0, equals) + "'");
  }

  bool EncodeOne(size_t i) {
    const Field& field = fields_[i];
    if (!texts_[i] && !MayBeLeftOut(fields_, field)) return Fail(field.name + " is missing");
    if (!texts_[i]) texts_[i] = field.fallback.value_or(Nothing(field));
    if (field.type.base == Base::kElements) return EncodeElements(i);
    if (AppendValue(field, *texts_[i], &bodies_[i])) return true;
    return Refuse(field, *texts_[i]);
  }

  // What is nothing where nothing is given; of masked elements, as many as there must be.
  std::string Nothing(const Field& field) const {
    const size_t elements = field.masked ? MaskBits(field) : 0;
    return std::string(elements == 0 ? 0 : elements - 1, ',');
  }

  size_t MaskBits(const Field& field) const {
    size_t bits = 0;
    for (const uint8_t byte : bodies_[IndexOf(field.count)]) bits += static_cast<size_t>(std::popcount(byte));
    return bits;
  }

  bool EncodeElements(size_t i) {
    const Field& field = fields_[i];
    const bool none = texts_[i]->empty() && (!field.masked || MaskBits(field) == 0);
    const std::vector<std::string> pieces = none ? std::vector<std::string>{} : ::android::base::Split(*texts_[i], ",");
    counts_[i] = pieces.size();
    if (field.masked && pieces.size() != MaskBits(field)) {
      return Fail(StringPrintf("%s: %zu elements, but %s has %zu bits", field.name.c_str(), pieces.size(),
                               field.count.c_str(), MaskBits(field)));
    }
    for (const std::string& piece : pieces) {
      std::vector<std::string> values = ::android::base::Split(piece, "/");
      if (piece.empty()) values.clear();
      const std::optional<Bytes> bytes = EncodeFields(field.elements, values, error_);
      if (!bytes) return Fail(field.name + ": " + *error_);
      bodies_[i].insert(bodies_[i].end(), bytes->begin(), bytes->end());
    }
    return true;
  }

  bool EncodeCounter(size_t i) {
    const Field& field = fields_[i];
    const auto counted = std::ranges::find(fields_, field.name, &Field::count);
    const std::string made_up = std::to_string(counts_[static_cast<size_t>(counted - fields_.begin())]);
    const std::string& text = texts_[i] ? *texts_[i] : made_up;
    if (AppendValue(field, text, &bodies_[i])) return true;
    return Refuse(field, text);
  }

  bool AppendValue(const Field& field, const std::string& text, Bytes* out) {
    if (field.type.base == Base::kNumber) {
      const std::optional<uint64_t> number = ParseValue(field.type, text);
      if (number) AppendNumber(*number, field.type.width, out);
      return number.has_value();
    }
    const bool is_text = field.type.base == Base::kText;
    const std::optional<Bytes> bytes = is_text ? std::optional(Bytes(text.begin(), text.end())) : ParseHex(text);
    if (!bytes) return false;
    if (field.type.base == Base::kAddress) {
      if (bytes->size() != field.type.width) return false;
      out->assign(bytes->rbegin(), bytes->rend());
      return true;
    }
    if (field.type.width != 0 && bytes->size() > field.type.width) return false;
    *out = *bytes;
    counts_[static_cast<size_t>(&field - fields_.data())] = bytes->size();
    if (field.type.width != 0) out->resize(field.type.width);
    return true;
  }

  const std::span<const Field> fields_;
  std::string* const error_;
  std::vector<std::optional<std::string>> texts_;
  std::vector<Bytes> bodies_;
  std::vector<size_t> counts_;
};

}  // namespace

bool IsCounter(std::span<const Field> fields, const Field& field) {
  return std::ranges::any_of(
      fields, [&](const Field& other) { return other.counted && !other.masked && other.count == field.name; });
}

bool MayBeLeftOut(std::span<const Field> fields, const Field& field) {
  if (field.fallback || field.optional) return true;
  if (field.masked) return std::ranges::all_of(field.elements, [](const Field& it) { return it.fallback.has_value(); });
  const auto counter = std::ranges::find(fields, field.count, &Field::name);
  return counter != fields.end() && counter->type.least.value_or(0) <= 0;
}

std::optional<Bytes> EncodeFields(std::span<const Field> fields, Arguments arguments, std::string* error) {
  return FieldEncoder(fields, error).Encode(arguments);
}

std::optional<Bytes> BuildCommand(const Entry& command, Arguments arguments, std::string* error) {
  const std::optional<Bytes> parameters = EncodeFields(command.parameters, arguments, error);
  if (!parameters) {
    *error = StringPrintf("%s: %s (see 'help %s')", command.name.c_str(), error->c_str(), command.name.c_str());
    return std::nullopt;
  }
  constexpr size_t kMost = 255;
  if (parameters->size() > kMost) {
    *error = StringPrintf("%s: %zu bytes of parameters; a command carries at most %zu", command.name.c_str(),
                          parameters->size(), kMost);
    return std::nullopt;
  }
  Bytes packet = command.code;
  packet.push_back(static_cast<uint8_t>(parameters->size()));
  packet.insert(packet.end(), parameters->begin(), parameters->end());
  return packet;
}

}  // namespace bthal::tool
