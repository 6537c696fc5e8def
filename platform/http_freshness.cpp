#include "platform/http_freshness.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <ctime>
#include <string>

namespace ombrine {

namespace {

std::string_view trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

std::optional<long> digits(std::string_view text) {
  if (text.empty() || text.size() > 12) return std::nullopt;
  long value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < 0) return std::nullopt;
  return value;
}

std::optional<int> monthIndex(std::string_view name) {
  static constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  for (std::size_t i = 0; i < kMonths.size(); ++i) {
    if (equalsIgnoringCase(kMonths[i], name)) return static_cast<int>(i);
  }
  return std::nullopt;
}

// "HH:MM:SS" as seconds of the day.
std::optional<long> clockTime(std::string_view text) {
  if (text.size() != 8 || text[2] != ':' || text[5] != ':') return std::nullopt;
  const auto h = digits(text.substr(0, 2)), m = digits(text.substr(3, 2)), s = digits(text.substr(6, 2));
  if (!h || !m || !s || *h > 23 || *m > 59 || *s > 60) return std::nullopt;
  return *h * 3600 + *m * 60 + *s;
}

std::optional<double> assemble(long day, int month, long year, long secondsOfDay) {
  static constexpr std::array<int, 12> kDays = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (year < 1900 || year > 9999 || day < 1 || day > kDays[static_cast<std::size_t>(month)]) return std::nullopt;
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  if (month == 1 && day == 29 && !leap) return std::nullopt;
  std::tm parts{};
  parts.tm_year = static_cast<int>(year - 1900);
  parts.tm_mon = month;
  parts.tm_mday = static_cast<int>(day);
  return static_cast<double>(timegm(&parts)) + static_cast<double>(secondsOfDay);
}

std::vector<std::string_view> words(std::string_view text) {
  std::vector<std::string_view> out;
  std::size_t start = 0;
  while (start < text.size()) {
    while (start < text.size() && text[start] == ' ') ++start;
    std::size_t end = start;
    while (end < text.size() && text[end] != ' ') ++end;
    if (end > start) out.push_back(text.substr(start, end - start));
    start = end;
  }
  return out;
}

bool isFramingHeader(std::string_view name) {
  return equalsIgnoringCase(name, "Content-Length") || equalsIgnoringCase(name, "Content-Encoding") ||
         equalsIgnoringCase(name, "Transfer-Encoding") || equalsIgnoringCase(name, "Content-Range");
}

}  // namespace

CacheControl parseCacheControl(const HttpHeaders& headers) {
  CacheControl control;
  for (const auto& header : headers) {
    if (!equalsIgnoringCase(header.name, "Cache-Control")) continue;
    std::string_view rest = header.value;
    while (!rest.empty()) {
      const std::size_t comma = rest.find(',');
      std::string_view item = trim(rest.substr(0, comma));
      rest = comma == std::string_view::npos ? std::string_view{} : rest.substr(comma + 1);
      const std::size_t equals = item.find('=');
      const std::string_view name = trim(item.substr(0, equals));
      std::string_view value = equals == std::string_view::npos ? std::string_view{} : trim(item.substr(equals + 1));
      if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);
      if (equalsIgnoringCase(name, "no-store")) {
        control.noStore = true;
      } else if (equalsIgnoringCase(name, "no-cache")) {
        control.noCache = true;
      } else if (equalsIgnoringCase(name, "max-age")) {
        const auto seconds = digits(value);
        control.maxAge = seconds ? static_cast<double>(*seconds) : 0.0;
      }
    }
  }
  return control;
}

std::optional<double> parseHttpDate(std::string_view text) {
  const auto parts = words(trim(text));
  // IMF-fixdate: "Sun, 06 Nov 1994 08:49:37 GMT".
  if (parts.size() == 6 && parts[0].size() == 4 && parts[0].back() == ',' && parts[5] == "GMT") {
    const auto day = digits(parts[1]);
    const auto month = monthIndex(parts[2]);
    const auto year = digits(parts[3]);
    const auto time = clockTime(parts[4]);
    if (parts[1].size() != 2 || parts[3].size() != 4 || !day || !month || !year || !time) return std::nullopt;
    return assemble(*day, *month, *year, *time);
  }
  // RFC 850: "Sunday, 06-Nov-94 08:49:37 GMT" (two-digit years within 50 years of 2000).
  if (parts.size() == 4 && parts[0].size() > 4 && parts[0].back() == ',' && parts[3] == "GMT" && parts[1].size() == 9 &&
      parts[1][2] == '-' && parts[1][6] == '-') {
    const auto day = digits(parts[1].substr(0, 2));
    const auto month = monthIndex(parts[1].substr(3, 3));
    const auto year = digits(parts[1].substr(7, 2));
    const auto time = clockTime(parts[2]);
    if (!day || !month || !year || !time) return std::nullopt;
    return assemble(*day, *month, *year < 50 ? 2000 + *year : 1900 + *year, *time);
  }
  // asctime: "Sun Nov  6 08:49:37 1994".
  if (parts.size() == 5 && parts[0].size() == 3) {
    const auto month = monthIndex(parts[1]);
    const auto day = digits(parts[2]);
    const auto time = clockTime(parts[3]);
    const auto year = digits(parts[4]);
    if (parts[2].size() > 2 || parts[4].size() != 4 || !month || !day || !time || !year) return std::nullopt;
    return assemble(*day, *month, *year, *time);
  }
  return std::nullopt;
}

bool isStorable(const HttpRequest& request, const HttpResponse& response) {
  static constexpr std::array<int, 9> kCacheableByDefault = {200, 203, 204, 300, 301, 308, 404, 410, 501};
  if (request.method != "GET") return false;
  if (std::find(kCacheableByDefault.begin(), kCacheableByDefault.end(), response.status) == kCacheableByDefault.end()) {
    return false;
  }
  return !parseCacheControl(request.headers).noStore && !parseCacheControl(response.headers).noStore;
}

double freshnessLifetime(const HttpResponse& response, double responseTime) {
  const CacheControl control = parseCacheControl(response.headers);
  if (control.noCache) return 0.0;
  if (control.maxAge) return *control.maxAge;
  const auto dateHeader = response.header("Date");
  const double date = dateHeader ? parseHttpDate(*dateHeader).value_or(responseTime) : responseTime;
  if (const auto expires = response.header("Expires")) {
    // An Expires that does not parse means "already expired".
    const auto at = parseHttpDate(*expires);
    return at ? std::max(0.0, *at - date) : 0.0;
  }
  if (const auto modified = response.header("Last-Modified")) {
    if (const auto at = parseHttpDate(*modified); at && *at < date) return (date - *at) / 10.0;
  }
  return 0.0;
}

double currentAge(const HttpResponse& response, double responseTime, double now) {
  double received = 0.0;
  if (const auto date = response.header("Date")) {
    if (const auto at = parseHttpDate(*date)) received = std::max(0.0, responseTime - *at);
  }
  if (const auto age = response.header("Age")) {
    if (const auto seconds = digits(trim(*age))) received = std::max(received, static_cast<double>(*seconds));
  }
  return received + std::max(0.0, now - responseTime);
}

bool isFresh(const HttpResponse& response, double responseTime, double now) {
  return freshnessLifetime(response, responseTime) > currentAge(response, responseTime, now);
}

HttpHeaders validatorsOf(const HttpResponse& response) {
  HttpHeaders headers;
  if (auto tag = response.header("ETag")) headers.push_back({"If-None-Match", std::move(*tag)});
  if (auto modified = response.header("Last-Modified")) headers.push_back({"If-Modified-Since", std::move(*modified)});
  return headers;
}

HttpResponse refreshed(const HttpResponse& stored, const HttpResponse& notModified) {
  HttpResponse result = stored;
  for (const auto& header : notModified.headers) {
    if (isFramingHeader(header.name)) continue;
    std::erase_if(result.headers, [&](const HttpHeader& old) { return equalsIgnoringCase(old.name, header.name); });
  }
  for (const auto& header : notModified.headers) {
    if (!isFramingHeader(header.name)) result.headers.push_back(header);
  }
  return result;
}

}  // namespace ombrine
