#include "sim/json_writer.hpp"

#include <cmath>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/string.hpp>

#include "platform/json/json_text.hpp"

namespace ombrine::sim {

namespace {

// The program's writer, with numbers as a web service writes them: no ".0" on whole doubles,
// -0 as 0, and null where a number is not finite.
void write(JsonWriter& writer, const boost::json::value& value) {
  switch (value.kind()) {
    case boost::json::kind::double_: {
      const double number = value.get_double();
      if (!std::isfinite(number)) {
        writer.null();
      } else {
        writer.number(number == 0.0 ? 0.0 : number);
      }
      return;
    }
    case boost::json::kind::array:
      writer.beginArray();
      for (const auto& element : value.get_array()) write(writer, element);
      writer.endArray();
      return;
    case boost::json::kind::object:
      writer.beginObject();
      for (const auto& member : value.get_object()) {
        writer.key(member.key());
        write(writer, member.value());
      }
      writer.endObject();
      return;
    default: writer.value(value); return;
  }
}

}  // namespace

std::string writeJson(const boost::json::value& value) {
  std::string out;
  JsonWriter writer(out);
  write(writer, value);
  return out;
}

boost::json::value roundedNumber(double value, int decimals) {
  if (decimals <= 0) return static_cast<std::int64_t>(std::llround(value));
  const double scale = std::pow(10.0, decimals);
  const double rounded = std::round(value * scale) / scale;
  return rounded == 0.0 ? 0.0 : rounded;
}

}  // namespace ombrine::sim
