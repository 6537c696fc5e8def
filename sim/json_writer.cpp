#include "sim/json_writer.hpp"

#include <charconv>
#include <cmath>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/string.hpp>

namespace ombrine::sim {

namespace {

void writeString(std::string& out, std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  out += '"';
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (byte < 0x20) {
          out += "\\u00";
          out += kHex[byte >> 4];
          out += kHex[byte & 0xF];
        } else {
          out += c;  // UTF-8 passes through unchanged
        }
    }
  }
  out += '"';
}

template <class Number>
void writeNumber(std::string& out, Number number) {
  char buffer[64];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, number);
  out.append(buffer, result.ptr);
}

void write(std::string& out, const boost::json::value& value) {
  switch (value.kind()) {
    case boost::json::kind::null: out += "null"; break;
    case boost::json::kind::bool_: out += value.get_bool() ? "true" : "false"; break;
    case boost::json::kind::int64: writeNumber(out, value.get_int64()); break;
    case boost::json::kind::uint64: writeNumber(out, value.get_uint64()); break;
    case boost::json::kind::double_: {
      const double number = value.get_double();
      if (!std::isfinite(number)) {
        out += "null";
      } else {
        writeNumber(out, number == 0.0 ? 0.0 : number);
      }
      break;
    }
    case boost::json::kind::string: writeString(out, value.get_string()); break;
    case boost::json::kind::array: {
      out += '[';
      bool first = true;
      for (const auto& element : value.get_array()) {
        if (!first) out += ',';
        first = false;
        write(out, element);
      }
      out += ']';
      break;
    }
    case boost::json::kind::object: {
      out += '{';
      bool first = true;
      for (const auto& member : value.get_object()) {
        if (!first) out += ',';
        first = false;
        writeString(out, member.key());
        out += ':';
        write(out, member.value());
      }
      out += '}';
      break;
    }
  }
}

}  // namespace

std::string writeJson(const boost::json::value& value) {
  std::string out;
  write(out, value);
  return out;
}

boost::json::value roundedNumber(double value, int decimals) {
  if (decimals <= 0) return static_cast<std::int64_t>(std::llround(value));
  const double scale = std::pow(10.0, decimals);
  const double rounded = std::round(value * scale) / scale;
  return rounded == 0.0 ? 0.0 : rounded;
}

}  // namespace ombrine::sim
