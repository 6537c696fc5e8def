#include "core/values/time_zone.hpp"

#include <unicode/simpletz.h>
#include <unicode/timezone.h>
#include <unicode/ucal.h>

#include <cstdio>
#include <cstdlib>

namespace ombrine {

namespace {

std::string toUtf8(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

}  // namespace

TimeZone::TimeZone() : identifier_("GMT"), zone_(icu::TimeZone::getGMT()->clone()) {}

TimeZone::TimeZone(std::string identifier, std::shared_ptr<const icu::TimeZone> zone)
    : identifier_(std::move(identifier)), zone_(std::move(zone)) {}

std::optional<TimeZone> TimeZone::named(std::string_view identifier) {
  if (identifier.empty()) return std::nullopt;
  icu::UnicodeString id =
      icu::UnicodeString::fromUTF8(icu::StringPiece(identifier.data(), static_cast<int32_t>(identifier.size())));
  std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createTimeZone(id));
  if (!zone) return std::nullopt;
  icu::UnicodeString resolved;
  zone->getID(resolved);
  if (resolved == icu::UnicodeString(UCAL_UNKNOWN_ZONE_ID)) return std::nullopt;
  return TimeZone(std::string(identifier), std::shared_ptr<const icu::TimeZone>(std::move(zone)));
}

std::optional<TimeZone> TimeZone::fixedOffset(int secondsFromGMT) {
  if (secondsFromGMT < -18 * 3600 || secondsFromGMT > 18 * 3600) return std::nullopt;
  std::string identifier = "GMT";
  if (secondsFromGMT != 0) {
    int magnitude = std::abs(secondsFromGMT);
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "%c%02d%02d", secondsFromGMT < 0 ? '-' : '+', magnitude / 3600,
                  magnitude % 3600 / 60);
    identifier += buffer;
  }
  auto zone = std::make_shared<icu::SimpleTimeZone>(secondsFromGMT * 1000, icu::UnicodeString::fromUTF8(identifier));
  return TimeZone(identifier, std::move(zone));
}

TimeZone TimeZone::current() {
  std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::detectHostTimeZone());
  if (!zone) return TimeZone();
  icu::UnicodeString id;
  zone->getID(id);
  std::string identifier = toUtf8(id);
  if (identifier.empty() || identifier == UCAL_UNKNOWN_ZONE_ID) return TimeZone();
  return TimeZone(identifier, std::shared_ptr<const icu::TimeZone>(std::move(zone)));
}

int TimeZone::secondsFromGMT(Date at) const {
  UErrorCode status = U_ZERO_ERROR;
  int32_t raw = 0;
  int32_t dst = 0;
  zone_->getOffset(at.unixSeconds() * 1000.0, false, raw, dst, status);
  if (U_FAILURE(status)) return 0;
  return (raw + dst) / 1000;
}

}  // namespace ombrine
