#pragma once
// The human-readable forecast screen of `ombrine forecast`: place, provider and attribution,
// current conditions, the next hours, the days and the warnings, in the reader's locale, units
// and words (see message_catalog.hpp), fitting an 80-column terminal. Colour only when asked
// (the caller decides from the terminal and NO_COLOR).

#include <unicode/locid.h>

#include <string>

#include "app/message_catalog.hpp"
#include "core/record/one_call_weather.hpp"
#include "core/values/date.hpp"

namespace ombrine::app {

struct ForecastScreen {
  std::string placeName;
  std::string regionCode;
  std::string providerName;
  const OneCallWeather* weather = nullptr;
  Date now;
  icu::Locale locale;
  bool colour = false;
  int hours = 12;
  // The screen's own words in the reader's language; nothing: English.
  const MessageCatalog* messages = nullptr;
};

// The whole screen as text, lines ending in '\n'. Pure: the same input gives the same text.
std::string renderForecast(const ForecastScreen& screen);

}  // namespace ombrine::app
