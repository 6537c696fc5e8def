#include "storms/storm.hpp"

#include <unicode/numfmt.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <memory>

#include "storms/text_pattern.hpp"

namespace ombrine {

namespace {

struct ClassCode {
  Storm::Classification::Kind kind;
  const char* code;
};

constexpr ClassCode kClassCodes[] = {
    {Storm::Classification::Kind::hurricane, "HU"},
    {Storm::Classification::Kind::tropicalStorm, "TS"},
    {Storm::Classification::Kind::tropicalDepression, "TD"},
    {Storm::Classification::Kind::subtropicalStorm, "SS"},
    {Storm::Classification::Kind::subtropicalDepression, "SD"},
    {Storm::Classification::Kind::extratropical, "EX"},
    {Storm::Classification::Kind::potentialTropicalCyclone, "PTC"},
};

constexpr std::int64_t kSuperTyphoonKnots = 130;

std::string formatInteger(long long value, const icu::Locale& locale) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::NumberFormat> format(icu::NumberFormat::createInstance(locale, status));
  if (U_FAILURE(status)) return std::to_string(value);
  icu::UnicodeString text;
  format->format(static_cast<int64_t>(value), text);
  std::string out;
  text.toUTF8String(out);
  return out;
}

// The string table. Only English ships so far; the comments are what a translator would read.
std::string localized(const char* english, const char* /*comment*/, const icu::Locale& /*locale*/) { return english; }

}  // namespace

const ActiveStormCoverageSet& nhcCoverage() {
  static const ActiveStormCoverageSet set{ActiveStormCoverage::nhcAtlantic, ActiveStormCoverage::nhcEastCentralPacific};
  return set;
}

const ActiveStormCoverageSet& jtwcCoverage() {
  static const ActiveStormCoverageSet set{ActiveStormCoverage::jtwcEastCentralPacific,
                                          ActiveStormCoverage::jtwcWestPacific, ActiveStormCoverage::jtwcIndianOcean,
                                          ActiveStormCoverage::jtwcSouthernHemisphere};
  return set;
}

const ActiveStormCoverageSet& wholeCoverage() {
  static const ActiveStormCoverageSet set = [] {
    ActiveStormCoverageSet all = nhcCoverage();
    all.insert(jtwcCoverage().begin(), jtwcCoverage().end());
    return all;
  }();
  return set;
}

ActiveStormCoverageSet intersection(const ActiveStormCoverageSet& a, const ActiveStormCoverageSet& b) {
  ActiveStormCoverageSet out;
  std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::inserter(out, out.end()));
  return out;
}

const char* coverageName(ActiveStormCoverage coverage) {
  switch (coverage) {
    case ActiveStormCoverage::nhcAtlantic: return "nhcAtlantic";
    case ActiveStormCoverage::nhcEastCentralPacific: return "nhcEastCentralPacific";
    case ActiveStormCoverage::jtwcEastCentralPacific: return "jtwcEastCentralPacific";
    case ActiveStormCoverage::jtwcWestPacific: return "jtwcWestPacific";
    case ActiveStormCoverage::jtwcIndianOcean: return "jtwcIndianOcean";
    case ActiveStormCoverage::jtwcSouthernHemisphere: return "jtwcSouthernHemisphere";
  }
  return "unknown";
}

Storm::Classification Storm::Classification::fromCode(std::string code) {
  for (const auto& entry : kClassCodes) {
    if (code == entry.code) return Classification{entry.kind, {}};
  }
  return Classification{Kind::other, std::move(code)};
}

std::string Storm::Classification::code() const {
  for (const auto& entry : kClassCodes) {
    if (kind == entry.kind) return entry.code;
  }
  return otherText;
}

StormBasin basinOf(std::string_view identifier) {
  const std::string prefix = upperCased(identifier).substr(0, 2);
  if (prefix == "AL") return StormBasin::atlantic;
  if (prefix == "EP") return StormBasin::eastPacific;
  if (prefix == "CP") return StormBasin::centralPacific;
  if (prefix == "WP") return StormBasin::westPacific;
  if (prefix == "SH" || prefix == "SI" || prefix == "SP") return StormBasin::southernHemisphere;
  if (prefix == "IO") return StormBasin::indianOcean;
  return StormBasin::otherBasin;
}

const char* basinName(StormBasin basin) {
  switch (basin) {
    case StormBasin::atlantic: return "atlantic";
    case StormBasin::eastPacific: return "eastPacific";
    case StormBasin::centralPacific: return "centralPacific";
    case StormBasin::westPacific: return "westPacific";
    case StormBasin::southernHemisphere: return "southernHemisphere";
    case StormBasin::indianOcean: return "indianOcean";
    case StormBasin::otherBasin: return "otherBasin";
  }
  return "otherBasin";
}

std::optional<int> categoryForKnots(int knots) {
  if (knots >= 137) return 5;
  if (knots >= 113) return 4;
  if (knots >= 96) return 3;
  if (knots >= 83) return 2;
  if (knots >= 64) return 1;
  return std::nullopt;
}

StormIntensityTag tagFromText(const std::optional<std::string>& text) {
  const std::string value = upperCased(trimmed(text.value_or("")));
  if (value.empty()) return StormIntensityTag::other("");
  if (value == "HU") return StormIntensityTag::hurricane();
  if (value.rfind("HU", 0) == 0) {
    const std::string rest = value.substr(2);
    if (auto number = parseInteger(rest)) return StormIntensityTag::hurricane(*number);
  }
  using Kind = StormIntensityTag::Kind;
  if (value == "TS") return StormIntensityTag::plain(Kind::tropicalStorm);
  if (value == "TD") return StormIntensityTag::plain(Kind::tropicalDepression);
  if (value == "SS") return StormIntensityTag::plain(Kind::subtropicalStorm);
  if (value == "SD") return StormIntensityTag::plain(Kind::subtropicalDepression);
  if (value == "EX") return StormIntensityTag::plain(Kind::extratropical);
  if (value == "PTC") return StormIntensityTag::plain(Kind::potentialTropicalCyclone);
  return StormIntensityTag::other(value);
}

StormBasin Storm::basin() const { return basinOf(id); }

StormIntensityTag Storm::intensityTag() const {
  using C = Classification::Kind;
  using K = StormIntensityTag::Kind;
  switch (classification.kind) {
    case C::hurricane: {
      std::optional<long long> category;
      if (intensity) {
        if (auto c = categoryForKnots(*intensity)) category = *c;
      }
      return StormIntensityTag::hurricane(category);
    }
    case C::tropicalStorm: return StormIntensityTag::plain(K::tropicalStorm);
    case C::tropicalDepression: return StormIntensityTag::plain(K::tropicalDepression);
    case C::subtropicalStorm: return StormIntensityTag::plain(K::subtropicalStorm);
    case C::subtropicalDepression: return StormIntensityTag::plain(K::subtropicalDepression);
    case C::extratropical: return StormIntensityTag::plain(K::extratropical);
    case C::potentialTropicalCyclone: return StormIntensityTag::plain(K::potentialTropicalCyclone);
    case C::other: return tagFromText(classification.otherText);
  }
  return StormIntensityTag::other("");
}

std::string Storm::title(const icu::Locale& locale) const {
  if (classification.kind != Classification::Kind::hurricane || !intensity) return name;
  const auto category = categoryForKnots(*intensity);
  if (!category) return name;
  if (*intensity >= kSuperTyphoonKnots && basin() == StormBasin::westPacific) return name;
  // "Storm title. The first variable is the storm name and the second is its localized
  // Saffir-Simpson category number."
  return name + " (Cat " + formatInteger(*category, locale) + ")";
}

Storm Storm::mergingAlternateIdentifiers(const Storm& other) const {
  Storm merged = *this;
  merged.alternateIDs.insert(other.id);
  merged.alternateIDs.insert(other.alternateIDs.begin(), other.alternateIDs.end());
  return merged;
}

std::string regionalCycloneLabel(bool isSuperTyphoon, const icu::Locale& locale, StormBasin basin) {
  switch (basin) {
    case StormBasin::southernHemisphere:
    case StormBasin::indianOcean:
      return localized("Cyclone", "Cyclone intensity label (Southern Hemisphere/Indian Ocean)", locale);
    case StormBasin::westPacific:
      return isSuperTyphoon ? localized("Super Typhoon", "Super Typhoon intensity label", locale)
                            : localized("Typhoon", "Typhoon intensity label", locale);
    default: return localized("Hurricane", "Hurricane intensity label", locale);
  }
}

std::optional<std::string> intensityLabel(const StormIntensityTag& tag, StormBasin basin, std::optional<int> knots,
                                          const icu::Locale& locale) {
  using K = StormIntensityTag::Kind;
  constexpr const char* kClassComment = "Storm intensity classification.";
  switch (tag.kind) {
    case K::hurricane: {
      const bool isSuper = knots && *knots >= kSuperTyphoonKnots;
      const std::string regional = regionalCycloneLabel(isSuper, locale, basin);
      if (!tag.category || (basin == StormBasin::westPacific && isSuper)) return regional;
      // "Storm intensity label. The first variable is the localized storm type and the second
      // is its localized category number."
      return regional + " (Category " + formatInteger(*tag.category, locale) + ")";
    }
    case K::other:
      if (tag.text.empty() || tag.text == "UNK") return std::nullopt;
      return tag.text;
    case K::tropicalStorm: return localized("Tropical Storm", kClassComment, locale);
    case K::tropicalDepression: return localized("Tropical Depression", kClassComment, locale);
    case K::subtropicalStorm: return localized("Subtropical Storm", kClassComment, locale);
    case K::subtropicalDepression: return localized("Subtropical Depression", kClassComment, locale);
    case K::extratropical: return localized("Extratropical", kClassComment, locale);
    case K::potentialTropicalCyclone: return localized("Potential Tropical Cyclone", kClassComment, locale);
  }
  return std::nullopt;
}

}  // namespace ombrine
