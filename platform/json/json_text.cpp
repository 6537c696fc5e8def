#include "platform/json/json_text.hpp"

#include <boost/json/value.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace ombrine {

std::size_t utf8SequenceLength(std::string_view s) noexcept {
  auto byte = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
  auto continuation = [&](std::size_t i) { return i < s.size() && (byte(i) & 0xC0) == 0x80; };
  const unsigned char lead = byte(0);
  if (lead >= 0xC2 && lead <= 0xDF) return continuation(1) ? 2 : 0;
  if (lead >= 0xE0 && lead <= 0xEF) {
    if (!continuation(1) || !continuation(2)) return 0;
    if (lead == 0xE0 && byte(1) < 0xA0) return 0;   // overlong
    if (lead == 0xED && byte(1) >= 0xA0) return 0;  // surrogate
    return 3;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    if (!continuation(1) || !continuation(2) || !continuation(3)) return 0;
    if (lead == 0xF0 && byte(1) < 0x90) return 0;   // overlong
    if (lead == 0xF4 && byte(1) >= 0x90) return 0;  // above U+10FFFF
    return 4;
  }
  return 0;
}

namespace {

// The bytes a JSON string holds as they are: printable ASCII other than the quote and the
// backslash.
constexpr auto kPlainBytes = [] {
  std::array<bool, 256> plain{};
  for (int c = 0x20; c < 0x80; ++c) plain[c] = c != '"' && c != '\\';
  return plain;
}();

bool isPlain(unsigned char c) noexcept { return kPlainBytes[c]; }

// Longest key written through the one-append path of `JsonWriter::key`.
constexpr std::size_t kShortKey = 60;

}  // namespace

void appendJsonString(std::string& out, std::string_view s) {
  static constexpr char kHex[] = "0123456789abcdef";
  out.push_back('"');
  std::size_t run = 0;  // start of the pending run of bytes that need no escaping
  std::size_t i = 0;
  while (i < s.size()) {
    while (i < s.size() && isPlain(static_cast<unsigned char>(s[i]))) ++i;
    if (i == s.size()) break;
    const unsigned char c = static_cast<unsigned char>(s[i]);
    if (c >= 0x80) {
      const std::size_t length = utf8SequenceLength(s.substr(i));
      if (length != 0) {
        i += length;
        continue;
      }
    }
    out.append(s.data() + run, i - run);
    switch (c) {
      case '"': out.append("\\\""); break;
      case '\\': out.append("\\\\"); break;
      case '\b': out.append("\\b"); break;
      case '\f': out.append("\\f"); break;
      case '\n': out.append("\\n"); break;
      case '\r': out.append("\\r"); break;
      case '\t': out.append("\\t"); break;
      default:
        if (c < 0x20) {
          const char escape[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 0xF]};
          out.append(escape, sizeof escape);
        } else {
          out.append("\xEF\xBF\xBD");  // U+FFFD for a byte that starts no UTF-8 sequence
        }
    }
    run = ++i;
  }
  out.append(s.data() + run, s.size() - run);
  out.push_back('"');
}

void appendJsonNumber(std::string& out, double value, bool keepDoubleKind) {
  if (!std::isfinite(value)) throw EncodingError("a JSON number must be finite");
  if (value == 0.0 && std::signbit(value)) {
    out.append("-0.0");
    return;
  }
  char buffer[32];
  const auto [end, status] = std::to_chars(buffer, buffer + sizeof buffer, value);
  out.append(buffer, end);
  if (keepDoubleKind) {
    // "100" would parse back as an integer; "100.0" stays a double.
    for (const char* c = buffer; c != end; ++c) {
      if (*c == '.' || *c == 'e') return;
    }
    out.append(".0");
  }
}

void appendJsonInteger(std::string& out, std::int64_t value) {
  char buffer[24];
  const auto [end, status] = std::to_chars(buffer, buffer + sizeof buffer, value);
  out.append(buffer, end);
}

void appendJsonInteger(std::string& out, std::uint64_t value) {
  char buffer[24];
  const auto [end, status] = std::to_chars(buffer, buffer + sizeof buffer, value);
  out.append(buffer, end);
}

void JsonWriter::beginObject() {
  separate();
  out_.push_back('{');
  needsComma_ = false;
}

void JsonWriter::endObject() {
  out_.push_back('}');
  needsComma_ = true;
}

void JsonWriter::beginArray() {
  separate();
  out_.push_back('[');
  needsComma_ = false;
}

void JsonWriter::endArray() {
  out_.push_back(']');
  needsComma_ = true;
}

void JsonWriter::key(std::string_view name) {
  // A record holds thousands of keys, nearly all short plain names: those go out in one append
  // with their separator, quotes and colon.
  if (name.size() <= kShortKey &&
      std::ranges::all_of(name, [](char c) { return isPlain(static_cast<unsigned char>(c)); })) {
    char buffer[kShortKey + 4];
    char* at = buffer;
    if (needsComma_) *at++ = ',';
    *at++ = '"';
    at = std::copy(name.begin(), name.end(), at);
    *at++ = '"';
    *at++ = ':';
    out_.append(buffer, at);
    needsComma_ = false;
    return;
  }
  separate();
  appendJsonString(out_, name);
  out_.push_back(':');
  needsComma_ = false;
}

void JsonWriter::null() {
  separate();
  out_.append("null");
}

void JsonWriter::boolean(bool value) {
  separate();
  out_.append(value ? "true" : "false");
}

void JsonWriter::integer(std::int64_t value) {
  separate();
  appendJsonInteger(out_, value);
}

void JsonWriter::number(double value) {
  separate();
  appendJsonNumber(out_, value, false);
}

void JsonWriter::string(std::string_view value) {
  separate();
  appendJsonString(out_, value);
}

void JsonWriter::value(const boost::json::value& value) {
  switch (value.kind()) {
    case boost::json::kind::null: null(); return;
    case boost::json::kind::bool_: boolean(value.get_bool()); return;
    case boost::json::kind::int64: integer(value.get_int64()); return;
    case boost::json::kind::uint64:
      separate();
      appendJsonInteger(out_, value.get_uint64());
      return;
    case boost::json::kind::double_:
      separate();
      appendJsonNumber(out_, value.get_double(), true);
      return;
    case boost::json::kind::string: string(value.get_string()); return;
    case boost::json::kind::array:
      beginArray();
      for (const auto& element : value.get_array()) this->value(element);
      endArray();
      return;
    case boost::json::kind::object:
      beginObject();
      for (const auto& member : value.get_object()) {
        key(member.key());
        this->value(member.value());
      }
      endObject();
      return;
  }
}

}  // namespace ombrine
