// Foreca warnings → OneCallWeather alerts (declared in foreca_conversion.hpp).

#include <algorithm>

#include "providers/foreca/foreca_conversion.hpp"

namespace ombrine {

namespace {

constexpr std::string_view kDefaultLanguage = "en";

WeatherSeverity severityOf(ForecaWarning::Significance significance) {
  switch (significance) {
    case ForecaWarning::Significance::green: return WeatherSeverity::unknown;
    case ForecaWarning::Significance::yellow: return WeatherSeverity::minor;
    case ForecaWarning::Significance::orange: return WeatherSeverity::moderate;
    case ForecaWarning::Significance::red: return WeatherSeverity::severe;
    case ForecaWarning::Significance::purple: return WeatherSeverity::extreme;
  }
  return WeatherSeverity::unknown;
}

const std::string* nonEmpty(const std::optional<std::string>& text) {
  return text && !text->empty() ? &*text : nullptr;
}

OneCallWeather::Alert convertWarning(const ForecaWarning& warning, std::string_view languageCode) {
  const ForecaWarning::Description* chosen = chooseForecaDescription(warning, languageCode);
  const std::string* event = chosen ? nonEmpty(chosen->title) : nullptr;
  if (!event) event = nonEmpty(warning.title);
  if (!event) event = &warning.name;
  std::string_view locale = languageCode.empty() ? kDefaultLanguage : languageCode;

  OneCallWeather::Alert alert;
  alert.senderName = warning.attribution;
  alert.event = capitalizedFirstLetter(*event, locale);
  alert.start = warning.validFrom;
  alert.end = warning.validUntil;
  alert.description = chosen ? chosen->text : std::nullopt;
  alert.url = warning.attributionUrl;
  alert.severity = severityOf(warning.significance);
  alert.tags = {capitalizedFirstLetter(warning.type, locale)};
  return alert;
}

}  // namespace

const ForecaWarning::Description* chooseForecaDescription(const ForecaWarning& warning, std::string_view languageCode) {
  std::string_view language = languageCode.empty() ? kDefaultLanguage : languageCode;
  auto inLanguage = [&warning](std::string_view lang) -> const ForecaWarning::Description* {
    for (const auto& description : warning.description) {
      if (description.lang == lang) return &description;
    }
    return nullptr;
  };
  if (const auto* own = inLanguage(language)) return own;
  if (const auto* english = inLanguage(kDefaultLanguage)) return english;
  return warning.description.empty() ? nullptr : &warning.description.front();
}

std::vector<OneCallWeather::Alert> convertForecaWarnings(std::span<const ForecaWarning> warnings, Date now,
                                                         std::string_view languageCode) {
  std::vector<const ForecaWarning*> current;
  for (const auto& warning : warnings) {
    if (warning.validUntil > now) current.push_back(&warning);
  }
  std::stable_sort(current.begin(), current.end(), [](const ForecaWarning* a, const ForecaWarning* b) {
    if (a->significance != b->significance) return a->significance > b->significance;
    return a->validFrom > b->validFrom;
  });
  std::vector<OneCallWeather::Alert> alerts;
  alerts.reserve(current.size());
  for (const ForecaWarning* warning : current) alerts.push_back(convertWarning(*warning, languageCode));
  return alerts;
}

}  // namespace ombrine
