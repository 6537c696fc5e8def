#include "platform/http_freshness.hpp"

#include <gtest/gtest.h>

namespace ombrine {
namespace {

constexpr double kSunday = 784111777.0;  // Sun, 06 Nov 1994 08:49:37 GMT

TEST(HttpFreshnessTest, HttpDates) {
  struct Row {
    const char* text;
    std::optional<double> expected;
  };
  const Row rows[] = {
      {"Sun, 06 Nov 1994 08:49:37 GMT", kSunday},
      {"Sunday, 06-Nov-94 08:49:37 GMT", kSunday},
      {"Sun Nov  6 08:49:37 1994", kSunday},
      {"Thu, 29 Feb 2024 00:00:00 GMT", 1709164800.0},
      {"Wed, 29 Feb 2023 00:00:00 GMT", std::nullopt},  // not a leap year
      {"Sun, 06 Nov 1994 08:49:37 UTC", std::nullopt},
      {"Sun, 6 Nov 1994 08:49:37 GMT", std::nullopt},
      {"Sun, 06 Nov 1994 24:00:00 GMT", std::nullopt},
      {"0", std::nullopt},
      {"", std::nullopt},
  };
  for (const Row& row : rows) EXPECT_EQ(parseHttpDate(row.text), row.expected) << row.text;
}

TEST(HttpFreshnessTest, LifetimeAgeAndStorability) {
  struct Row {
    const char* name;
    HttpHeaders headers;
    int status;
    double lifetime;  // from a reply received at kSunday
    bool storable;
  };
  const Row rows[] = {
      {"max-age wins over Expires",
       {{"Cache-Control", "public, max-age=600"}, {"Expires", "Sun, 06 Nov 1994 08:50:37 GMT"}},
       200,
       600,
       true},
      {"Expires minus Date",
       {{"Date", "Sun, 06 Nov 1994 08:49:37 GMT"}, {"Expires", "Sun, 06 Nov 1994 08:59:37 GMT"}},
       200,
       600,
       true},
      {"invalid Expires is stale", {{"Expires", "0"}}, 200, 0, true},
      {"tenth since Last-Modified",
       {{"Date", "Sun, 06 Nov 1994 08:49:37 GMT"}, {"Last-Modified", "Sun, 06 Nov 1994 08:32:57 GMT"}},
       200,
       100,
       true},
      {"no-cache revalidates", {{"Cache-Control", "no-cache, max-age=600"}}, 200, 0, true},
      {"no-store is never kept", {{"Cache-Control", "max-age=600, no-store"}}, 200, 600, false},
      {"bad max-age is stale", {{"Cache-Control", "max-age=soon"}}, 200, 0, true},
      {"server errors are not kept", {{"Cache-Control", "max-age=600"}}, 503, 600, false},
      {"not found is kept", {{"Cache-Control", "max-age=600"}}, 404, 600, true},
  };
  HttpRequest get;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const HttpResponse response{.status = row.status, .headers = row.headers};
    EXPECT_EQ(freshnessLifetime(response, kSunday), row.lifetime);
    EXPECT_EQ(isStorable(get, response), row.storable);
  }
  HttpRequest post;
  post.method = "POST";
  EXPECT_FALSE(isStorable(post, HttpResponse{.status = 200}));
}

TEST(HttpFreshnessTest, AgeCountsTransitAndTheAgeHeader) {
  const HttpResponse late{.status = 200,
                          .headers = {{"Date", "Sun, 06 Nov 1994 08:49:27 GMT"}, {"Cache-Control", "max-age=30"}}};
  EXPECT_EQ(currentAge(late, kSunday, kSunday + 5), 15.0);
  EXPECT_TRUE(isFresh(late, kSunday, kSunday + 19));
  EXPECT_FALSE(isFresh(late, kSunday, kSunday + 20));  // exactly as old as its lifetime: stale
  const HttpResponse aged{.status = 200, .headers = {{"Age", "25"}, {"Cache-Control", "max-age=30"}}};
  EXPECT_EQ(currentAge(aged, kSunday, kSunday + 4), 29.0);
}

TEST(HttpFreshnessTest, NotModifiedRefreshesHeadersButKeepsFraming) {
  const HttpResponse stored{.status = 200,
                            .headers = {{"ETag", "\"a\""}, {"Cache-Control", "max-age=1"}, {"Content-Length", "3"}},
                            .body = "abc"};
  const HttpResponse notModified{.status = 304, .headers = {{"cache-control", "max-age=60"}, {"Content-Length", "0"}}};
  const HttpResponse result = refreshed(stored, notModified);
  EXPECT_EQ(result.status, 200);
  EXPECT_EQ(result.body, "abc");
  EXPECT_EQ(result.header("Cache-Control"), "max-age=60");
  EXPECT_EQ(result.header("Content-Length"), "3");
  EXPECT_EQ(validatorsOf(stored), (HttpHeaders{{"If-None-Match", "\"a\""}}));
}

}  // namespace
}  // namespace ombrine
