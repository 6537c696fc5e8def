#include "platform/key_value_store.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

#include "platform/key_value_store_json.hpp"
#include "platform/testing/in_memory_key_value_store.hpp"

namespace ombrine {
namespace {

StoreValue v(StoreValue value) { return value; }

TEST(KeyValueStoreJsonTest, EveryKindReadsBackAsItsOwnKind) {
  struct Row {
    const char* why;
    StoreValue value;
  };
  const Row rows[] = {
      {"bool", v({true})},
      {"integer zero is not a double", v({std::int64_t{0}})},
      {"double zero is not an integer", v({0.0})},
      {"integral double keeps its kind", v({5.0})},
      {"negative zero keeps its sign", v({-0.0})},
      {"shortest text still rounds to the same double", v({0.1 + 0.2})},
      {"huge double", v({1e300})},
      {"denormal", v({4.9406564584124654e-324})},
      {"integer limits", v({std::numeric_limits<std::int64_t>::min()})},
      {"integer limits", v({std::numeric_limits<std::int64_t>::max()})},
      {"infinity", v({-std::numeric_limits<double>::infinity()})},
      {"text with quotes, controls and non-ASCII", v({std::string("a\"b\\c\n\x01 Zürich 東京")})},
      {"date", v({StoreDate{785.25}})},
      {"date with integral seconds stays a date", v({StoreDate{0.0}})},
      {"data with every byte", v({StoreData{std::string("\0\xff\x80 abc", 7)}})},
      {"empty data", v({StoreData{""}})},
      {"nested array", v({StoreArray{v({true}), v({StoreArray{}}), v({std::string("x")})}})},
      {"dictionary whose only key looks like a tag", v({StoreDictionary{{"$date", v({std::int64_t{5}})}}})},
      {"dictionary with an escaped-looking key", v({StoreDictionary{{"$$x", v({1.5})}, {"", v({false})}}})},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.why);
    const StoreDictionary in{{"key", row.value}, {"$top", row.value}};
    const std::string json = encodeStoreDictionaryJson(in);
    const StoreDictionary out = decodeStoreDictionaryJson(json);
    EXPECT_EQ(out, in) << json;
  }
}

TEST(KeyValueStoreJsonTest, NotANumberSurvives) {
  const StoreDictionary in{{"x", v({std::numeric_limits<double>::quiet_NaN()})}};
  const StoreDictionary out = decodeStoreDictionaryJson(encodeStoreDictionaryJson(in));
  ASSERT_TRUE(std::holds_alternative<double>(out.at("x").value));
  EXPECT_TRUE(std::isnan(std::get<double>(out.at("x").value)));
}

TEST(KeyValueStoreJsonTest, ReadsHandWrittenFiles) {
  struct Row {
    const char* json;
    StoreValue expected;
  };
  const Row rows[] = {
      {R"({"k": 18446744073709551615})", v({18446744073709551615.0})},  // beyond int64: a double
      {R"({"k": 1E2})", v({100.0})},
      {R"({"k": {"$date": 10}})", v({StoreDate{10.0}})},
      {R"({"k": {"$other": 1}})", v({StoreDictionary{{"$other", v({std::int64_t{1}})}}})},
      {R"({"k": {"a": 1, "a": 2}})", v({StoreDictionary{{"a", v({std::int64_t{2}})}}})},  // last wins
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.json);
    EXPECT_EQ(decodeStoreDictionaryJson(row.json).at("k"), row.expected);
  }
}

TEST(KeyValueStoreJsonTest, RefusesWhatHasNoStoredForm) {
  const char* rows[] = {
      "",                               // empty file
      "[1]",                            // not an object
      "{\"k\": null}",                  // null has no stored value
      "{\"k\": {\"$date\": \"x\"}}",    // a date needs a number
      "{\"k\": {\"$data\": \"a\"}}",    // base64 of a wrong length
      "{\"k\": {\"$data\": 5}}",        // data needs text
      "{\"k\": {\"$double\": \"x\"}}",  // unknown special double
      "{\"k\": 1} x",                   // trailing garbage
      "{\"k\": 1",                      // truncated
      "{\"k\": 1e999}",                 // out of range
      "{\"k\": \"\xff\"}",              // invalid UTF-8
  };
  for (const char* json : rows) {
    SCOPED_TRACE(json);
    EXPECT_THROW(decodeStoreDictionaryJson(json), std::invalid_argument);
  }
}

TEST(KeyValueStoreJsonTest, WritesInvalidUtf8AsReplacementCharacter) {
  const StoreDictionary in{{"k", v({std::string("a\xff"
                                                "b")})}};
  EXPECT_EQ(decodeStoreDictionaryJson(encodeStoreDictionaryJson(in)).at("k"), v({std::string("a\xEF\xBF\xBD"
                                                                                             "b")}));
}

TEST(KeyValueStoreJsonTest, Base64MatchesTheStandardVectors) {
  const std::pair<const char*, const char*> rows[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
  };
  for (const auto& [plain, encoded] : rows) {
    EXPECT_EQ(encodeBase64(plain), encoded);
    EXPECT_EQ(decodeBase64(encoded), plain);
  }
  for (const char* bad : {"Zg=", "Z===", "Zg==Zg==", "Zm9v\n", "Zm=v", "Zm9*"}) {
    SCOPED_TRACE(bad);
    EXPECT_THROW(decodeBase64(bad), std::invalid_argument);
  }
}

TEST(KeyValueStoreTest, TypedReadersConvertOnlyBetweenNumbers) {
  const InMemoryKeyValueStore store(StoreDictionary{
      {"int", v({std::int64_t{-7}})},
      {"double", v({-7.9})},
      {"nan", v({std::numeric_limits<double>::quiet_NaN()})},
      {"huge", v({1e19})},
      {"bool", v({true})},
      {"text", v({std::string("1")})},
      {"date", v({StoreDate{3.0}})},
      {"data", v({StoreData{"d"}})},
  });
  // Numbers read as each other, a double truncating toward zero.
  EXPECT_EQ(store.integerValue("int"), -7);
  EXPECT_EQ(store.integerValue("double"), -7);
  EXPECT_EQ(store.doubleValue("int"), -7.0);
  EXPECT_EQ(store.doubleValue("double"), -7.9);
  // A double with no integer value in range has no integer reading.
  EXPECT_EQ(store.integerValue("nan"), std::nullopt);
  EXPECT_EQ(store.integerValue("huge"), std::nullopt);
  // No other conversion: a boolean is no number, text is no number, a date is no double.
  EXPECT_EQ(store.integerValue("bool"), std::nullopt);
  EXPECT_EQ(store.integerValue("text"), std::nullopt);
  EXPECT_EQ(store.doubleValue("date"), std::nullopt);
  EXPECT_EQ(store.boolValue("int"), std::nullopt);
  EXPECT_EQ(store.stringValue("data"), std::nullopt);
  EXPECT_EQ(store.dataValue("text"), std::nullopt);
  // Each reads its own kind, and absence is nothing.
  EXPECT_EQ(store.boolValue("bool"), true);
  EXPECT_EQ(store.stringValue("text"), "1");
  EXPECT_EQ(store.dateValue("date"), StoreDate{3.0});
  EXPECT_EQ(store.dataValue("data"), StoreData{"d"});
  EXPECT_EQ(store.boolValue("absent"), std::nullopt);
}

}  // namespace
}  // namespace ombrine
