#include "notifications/precipitation_wording.hpp"

#include <unicode/measfmt.h>
#include <unicode/measunit.h>
#include <unicode/measure.h>
#include <unicode/reldatefmt.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <utility>

namespace ombrine {

namespace {

struct Translation {
  std::string_view english;
  std::string_view german;
};

constexpr Translation kGerman[] = {
    {"Precipitation Alert", "Niederschlagswarnung"},
    {"{} Expected", "{} erwartet"},
    {"Rain", "Regen"},
    {"Snow", "Schnee"},
    {"Hail", "Hagel"},
    {"Sleet", "Schneeregen"},
    {"Mixed Precipitation", "Gemischter Niederschlag"},
    {"Precipitation", "Niederschlag"},
    {"Precipitation is expected {} and should end {} later.",
     "Niederschlag wird {} erwartet und sollte {} später enden."},
    {"Precipitation is expected now and should end in {}.", "Niederschlag wird jetzt erwartet und sollte in {} enden."},
    {"Precipitation is expected {} and likely won't end for a while.",
     "Niederschlag wird {} erwartet und hält wahrscheinlich länger an."},
    {"Precipitation is expected now and likely won't end for a while.",
     "Niederschlag wird jetzt erwartet und hält wahrscheinlich länger an."},
    {"Precipitation is expected {} and will likely end within the next couple of hours.",
     "Niederschlag wird {} erwartet und endet wahrscheinlich in den nächsten Stunden."},
    {"Precipitation is expected now and will likely end within the next couple of hours.",
     "Niederschlag wird jetzt erwartet und endet wahrscheinlich in den nächsten Stunden."},
    {"Precipitation is expected {} and will likely end within the hour.",
     "Niederschlag wird {} erwartet und endet wahrscheinlich innerhalb der nächsten Stunde."},
    {"Precipitation is expected now and will likely end within the hour.",
     "Niederschlag wird jetzt erwartet und endet wahrscheinlich innerhalb der nächsten Stunde."},
    {"Precipitation should end {}.", "Niederschlag sollte {} enden."},
};

std::string utf8(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

}  // namespace

PrecipitationWording::PrecipitationWording(icu::Locale locale)
    : locale_(std::move(locale)), german_(std::strcmp(locale_.getLanguage(), "de") == 0) {}

std::string PrecipitationWording::text(std::string_view english) const {
  if (german_) {
    for (const auto& translation : kGerman) {
      if (translation.english == english) return std::string(translation.german);
    }
  }
  return std::string(english);
}

std::string PrecipitationWording::format(std::string_view english, std::string_view first,
                                         std::string_view second) const {
  std::string out = text(english);
  for (std::string_view phrase : {first, second}) {
    const auto mark = out.find("{}");
    if (mark == std::string::npos) break;
    out.replace(mark, 2, phrase);
  }
  return out;
}

std::string PrecipitationWording::kindName(std::optional<PrecipitationKind> kind) const {
  switch (kind.value_or(PrecipitationKind::rain)) {
    case PrecipitationKind::rain: return text("Rain");
    case PrecipitationKind::snow: return text("Snow");
    case PrecipitationKind::hail: return text("Hail");
    case PrecipitationKind::sleet: return text("Sleet");
    case PrecipitationKind::mixed: return text("Mixed Precipitation");
    case PrecipitationKind::none: return text("Precipitation");
  }
  return text("Rain");
}

std::string PrecipitationWording::relativeTime(double seconds) const {
  struct Unit {
    double seconds;
    URelativeDateTimeUnit unit;
  };
  static constexpr Unit kUnits[] = {{86400.0, UDAT_REL_UNIT_DAY},
                                    {3600.0, UDAT_REL_UNIT_HOUR},
                                    {60.0, UDAT_REL_UNIT_MINUTE},
                                    {1.0, UDAT_REL_UNIT_SECOND}};
  Unit chosen = kUnits[3];
  for (const auto& unit : kUnits) {
    if (std::trunc(seconds / unit.seconds) != 0.0) {
      chosen = unit;
      break;
    }
  }
  UErrorCode status = U_ZERO_ERROR;
  icu::RelativeDateTimeFormatter formatter(locale_, nullptr, UDAT_STYLE_LONG, UDISPCTX_CAPITALIZATION_NONE, status);
  if (U_FAILURE(status)) return {};
  icu::UnicodeString out;
  formatter.formatNumeric(std::trunc(seconds / chosen.seconds), chosen.unit, out, status);
  return U_FAILURE(status) ? std::string() : utf8(out);
}

std::string PrecipitationWording::minutes(long minutes) const {
  UErrorCode status = U_ZERO_ERROR;
  icu::MeasureFormat formatter(locale_, UMEASFMT_WIDTH_WIDE, status);
  if (U_FAILURE(status)) return {};
  const icu::Measure measure(icu::Formattable(static_cast<int64_t>(minutes)), icu::MeasureUnit::createMinute(status),
                             status);
  if (U_FAILURE(status)) return {};
  icu::UnicodeString out;
  icu::FieldPosition position;
  formatter.formatMeasures(&measure, 1, out, position, status);
  return U_FAILURE(status) ? std::string() : utf8(out);
}

}  // namespace ombrine
