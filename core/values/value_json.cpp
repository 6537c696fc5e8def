#include "core/values/value_json.hpp"

#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/value_stack.hpp>
#include <boost/url/parse.hpp>

#include <array>
#include <charconv>
#include <cmath>
#include <limits>

namespace ombrine {

namespace {

// Boost converts a number as its decimal significand times (or divided by) a power of ten. That
// is correctly rounded when the significand has at most 15 digits (below 2^53, so exact) and the
// power is at most 10^22 (also exact): one operation, one rounding. A number of at most 16
// characters without an exponent is such a number (at least one character is its point).
bool boostConversionIsExact(std::string_view text) noexcept {
  if (text.size() > 16) return false;
  for (char c : text) {
    if (c == 'e' || c == 'E') return false;
  }
  return true;
}

// Builds the DOM like boost::json::parser does, except that every non-integer number is
// converted again from its text with std::from_chars, which rounds correctly.
class ExactHandler {
 public:
  static constexpr size_t max_object_size = boost::json::object::max_size();
  static constexpr size_t max_array_size = boost::json::array::max_size();
  static constexpr size_t max_key_size = boost::json::string::max_size();
  static constexpr size_t max_string_size = boost::json::string::max_size();

  ExactHandler(boost::json::storage_ptr storage, unsigned char* buffer, size_t size)
      : stack(std::move(storage), buffer, size) {}

  using error_code = boost::json::error_code;
  using string_view = boost::json::string_view;

  bool on_document_begin(error_code&) { return true; }
  bool on_document_end(error_code&) { return true; }
  bool on_object_begin(error_code&) { return true; }
  bool on_object_end(size_t n, error_code&) {
    stack.push_object(n);
    return true;
  }
  bool on_array_begin(error_code&) { return true; }
  bool on_array_end(size_t n, error_code&) {
    stack.push_array(n);
    return true;
  }
  bool on_key_part(string_view s, size_t, error_code&) {
    stack.push_chars(s);
    return true;
  }
  bool on_key(string_view s, size_t, error_code&) {
    stack.push_key(s);
    return true;
  }
  bool on_string_part(string_view s, size_t, error_code&) {
    stack.push_chars(s);
    return true;
  }
  bool on_string(string_view s, size_t, error_code&) {
    stack.push_string(s);
    return true;
  }
  bool on_number_part(string_view s, error_code&) {
    number_.part(s);
    return true;
  }
  bool on_int64(std::int64_t i, string_view, error_code&) {
    number_.clear();
    stack.push_int64(i);
    return true;
  }
  bool on_uint64(std::uint64_t u, string_view, error_code&) {
    number_.clear();
    stack.push_uint64(u);
    return true;
  }
  bool on_double(double approximate, string_view s, error_code& ec) {
    double exact = 0.0;
    if (!number_.finish(s, approximate, exact)) {
      ec = boost::json::error::exponent_overflow;
      return false;
    }
    stack.push_double(exact);
    return true;
  }
  bool on_bool(bool b, error_code&) {
    stack.push_bool(b);
    return true;
  }
  bool on_null(error_code&) {
    stack.push_null();
    return true;
  }
  bool on_comment_part(string_view, error_code&) { return true; }
  bool on_comment(string_view, error_code&) { return true; }

  boost::json::value_stack stack;

 private:
  JsonNumberText number_;
};

constexpr std::array<std::string_view, 6> kPrecipitationKindNames = {"none", "hail", "mixed", "rain", "sleet", "snow"};

// A measurement: a number in the base unit, null as 0.0.
double measurement(const JsonScalar& value, const JsonPath& path) {
  if (value.kind == boost::json::kind::null) return 0.0;
  return jsonNumber(value, path);
}

}  // namespace

boost::json::value parseJson(std::string_view text, boost::json::storage_ptr storage) {
  boost::json::parse_options options;
  options.max_depth = 64;
  unsigned char buffer[BOOST_JSON_STACK_BUFFER_SIZE];
  boost::json::basic_parser<ExactHandler> parser(options, boost::json::storage_ptr(), buffer, sizeof buffer);
  parser.handler().stack.reset(std::move(storage));
  boost::json::error_code ec;
  size_t consumed = parser.write_some(false, text.data(), text.size(), ec);
  if (!ec && consumed < text.size()) ec = boost::json::error::extra_data;
  if (ec) {
    throw DecodingError("invalid JSON at byte " + std::to_string(consumed) + ": " + ec.message());
  }
  return parser.handler().stack.release();
}

std::string serializeJson(const boost::json::value& value) {
  std::string out;
  JsonWriter writer(out);
  writer.value(value);
  return out;
}

std::string JsonPath::text() const {
  std::vector<const JsonPath*> chain;
  for (const JsonPath* p = this; p->parent_ != nullptr; p = p->parent_) chain.push_back(p);
  std::string out;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    const JsonPath& p = **it;
    if (p.isIndex_) {
      out.append("[").append(std::to_string(p.position_)).append("]");
    } else {
      if (!out.empty()) out.push_back('.');
      out.append(p.name_);
    }
  }
  return out;
}

void JsonPath::fail(std::string_view problem) const {
  std::string where = text();
  if (where.empty()) throw DecodingError(std::string(problem));
  where.append(": ").append(problem);
  throw DecodingError(where);
}

JsonObjectReader::JsonObjectReader(const boost::json::value& value, const JsonPath& path)
    : object_(jsonObject(value, path)), path_(path) {}

const boost::json::value* JsonObjectReader::find(std::string_view key) noexcept {
  const size_t size = object_.size();
  const boost::json::key_value_pair* members = object_.begin();
  if (next_ < size && jsonKeyEquals(members[next_].key(), key)) return &members[next_++].value();
  for (size_t i = 0; i < size; ++i) {
    if (jsonKeyEquals(members[i].key(), key)) {
      next_ = i + 1;
      return &members[i].value();
    }
  }
  return nullptr;
}

bool exactJsonNumber(std::string_view text, double approximate, double& out) noexcept {
  if (boostConversionIsExact(text)) {
    out = approximate;
    return true;
  }
  auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), out);
  if (status == std::errc::result_out_of_range && std::isfinite(approximate) && std::fabs(approximate) < 1.0) {
    out = std::signbit(approximate) ? -0.0 : 0.0;  // underflow reads as zero
    return true;
  }
  return status == std::errc() && end == text.data() + text.size();
}

std::string_view describeJsonKind(boost::json::kind kind) noexcept {
  switch (kind) {
    case boost::json::kind::null: return "null";
    case boost::json::kind::bool_: return "a boolean";
    case boost::json::kind::int64:
    case boost::json::kind::uint64:
    case boost::json::kind::double_: return "a number";
    case boost::json::kind::string: return "a string";
    case boost::json::kind::array: return "an array";
    case boost::json::kind::object: return "an object";
  }
  return "a value";
}

std::string_view describeJsonKind(const boost::json::value& value) noexcept { return describeJsonKind(value.kind()); }

JsonScalar JsonScalar::of(const boost::json::value& value) noexcept {
  JsonScalar scalar;
  scalar.kind = value.kind();
  switch (value.kind()) {
    case boost::json::kind::bool_: scalar.boolean = value.get_bool(); break;
    case boost::json::kind::int64: scalar.int64 = value.get_int64(); break;
    case boost::json::kind::uint64: scalar.uint64 = value.get_uint64(); break;
    case boost::json::kind::double_: scalar.number = value.get_double(); break;
    case boost::json::kind::string:
      scalar.string = std::string_view(value.get_string().data(), value.get_string().size());
      break;
    default: break;
  }
  return scalar;
}

void failExpected(boost::json::kind found, const JsonPath& path, std::string_view expected) {
  std::string problem = "expected ";
  problem.append(expected).append(", found ").append(describeJsonKind(found));
  path.fail(problem);
}

const boost::json::object& jsonObject(const boost::json::value& value, const JsonPath& path) {
  if (const auto* object = value.if_object()) return *object;
  failExpected(value.kind(), path, "an object");
}

const boost::json::array& jsonArray(const boost::json::value& value, const JsonPath& path) {
  if (const auto* array = value.if_array()) return *array;
  failExpected(value.kind(), path, "an array");
}

std::string_view jsonString(const JsonScalar& value, const JsonPath& path) {
  if (value.kind != boost::json::kind::string) failExpected(value.kind, path, "a string");
  return value.string;
}

double jsonNumber(const JsonScalar& value, const JsonPath& path) {
  switch (value.kind) {
    case boost::json::kind::double_: return value.number;
    case boost::json::kind::int64: return static_cast<double>(value.int64);
    case boost::json::kind::uint64: return static_cast<double>(value.uint64);
    default: failExpected(value.kind, path, "a number");
  }
}

std::int64_t jsonInteger(const JsonScalar& value, const JsonPath& path) {
  switch (value.kind) {
    case boost::json::kind::int64: return value.int64;
    case boost::json::kind::uint64:
      if (value.uint64 > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        path.fail("integer out of range");
      }
      return static_cast<std::int64_t>(value.uint64);
    case boost::json::kind::double_: {
      // 2^63 is exactly representable; every double below it in magnitude converts.
      const double d = value.number;
      if (d != std::trunc(d)) path.fail("expected an integer, found a number with a fraction");
      if (d < -9223372036854775808.0 || d >= 9223372036854775808.0) path.fail("integer out of range");
      return static_cast<std::int64_t>(d);
    }
    default: failExpected(value.kind, path, "an integer");
  }
}

std::string_view jsonString(const boost::json::value& value, const JsonPath& path) {
  return jsonString(JsonScalar::of(value), path);
}

double jsonNumber(const boost::json::value& value, const JsonPath& path) {
  return jsonNumber(JsonScalar::of(value), path);
}

std::int64_t jsonInteger(const boost::json::value& value, const JsonPath& path) {
  return jsonInteger(JsonScalar::of(value), path);
}

void decodeScalar(const JsonScalar& value, const JsonPath& path, double& out) { out = jsonNumber(value, path); }

void decodeScalar(const JsonScalar& value, const JsonPath& path, int& out) {
  const std::int64_t wide = jsonInteger(value, path);
  if (wide < std::numeric_limits<int>::min() || wide > std::numeric_limits<int>::max()) {
    path.fail("integer out of range");
  }
  out = static_cast<int>(wide);
}

void decodeScalar(const JsonScalar& value, const JsonPath& path, std::int64_t& out) { out = jsonInteger(value, path); }

void decodeScalar(const JsonScalar& value, const JsonPath& path, bool& out) {
  if (value.kind != boost::json::kind::bool_) failExpected(value.kind, path, "a boolean");
  out = value.boolean;
}

void decodeScalar(const JsonScalar& value, const JsonPath& path, std::string& out) {
  out.assign(jsonString(value, path));
}

void decodeScalar(const JsonScalar& value, const JsonPath& path, boost::urls::url& out) {
  const std::string_view text = jsonString(value, path);
  auto parsed = boost::urls::parse_uri_reference(text);
  if (!parsed) path.fail("invalid URL");
  out = boost::urls::url(*parsed);
}

void decodeScalar(const JsonScalar& value, const JsonPath& path, Date& out) {
  out = Date::fromReference(jsonNumber(value, path));
}

void decodeScalar(const JsonScalar& value, const JsonPath& path, Temperature& out) {
  out.measurement = measurement(value, path);
}

void decodeScalar(const JsonScalar& value, const JsonPath& path, Speed& out) {
  out.measurement = measurement(value, path);
}

void decodeScalar(const JsonScalar& value, const JsonPath& path, Angle& out) {
  out.measurement = measurement(value, path);
}

void decodeScalar(const JsonScalar& value, const JsonPath& path, Precipitation& out) {
  out.measurement = measurement(value, path);
}

void decodeScalar(const JsonScalar& value, const JsonPath& path, PrecipitationKind& out) {
  const std::string_view name = jsonString(value, path);
  auto kind = precipitationKindNamed(name);
  if (!kind) path.fail("unknown precipitation kind \"" + std::string(name) + "\"");
  out = *kind;
}

void writeJson(JsonWriter& writer, double value) { writer.number(value); }
void writeJson(JsonWriter& writer, int value) { writer.integer(value); }
void writeJson(JsonWriter& writer, std::int64_t value) { writer.integer(value); }
void writeJson(JsonWriter& writer, bool value) { writer.boolean(value); }
void writeJson(JsonWriter& writer, std::string_view value) { writer.string(value); }
void writeJson(JsonWriter& writer, const std::string& value) { writer.string(value); }
void writeJson(JsonWriter& writer, const char* value) { writer.string(value); }
void writeJson(JsonWriter& writer, const boost::urls::url& value) {
  writer.string(std::string_view(value.buffer().data(), value.buffer().size()));
}
void writeJson(JsonWriter& writer, Date value) { writer.number(value.timeIntervalSinceReferenceDate); }
void writeJson(JsonWriter& writer, Temperature value) { writer.number(value.measurement); }
void writeJson(JsonWriter& writer, Speed value) { writer.number(value.measurement); }
void writeJson(JsonWriter& writer, Angle value) { writer.number(value.measurement); }
void writeJson(JsonWriter& writer, Precipitation value) { writer.number(value.measurement); }
void writeJson(JsonWriter& writer, PrecipitationKind value) { writer.string(precipitationKindName(value)); }

std::string_view precipitationKindName(PrecipitationKind kind) noexcept {
  return kPrecipitationKindNames[static_cast<size_t>(kind)];
}

std::optional<PrecipitationKind> precipitationKindNamed(std::string_view name) noexcept {
  for (size_t i = 0; i < kPrecipitationKindNames.size(); ++i) {
    if (kPrecipitationKindNames[i] == name) return static_cast<PrecipitationKind>(i);
  }
  return std::nullopt;
}

}  // namespace ombrine
