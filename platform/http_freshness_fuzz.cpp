// Fuzz target for the HTTP caching rules and "Retry-After": any header text gives a date or
// nothing, a set of directives, an age and lifetime that are never negative, and a wait that is
// finite and never negative.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/http_freshness.hpp"
#include "platform/retry_after.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::size_t newline = text.find('\n');
  const std::string first(text.substr(0, newline));
  const std::string second(newline == std::string_view::npos ? std::string_view{} : text.substr(newline + 1));
  (void)ombrine::parseHttpDate(first);
  ombrine::HttpResponse response;
  response.status = 200;
  response.headers = {{"Date", first},           {"Expires", first}, {"Last-Modified", first},
                      {"Cache-Control", second}, {"Age", second},    {"ETag", second}};
  const double lifetime = ombrine::freshnessLifetime(response, 1.0e9);
  const double age = ombrine::currentAge(response, 1.0e9, 1.0e9 + 5);
  if (!(lifetime >= 0.0) || !(age >= 0.0)) std::abort();
  (void)ombrine::refreshed(response, response);
  const auto now = std::chrono::system_clock::time_point(std::chrono::seconds(1'000'000'000));
  for (const std::string& value : {first, second}) {
    const auto wait = ombrine::retryAfterDelay(value, now);
    if (wait && !(wait->count() >= 0.0 && wait->count() < 1e300)) std::abort();
  }
  return 0;
}
