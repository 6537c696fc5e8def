#pragma once
// The JSON building blocks every record codec uses: an exact parser, a text writer, document
// paths for error messages, member tables for records, and the codecs of the small value types.
//
// Reading. `parseJson` builds a boost::json DOM whose doubles are correctly rounded (Boost 1.81's
// own conversion can be one unit in the last place off, which would break bit-exact round trips).
// Record decoders then walk the DOM with a `JsonObjectReader` per object and the `decodeJson`
// overloads, carrying a `JsonPath` so that a failure says where: "hourly[3].dt: missing key".
// A record described by a `jsonMembers` table needs no decoder of its own, and the same table
// drives its writer and its streaming decoder (core/values/json_stream.hpp). Scalars are decoded from a
// `JsonScalar`, so both decoders apply the same rules. Every failure is a DecodingError; no input
// makes a decoder crash.
//
// Value rules. Dates are JSON numbers, seconds since 2001-01-01T00:00:00Z. Measurements are bare
// numbers in the base unit (Celsius, m/s, degrees, millimetres); a JSON null in a measurement
// reads as 0.0, anything else that is not a number fails. An optional key that is missing or
// null reads as absent. Integers accept any JSON number with an integral value that fits.
// `PrecipitationKind` is its case name. `AirQuality` is {"time": date, "AQI": integer}. URLs are
// strings that parse as URI references.
//
// Writing. `JsonWriter` appends compact JSON text to a string. Numbers are the shortest text
// that reads back as the same double (std::to_chars), -0.0 as "-0.0"; strings are escaped, and
// bytes that are not UTF-8 are written as U+FFFD. Keys keep the order they are written in.
//
// All functions are reentrant and touch no shared state.

#include <boost/json/object.hpp>
#include <boost/json/storage_ptr.hpp>
#include <boost/json/value.hpp>
#include <boost/url/url.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

#include "core/values/air_quality.hpp"
#include "core/values/date.hpp"
#include "core/values/errors.hpp"
#include "core/values/measurements.hpp"
#include "platform/json/json_text.hpp"

namespace ombrine {

// Parses one JSON document (surrounding white space allowed). The DOM lives in `storage` (the
// default resource when null); pass a boost::json::monotonic_resource for throwaway documents.
// Raises DecodingError "invalid JSON at byte N: <reason>".
boost::json::value parseJson(std::string_view text, boost::json::storage_ptr storage = {});

// Compact JSON text of any DOM value, with the number and string rules of JsonWriter. Doubles
// keep a fraction or exponent ("100.0"), so that the text parses back to the same kinds.
// Raises EncodingError for a non-finite double.
std::string serializeJson(const boost::json::value& value);

// Where a decoder is in a document. Built on the stack as the decoder descends (a child refers
// to its parent, so a path must not outlive the paths and key strings it was made from) and
// turned into text only when something fails.
class JsonPath {
 public:
  JsonPath() = default;

  // Children of a named path only: a child of a temporary would dangle, so name each level.
  JsonPath key(std::string_view name) const& noexcept { return JsonPath(this, name, 0, false); }
  JsonPath index(size_t position) const& noexcept { return JsonPath(this, {}, position, true); }
  JsonPath key(std::string_view name) const&& = delete;
  JsonPath index(size_t position) const&& = delete;

  // "hourly[3].dt"; empty at the root.
  std::string text() const;
  // Raises DecodingError "<path>: <problem>" (just the problem at the root).
  [[noreturn]] void fail(std::string_view problem) const;

 private:
  JsonPath(const JsonPath* parent, std::string_view name, size_t position, bool isIndex) noexcept
      : parent_(parent), name_(name), position_(position), isIndex_(isIndex) {}

  const JsonPath* parent_ = nullptr;
  std::string_view name_;
  size_t position_ = 0;
  bool isIndex_ = false;
};

// -- Reading ---------------------------------------------------------------------------------

// Reads the JSON number `text` (as the parser delivered it) correctly rounded. `approximate` is
// the parser's own conversion, kept when it is known to be exact. False when the number is
// beyond the range of a double.
bool exactJsonNumber(std::string_view text, double approximate, double& out) noexcept;

// The text of a number a parser delivers, for parser handlers: parts are kept until the last one
// (a one-shot parse never splits a number, but a fragment must never be converted alone).
class JsonNumberText {
 public:
  void part(std::string_view text) { text_.append(text); }
  void clear() noexcept { text_.clear(); }
  // Converts the whole number ending with `last`; false when it is beyond the range of a double.
  bool finish(std::string_view last, double approximate, double& out) {
    if (text_.empty()) return exactJsonNumber(last, approximate, out);
    text_.append(last);
    const bool representable = exactJsonNumber(text_, approximate, out);
    text_.clear();
    return representable;
  }

 private:
  std::string text_;
};

// The name of a JSON kind for messages: "a string", "an object", "null", ...
std::string_view describeJsonKind(boost::json::kind kind) noexcept;
std::string_view describeJsonKind(const boost::json::value& value) noexcept;

// A JSON value as the decoder of one field sees it: a scalar with its content, or only the kind
// of an object or array. The DOM decoders and the streaming decoder (core/values/json_stream.hpp) both
// decode scalars through it, so they apply one set of rules.
struct JsonScalar {
  boost::json::kind kind = boost::json::kind::null;
  bool boolean = false;
  std::int64_t int64 = 0;
  std::uint64_t uint64 = 0;
  double number = 0.0;
  std::string_view string;  // valid while the event or DOM value it came from is

  static JsonScalar of(const boost::json::value& value) noexcept;
};

// Raises DecodingError "<path>: expected <expected>, found <kind>".
[[noreturn]] void failExpected(boost::json::kind found, const JsonPath& path, std::string_view expected);

std::string_view jsonString(const JsonScalar& value, const JsonPath& path);
// Any JSON number as a double.
double jsonNumber(const JsonScalar& value, const JsonPath& path);
// A JSON number with an integral value that fits.
std::int64_t jsonInteger(const JsonScalar& value, const JsonPath& path);

const boost::json::object& jsonObject(const boost::json::value& value, const JsonPath& path);
const boost::json::array& jsonArray(const boost::json::value& value, const JsonPath& path);
std::string_view jsonString(const boost::json::value& value, const JsonPath& path);
double jsonNumber(const boost::json::value& value, const JsonPath& path);
std::int64_t jsonInteger(const boost::json::value& value, const JsonPath& path);

void decodeScalar(const JsonScalar& value, const JsonPath& path, double& out);
void decodeScalar(const JsonScalar& value, const JsonPath& path, int& out);
void decodeScalar(const JsonScalar& value, const JsonPath& path, std::int64_t& out);
void decodeScalar(const JsonScalar& value, const JsonPath& path, bool& out);
void decodeScalar(const JsonScalar& value, const JsonPath& path, std::string& out);
void decodeScalar(const JsonScalar& value, const JsonPath& path, boost::urls::url& out);
void decodeScalar(const JsonScalar& value, const JsonPath& path, Date& out);
void decodeScalar(const JsonScalar& value, const JsonPath& path, Temperature& out);
void decodeScalar(const JsonScalar& value, const JsonPath& path, Speed& out);
void decodeScalar(const JsonScalar& value, const JsonPath& path, Angle& out);
void decodeScalar(const JsonScalar& value, const JsonPath& path, Precipitation& out);
void decodeScalar(const JsonScalar& value, const JsonPath& path, PrecipitationKind& out);

// Types whose JSON form is one scalar.
template <class T>
concept JsonScalarType = requires(const JsonScalar& value, const JsonPath& path, T& out) {
  decodeScalar(value, path, out);
};

template <JsonScalarType T>
void decodeJson(const boost::json::value& value, const JsonPath& path, T& out) {
  decodeScalar(JsonScalar::of(value), path, out);
}

template <class T>
void decodeJson(const boost::json::value& value, const JsonPath& path, std::vector<T>& out) {
  const boost::json::array& array = jsonArray(value, path);
  out.clear();
  // Bounded: a long array of bad elements must fail at its first one, not after reserving memory
  // in proportion to its length.
  out.reserve(std::min<size_t>(array.size(), 4096));
  for (size_t i = 0; i < array.size(); ++i) decodeJson(array[i], path.index(i), out.emplace_back());
}

// Key comparison for decoders. Keys are short: comparing them a word at a time (overlapping
// loads for the tail) beats a call to memcmp and a byte loop.
inline bool jsonKeyEquals(std::string_view a, std::string_view b) noexcept {
  const size_t n = a.size();
  if (n != b.size()) return false;
  const char* p = a.data();
  const char* q = b.data();
  auto load8 = [](const char* s) {
    std::uint64_t v;
    std::memcpy(&v, s, sizeof v);
    return v;
  };
  auto load4 = [](const char* s) {
    std::uint32_t v;
    std::memcpy(&v, s, sizeof v);
    return v;
  };
  if (n >= 8) {
    for (size_t i = 0; i + 8 <= n; i += 8) {
      if (load8(p + i) != load8(q + i)) return false;
    }
    return load8(p + n - 8) == load8(q + n - 8);
  }
  if (n >= 4) return load4(p) == load4(q) && load4(p + n - 4) == load4(q + n - 4);
  for (size_t i = 0; i < n; ++i) {
    if (p[i] != q[i]) return false;
  }
  return true;
}

// Reads the members of one JSON object for a record decoder.
//
// A lookup first tries the member after the previous hit, so an object written in declaration
// order (as every encoder here writes) is read in one pass; members in any other order are still
// found. `read` requires the key ("missing key" otherwise) and decodes its value as T; `readOptional`
// gives nothing for a missing key or null. The reader refers to `value` and `path`: keep both
// alive while it is used.
class JsonObjectReader {
 public:
  // Raises DecodingError when `value` is not an object.
  JsonObjectReader(const boost::json::value& value, const JsonPath& path);

  // The value of `key`, or null when the object has no such member.
  const boost::json::value* find(std::string_view key) noexcept;

  template <class T>
  void read(std::string_view key, T& out) {
    const boost::json::value* value = find(key);
    const JsonPath child = path_.key(key);
    if (value == nullptr) child.fail("missing key");
    decodeJson(*value, child, out);
  }

  template <class T>
  void readOptional(std::string_view key, std::optional<T>& out) {
    const boost::json::value* value = find(key);
    if (value == nullptr || value->is_null()) {
      out.reset();
      return;
    }
    const JsonPath child = path_.key(key);
    decodeJson(*value, child, out.emplace());
  }

  const boost::json::object& object() const noexcept { return object_; }
  const JsonPath& path() const noexcept { return path_; }

 private:
  const boost::json::object& object_;
  const JsonPath& path_;
  size_t next_ = 0;
};

// -- Records ---------------------------------------------------------------------------------

// One member of a record's JSON form: its key and the field that holds it.
//
// A record describes its form once, as a tuple of members in declaration order (the order they
// are written in), returned by a constexpr `jsonMembers(const Record*)` found by argument-
// dependent lookup. The DOM decoder, the streaming decoder (core/values/json_stream.hpp) and the writer
// all work from that one tuple. An std::optional field is an optional key (missing or null reads
// as absent; left out when absent); any other field is required. Declare `jsonMembers` before
// the first use of the record's codec.
template <class Record, class Field>
struct JsonMember {
  std::string_view key;
  Field Record::*field;
};

template <class Record, class Field>
constexpr JsonMember<Record, Field> jsonMember(std::string_view key, Field Record::*field) {
  return {key, field};
}

template <class T>
concept JsonRecord = requires(const T* record) {
  jsonMembers(record);
};

template <class T>
inline constexpr bool kIsJsonOptional = false;
template <class T>
inline constexpr bool kIsJsonOptional<std::optional<T>> = true;

// Runs after a record was decoded; a record that normalises a field overloads it.
template <class T>
void finishDecoding(T&) {}

template <JsonRecord T>
void decodeJson(const boost::json::value& value, const JsonPath& path, T& out) {
  JsonObjectReader reader(value, path);
  std::apply(
      [&](const auto&... members) {
        auto readMember = [&](const auto& member) {
          auto& field = out.*(member.field);
          if constexpr (kIsJsonOptional<std::remove_cvref_t<decltype(field)>>) {
            reader.readOptional(member.key, field);
          } else {
            reader.read(member.key, field);
          }
        };
        (readMember(members), ...);
      },
      jsonMembers(static_cast<const T*>(nullptr)));
  finishDecoding(out);
}

// -- Writing ---------------------------------------------------------------------------------

void writeJson(JsonWriter& writer, double value);
void writeJson(JsonWriter& writer, int value);
void writeJson(JsonWriter& writer, std::int64_t value);
void writeJson(JsonWriter& writer, bool value);
void writeJson(JsonWriter& writer, std::string_view value);
void writeJson(JsonWriter& writer, const std::string& value);
void writeJson(JsonWriter& writer, const char* value);
void writeJson(JsonWriter& writer, const boost::urls::url& value);
void writeJson(JsonWriter& writer, Date value);
void writeJson(JsonWriter& writer, Temperature value);
void writeJson(JsonWriter& writer, Speed value);
void writeJson(JsonWriter& writer, Angle value);
void writeJson(JsonWriter& writer, Precipitation value);
void writeJson(JsonWriter& writer, PrecipitationKind value);

template <class T>
void writeJson(JsonWriter& writer, const std::vector<T>& values) {
  writer.beginArray();
  for (const auto& value : values) writeJson(writer, value);
  writer.endArray();
}

template <class T>
void writeKey(JsonWriter& writer, std::string_view key, const T& value) {
  writer.key(key);
  writeJson(writer, value);
}

// Leaves the key out when the value is absent.
template <class T>
void writeOptionalKey(JsonWriter& writer, std::string_view key, const std::optional<T>& value) {
  if (!value) return;
  writer.key(key);
  writeJson(writer, *value);
}

template <JsonRecord T>
void writeJson(JsonWriter& writer, const T& record) {
  writer.beginObject();
  std::apply(
      [&](const auto&... members) {
        auto writeMember = [&](const auto& member) {
          const auto& field = record.*(member.field);
          if constexpr (kIsJsonOptional<std::remove_cvref_t<decltype(field)>>) {
            writeOptionalKey(writer, member.key, field);
          } else {
            writeKey(writer, member.key, field);
          }
        };
        (writeMember(members), ...);
      },
      jsonMembers(static_cast<const T*>(nullptr)));
  writer.endObject();
}

// AirQuality: {"time": date, "AQI": integer}.
inline constexpr auto kAirQualityJsonMembers =
    std::tuple{jsonMember("time", &AirQuality::time), jsonMember("AQI", &AirQuality::aqi)};
constexpr const auto& jsonMembers(const AirQuality*) { return kAirQualityJsonMembers; }

// The case name of a precipitation kind ("none", "hail", "mixed", "rain", "sleet", "snow").
std::string_view precipitationKindName(PrecipitationKind kind) noexcept;
std::optional<PrecipitationKind> precipitationKindNamed(std::string_view name) noexcept;

}  // namespace ombrine
