#include "core/values/value_json.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <random>

namespace ombrine {
namespace {

std::string failure(const std::function<void()>& body) {
  try {
    body();
  } catch (const DecodingError& error) {
    return error.what();
  }
  return "(no failure)";
}

TEST(ValueJsonTest, ParsedDoublesAreCorrectlyRounded) {
  // Shortest forms of random doubles across the whole range, and short decimals like the ones
  // providers send (which take the fast path); each must read as std::from_chars reads it.
  std::mt19937_64 random(42);
  std::string document = "[";
  std::vector<double> expected;
  for (int i = 0; i < 20000; ++i) {
    double value = 0.0;
    if (i % 2 == 0) {
      value = std::bit_cast<double>(random());
      if (!std::isfinite(value)) continue;
    } else {
      value = static_cast<double>(static_cast<std::int64_t>(random() % 2000000) - 1000000) /
              std::pow(10.0, static_cast<double>(random() % 8));
    }
    char buffer[32];
    auto [end, status] = std::to_chars(buffer, buffer + sizeof buffer, value);
    std::string_view text(buffer, end - buffer);
    double reread = 0.0;
    std::from_chars(text.data(), text.data() + text.size(), reread);
    if (expected.size() > 0) document.push_back(',');
    document.append(text);
    expected.push_back(reread);
  }
  document.push_back(']');
  const boost::json::value parsed = parseJson(document);
  const auto& array = parsed.as_array();
  ASSERT_EQ(array.size(), expected.size());
  int wrong = 0;
  for (size_t i = 0; i < array.size(); ++i) {
    const double got = array[i].is_double() ? array[i].get_double() : array[i].to_number<double>();
    if (std::bit_cast<std::uint64_t>(got) != std::bit_cast<std::uint64_t>(expected[i])) ++wrong;
  }
  EXPECT_EQ(wrong, 0);
}

TEST(ValueJsonTest, ObjectReaderFindsKeysInAnyOrderAndNamesMissingOnes) {
  const boost::json::value value = parseJson(R"({"b":2,"a":1,"c":null,"d":3})");
  const JsonPath root;
  const JsonPath place = root.key("place");
  JsonObjectReader reader(value, place);
  int a = 0, b = 0, d = 0;
  std::optional<int> c = 5;
  std::optional<int> e = 6;
  reader.read("a", a);
  reader.read("b", b);
  reader.read("d", d);
  reader.readOptional("c", c);
  reader.readOptional("e", e);
  EXPECT_EQ(a, 1);
  EXPECT_EQ(b, 2);
  EXPECT_EQ(d, 3);
  EXPECT_EQ(c, std::nullopt);
  EXPECT_EQ(e, std::nullopt);
  EXPECT_EQ(failure([&] { reader.read("e", a); }), "place.e: missing key");
  EXPECT_EQ(failure([&] { reader.read("c", a); }), "place.c: expected an integer, found null");
  EXPECT_EQ(failure([&] { JsonObjectReader(parseJson("[]"), root); }), "expected an object, found an array");

  const JsonPath list = place.key("list");
  const JsonPath item = list.index(4);
  EXPECT_EQ(item.key("x").text(), "place.list[4].x");
  const JsonPath nested = root.index(0);
  EXPECT_EQ(nested.index(2).text(), "[0][2]");
}

TEST(ValueJsonTest, SerializedDomKeepsNumberKinds) {
  const char* const documents[] = {
      R"({"a":[1,-2,18446744073709551615,2.0,-0.0,1e+300,0.1],"b":{"c":null,"d":true,"e":"\u00e9\n"}})",
      R"([])",
      R"("just a string")",
  };
  for (const char* text : documents) {
    SCOPED_TRACE(text);
    const boost::json::value value = parseJson(text);
    const std::string serialized = serializeJson(value);
    EXPECT_EQ(parseJson(serialized), value);
    EXPECT_EQ(serializeJson(parseJson(serialized)), serialized);
  }
  EXPECT_EQ(serializeJson(parseJson("[2.0,-0.0,100,1e2,1E+300]")), "[2.0,-0.0,100,100.0,1e+300]");
}

TEST(ValueJsonTest, WriterSeparatesAndRefusesNonFiniteNumbers) {
  std::string out;
  JsonWriter writer(out);
  writer.beginObject();
  writer.key("a");
  writer.beginArray();
  writer.integer(-3);
  writer.number(0.5);
  writer.boolean(false);
  writer.null();
  writer.beginObject();
  writer.endObject();
  writer.string("é\x7f");
  writer.endArray();
  writer.key("b\"");
  writeJson(writer, Temperature::celsius(-0.0));
  writer.key("kind");
  writeJson(writer, PrecipitationKind::sleet);
  writer.endObject();
  EXPECT_EQ(out, "{\"a\":[-3,0.5,false,null,{},\"é\x7f\"],\"b\\\"\":-0.0,\"kind\":\"sleet\"}");
  EXPECT_THROW(writer.number(INFINITY), EncodingError);
  EXPECT_THROW(writer.number(NAN), EncodingError);
}

TEST(ValueJsonTest, StringsAndKeysEscapeWhatJsonForbidsAndRepairBrokenUtf8) {
  struct Case {
    const char* what;
    std::string text;
    std::string json;
  };
  const Case cases[] = {
      {"plain", "temp", "\"temp\""},
      {"quote and backslash", "a\"b\\c", "\"a\\\"b\\\\c\""},
      {"named controls", "\b\f\n\r\t", "\"\\b\\f\\n\\r\\t\""},
      {"other controls", std::string("\x01\x1f\0", 3), "\"\\u0001\\u001f\\u0000\""},
      {"two, three and four byte sequences", "é€😀", "\"é€😀\""},
      {"a stray continuation byte",
       "a\x80"
       "b",
       "\"a\xEF\xBF\xBD"
       "b\""},
      {"a sequence cut short at the end", "x\xe2\x82", "\"x\xEF\xBF\xBD\xEF\xBF\xBD\""},
      {"an overlong form", "\xc0\xaf", "\"\xEF\xBF\xBD\xEF\xBF\xBD\""},
  };
  for (const auto& c : cases) {
    std::string value;
    JsonWriter(value).string(c.text);
    EXPECT_EQ(value, c.json) << c.what;
    std::string object;
    JsonWriter writer(object);
    writer.beginObject();
    writer.key("first");
    writer.null();
    writer.key(c.text);
    writer.null();
    writer.endObject();
    EXPECT_EQ(object, "{\"first\":null," + c.json + ":null}") << c.what;
  }
}

}  // namespace
}  // namespace ombrine
