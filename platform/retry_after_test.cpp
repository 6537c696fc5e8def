#include "platform/retry_after.hpp"

#include <gtest/gtest.h>

namespace ombrine {
namespace {

// Sun, 06 Nov 1994 08:49:37 GMT
const auto kNow = std::chrono::system_clock::time_point(std::chrono::seconds(784111777));

TEST(RetryAfterTest, SecondsOrDate) {
  struct Row {
    const char* value;
    std::optional<double> seconds;
  };
  const Row rows[] = {
      {"120", 120.0},
      {" 7\r\n", 7.0},  // header values may keep their line end
      {"2.5", 2.5},
      {"0", 0.0},
      {"-3", 0.0},  // a wait in the past is no wait
      {"Sun, 06 Nov 1994 08:51:37 GMT", 120.0},
      {"Sunday, 06-Nov-94 08:50:07 GMT", 30.0},
      {"Sun Nov  6 08:49:38 1994", 1.0},
      {"Sun, 06 Nov 1994 08:00:00 GMT", 0.0},  // a date already past
      {"", std::nullopt},
      {"   ", std::nullopt},
      {"soon", std::nullopt},
      {"inf", std::nullopt},
      {"nan", std::nullopt},
      {"1e400", std::nullopt},  // out of range is not "forever"
      {"12 s", std::nullopt},
      {"Sun, 32 Nov 1994 08:51:37 GMT", std::nullopt},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.value);
    const auto delay = retryAfterDelay(row.value, kNow);
    ASSERT_EQ(delay.has_value(), row.seconds.has_value());
    if (delay) EXPECT_DOUBLE_EQ(delay->count(), *row.seconds);
  }
  HttpResponse response;
  response.headers = {{"retry-after", "30"}, {"Retry-After", "99"}};
  EXPECT_DOUBLE_EQ(retryAfterDelay(response, kNow)->count(), 30.0) << "the first header, by any case";
  EXPECT_FALSE(retryAfterDelay(HttpResponse{}, kNow));
}

}  // namespace
}  // namespace ombrine
