#pragma once
// The one JSON text writer of the program: string escaping, UTF-8 checking and number text.
// Every JSON the program writes (records, caches, the key-value store files, the simulator's
// answers) goes through these, so they escape and format alike.
//
// Strings: '"' and '\' escaped, control characters as \b \f \n \r \t or \u00XX, well-formed
// UTF-8 passed through, and each byte that starts no well-formed UTF-8 sequence replaced by
// U+FFFD (JSON text carries text, not bytes). Numbers: the shortest text that reads back as the
// same double (std::to_chars), never an exponent for ordinary values.
//
// Pure functions; JsonWriter is a value bound to one output string, used on one thread.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include <boost/json/fwd.hpp>

namespace ombrine {

// A value has no JSON form: a NaN or infinite number.
class EncodingError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// Length of the well-formed UTF-8 sequence at the start of `s` (which begins with a byte of
// 0x80 or above), or 0 when it is not one.
std::size_t utf8SequenceLength(std::string_view s) noexcept;

// Appends `s` as a JSON string, quotes included.
void appendJsonString(std::string& out, std::string_view s);

// Appends a finite `value`: the shortest round-trip text, negative zero as "-0.0", and with
// `keepDoubleKind` an integral value gets ".0" so that it reads back as a double. Raises
// EncodingError for NaN and infinity.
void appendJsonNumber(std::string& out, double value, bool keepDoubleKind);
void appendJsonInteger(std::string& out, std::int64_t value);
void appendJsonInteger(std::string& out, std::uint64_t value);

// Appends compact JSON text to `out`. The caller writes a well-formed sequence (a key before
// each member value, balanced begin/end); the writer adds the separators.
class JsonWriter {
 public:
  explicit JsonWriter(std::string& out) : out_(out) {}

  void beginObject();
  void endObject();
  void beginArray();
  void endArray();
  void key(std::string_view name);

  void null();
  void boolean(bool value);
  void integer(std::int64_t value);
  // Raises EncodingError for NaN or infinity.
  void number(double value);
  void string(std::string_view value);
  // Any DOM value; doubles keep their kind ("100.0").
  void value(const boost::json::value& value);

 private:
  void separate() {
    if (needsComma_) out_.push_back(',');
    needsComma_ = true;
  }

  std::string& out_;
  bool needsComma_ = false;
};

// The JSON text of `value`, through the `writeJson(JsonWriter&, const T&)` overload declared
// beside its type (found by argument-dependent lookup).
template <class T>
std::string encodeJson(const T& value) {
  std::string out;
  JsonWriter writer(out);
  writeJson(writer, value);
  return out;
}

}  // namespace ombrine
