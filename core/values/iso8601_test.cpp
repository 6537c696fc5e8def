#include "core/values/iso8601.hpp"

#include <gtest/gtest.h>

#include "core/values/errors.hpp"

using namespace std::literals;

namespace ombrine {
namespace {

constexpr double k20240310T140509Z = 1710079509.0;  // Unix seconds

TEST(Iso8601Test, ParsesInternetDateTimeWithAndWithoutFraction) {
  struct Row {
    const char* text;
    double unixSeconds;
  };
  const Row rows[] = {
      {"2024-03-10T14:05:09Z", k20240310T140509Z},
      {"2024-03-10T14:05:09.250Z", k20240310T140509Z + 0.25},
      {"2024-03-10T14:05:09.5Z", k20240310T140509Z + 0.5},
      {"2024-03-10T14:05:09.000000001Z", k20240310T140509Z},
      {"2024-03-10t14:05:09z", k20240310T140509Z},
      {"2024-03-10T19:35:09+05:30", k20240310T140509Z},
      {"2024-03-10T09:05:09-05:00", k20240310T140509Z},
      {"2024-03-11T00:05:09+10:00", k20240310T140509Z},  // the offset moves the day back
      {"2024-03-09T23:05:09.250-15:00", k20240310T140509Z + 0.25},
      {"2024-03-10T14:05:09+00:00", k20240310T140509Z},
      {"2024-03-10T14:05:09-00:00", k20240310T140509Z},
      {"1970-01-01T00:00:00Z", 0.0},
      {"1969-12-31T23:59:59Z", -1.0},
      {"2001-01-01T00:00:00Z", Date::kReferenceToUnix},
      {"2024-02-29T12:00:00Z", 1709208000.0},  // leap year
      {"2000-02-29T00:00:00Z", 951782400.0},   // divisible by 400
      {"2016-12-31T23:59:60Z", 1483228800.0},  // leap second: the next minute
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_DOUBLE_EQ(decodeISO8601Date(row.text).unixSeconds(), row.unixSeconds);
  }
}

TEST(Iso8601Test, RejectsAnythingElseWithTheDecodingMessage) {
  const std::string_view bad[] = {
      ""sv,
      "garbage"sv,
      "2024-03-10"sv,
      "2024-03-10T14:05:09"sv,        // no zone
      "2024-03-10T14:05Z"sv,          // no seconds
      "2024-03-10 14:05:09Z"sv,       // space instead of T
      "2024-03-10T14:05:09.Z"sv,      // empty fraction
      "2024-03-10T14:05:09,5Z"sv,     // comma fraction
      "2024-03-10T14:05:09+0530"sv,   // offset without colon
      "2024-03-10T14:05:09+05"sv,     // offset without minutes
      "2024-03-10T14:05:09+24:00"sv,  // offset out of range
      "2024-03-10T14:05:09Z "sv,      // trailing text
      " 2024-03-10T14:05:09Z"sv,      // leading text
      "24-03-10T14:05:09Z"sv,
      "+2024-03-10T14:05:09Z"sv,
      "2024-3-10T14:05:09Z"sv,
      "2024-13-10T14:05:09Z"sv,
      "2024-00-10T14:05:09Z"sv,
      "2024-04-31T14:05:09Z"sv,
      "2023-02-29T14:05:09Z"sv,  // not a leap year
      "1900-02-29T14:05:09Z"sv,  // divisible by 100 only
      "2024-03-10T24:00:00Z"sv,
      "2024-03-10T14:60:09Z"sv,
      "2024-03-10T14:05:61Z"sv,
      "2024-03-10T14:05:0aZ"sv,
  };
  for (const std::string_view text : bad) {
    SCOPED_TRACE(std::string(text));
    try {
      decodeISO8601Date(text);
      ADD_FAILURE() << "accepted";
    } catch (const DecodingError& e) {
      EXPECT_EQ(e.what(), "Invalid ISO8601 date: " + std::string(text));
    }
  }
  // An embedded NUL is not the end of the text.
  EXPECT_THROW(decodeISO8601Date("2024-03-10T14:05:09\0Z"sv), DecodingError);
  // Each form alone is strict about the fraction; the decoder tries both.
  EXPECT_EQ(parseInternetDateTime("2024-03-10T14:05:09Z", true), std::nullopt);
  EXPECT_EQ(parseInternetDateTime("2024-03-10T14:05:09.1Z", false), std::nullopt);
}

TEST(Iso8601Test, FormatsUtcAndRoundTrips) {
  struct Row {
    double unixSeconds;
    const char* whole;
    const char* fractional;
  };
  const Row rows[] = {
      {k20240310T140509Z, "2024-03-10T14:05:09Z", "2024-03-10T14:05:09.000Z"},
      {k20240310T140509Z + 0.25, "2024-03-10T14:05:09Z", "2024-03-10T14:05:09.250Z"},
      {k20240310T140509Z + 0.9996, "2024-03-10T14:05:09Z", "2024-03-10T14:05:10.000Z"},  // rounds up a second
      {Date::kReferenceToUnix, "2001-01-01T00:00:00Z", "2001-01-01T00:00:00.000Z"},
      {-0.5, "1969-12-31T23:59:59Z", "1969-12-31T23:59:59.500Z"},  // before the Unix epoch
      {253402300799.0, "9999-12-31T23:59:59Z", "9999-12-31T23:59:59.000Z"},
      {-62135596800.0, "0001-01-01T00:00:00Z", "0001-01-01T00:00:00.000Z"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.whole);
    const Date date = Date::fromUnix(row.unixSeconds);
    EXPECT_EQ(iso8601String(date), row.whole);
    EXPECT_EQ(iso8601String(date, true), row.fractional);
    EXPECT_EQ(iso8601String(decodeISO8601Date(row.whole)), row.whole);
    EXPECT_EQ(iso8601String(decodeISO8601Date(row.fractional), true), row.fractional);
  }
  const Date exact = Date::fromUnix(k20240310T140509Z + 0.125);
  EXPECT_EQ(decodeISO8601Date(iso8601String(exact, true)), exact);
}

}  // namespace
}  // namespace ombrine
