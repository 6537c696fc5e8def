#include "storms/kml_reader.hpp"

#include <expat.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "core/values/iso8601.hpp"
#include "platform/errors.hpp"
#include "storms/storm_time.hpp"
#include "storms/text_pattern.hpp"

namespace ombrine {

namespace {

enum class GeometryKind { none, polygon, linestring, gxTrack, point };

constexpr std::size_t kMaxPlacemarkText = 4u << 10;

// Longitude reduced modulo 360 into [-180, 180]: a longitude already in range is kept as written
// (180 stays 180), so only a track that runs past the date line is moved.
double wrapLongitude(double longitude) {
  if (longitude >= -180.0 && longitude <= 180.0) return longitude;  // no rounding noise for the usual case
  double reduced = std::fmod(longitude, 360.0);
  if (reduced > 180.0) reduced -= 360.0;
  if (reduced < -180.0) reduced += 360.0;
  return reduced;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::vector<std::string_view> splitBlanks(std::string_view text) {
  std::vector<std::string_view> parts;
  std::size_t i = 0;
  while (i < text.size()) {
    while (i < text.size() && isBlank(text[i])) ++i;
    const std::size_t start = i;
    while (i < text.size() && !isBlank(text[i])) ++i;
    if (i > start) parts.push_back(text.substr(start, i - start));
  }
  return parts;
}

std::optional<KMLCoordinate> coordinateOf(std::optional<double> longitude, std::optional<double> latitude) {
  if (!longitude || !latitude) return std::nullopt;
  return KMLCoordinate{.latitude = *latitude, .longitude = wrapLongitude(*longitude)};
}

// "lon,lat[,alt] lon,lat[,alt] ...": tuples without two readable numbers are skipped.
std::vector<KMLCoordinate> parseCoordinates(std::string_view text) {
  std::vector<KMLCoordinate> coordinates;
  for (std::string_view tuple : splitBlanks(text)) {
    const std::size_t comma = tuple.find(',');
    if (comma == std::string_view::npos) continue;
    std::string_view rest = tuple.substr(comma + 1);
    rest = rest.substr(0, rest.find(','));
    if (auto c = coordinateOf(parseNumber(tuple.substr(0, comma)), parseNumber(rest))) coordinates.push_back(*c);
  }
  return coordinates;
}

// "lon lat [alt]" of one gx:coord.
std::optional<KMLCoordinate> parseTrackCoordinate(std::string_view text) {
  const auto parts = splitBlanks(text);
  if (parts.size() < 2) return std::nullopt;
  return coordinateOf(parseNumber(parts[0]), parseNumber(parts[1]));
}

std::optional<int> integerOf(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  const auto value = parseInteger(*text);
  if (!value || *value > 100000 || *value < -100000) return std::nullopt;
  return static_cast<int>(*value);
}

const std::string* dataValue(const std::map<std::string, std::string>& data,
                             std::initializer_list<std::string_view> keys) {
  for (const auto key : keys) {
    for (const auto& [name, value] : data) {
      if (lowerCased(name) == lowerCased(key) && !trimmed(value).empty()) return &value;
    }
  }
  return nullptr;
}

std::optional<int> monthOfAbbreviation(std::string_view text) {
  static constexpr std::string_view kMonths[] = {"JAN", "FEB", "MAR", "APR", "MAY", "JUN",
                                                 "JUL", "AUG", "SEP", "OCT", "NOV", "DEC"};
  const std::string upper = upperCased(text);
  for (int m = 0; m < 12; ++m) {
    if (upper == kMonths[m]) return m + 1;
  }
  return std::nullopt;
}

std::optional<Date> pointTime(std::string_view text, std::optional<int> fallbackYear, Date reference) {
  static const TextPattern validAt(R"(Valid at:\s*([^<]+))");
  if (auto valid = validAt.firstGroup(text)) {
    const std::string value = trimmed(*valid);
    for (const char* pattern : {"h:mm a zzz MMMM dd, yyyy", "h:mm a MMMM dd, yyyy", "h:mm a MMMM d, yyyy",
                                "hh:mm a MMMM dd, yyyy", "hh:mm a MMMM d, yyyy"}) {
      if (auto date = parseDateWithPattern(value, pattern)) return date;
    }
  }
  const int year = fallbackYear.value_or(utcYear(reference));
  static const TextPattern utcMonthDay(R"((\d{4})\s*UTC\s*([A-Z]{3})\s+(\d{1,2}))");
  static const TextPattern shortUtcMonthDay(R"((\d{3,4})\s+UTC\s+([A-Z]{3})\s+(\d{1,2}))");
  for (const TextPattern* pattern : {&utcMonthDay, &shortUtcMonthDay}) {
    if (auto m = pattern->firstMatch(text)) {
      const auto hhmm = parseInteger(*(*m)[1]);
      const auto month = monthOfAbbreviation(*(*m)[2]);
      const auto day = parseInteger(*(*m)[3]);
      if (hhmm && month && day) {
        if (auto date = utcDate(year, *month, static_cast<int>(*day), static_cast<int>(*hhmm / 100),
                                static_cast<int>(*hhmm % 100))) {
          return date;
        }
      }
    }
  }
  // \d also matches digits of other scripts, which carry no ASCII value: such a match reads as
  // nothing.
  static const TextPattern fullHour(R"((20\d{2})(\d{2})(\d{2})(\d{2})Z)");
  if (auto m = fullHour.firstMatch(text)) {
    const auto y = integerOf((*m)[1]), mo = integerOf((*m)[2]), d = integerOf((*m)[3]), h = integerOf((*m)[4]);
    if (y && mo && d && h) {
      if (auto date = utcDate(*y, *mo, *d, *h, 0)) return date;
    }
  }
  static const TextPattern eightDigits(R"((\d{2})(\d{2})(\d{2})(\d{2})Z)");
  if (auto m = eightDigits.firstMatch(text)) {
    // Month, day, hour and minute in the document's year.
    const auto mo = integerOf((*m)[1]), d = integerOf((*m)[2]), h = integerOf((*m)[3]), mi = integerOf((*m)[4]);
    if (mo && d && h && mi) {
      if (auto date = utcDate(year, *mo, *d, *h, *mi)) return date;
    }
  }
  static const TextPattern dayHour(R"((\d{2})/(\d{2})Z)");
  if (auto m = dayHour.firstMatch(text)) {
    if (auto date = parseTokenDDHHMM(*(*m)[1] + *(*m)[2] + "00", reference)) return date;
  }
  static const TextPattern token(R"(\b(\d{6})Z\b)");
  if (auto t = token.firstGroup(text)) {
    if (auto date = parseTokenDDHHMM(*t, reference)) return date;
  }
  const std::string whole = trimmed(text);
  for (const char* pattern :
       {"dd MMM yyyy HHmm'Z'", "dd MMM yyyy HHmm 'UTC'", "yyyy-MM-dd HH:mm:ss", "yyyy-MM-dd HH:mm", "yyyyMMddHHmm"}) {
    if (auto date = parseDateWithPattern(whole, pattern)) return date;
  }
  return std::nullopt;
}

double circleRadius(const std::optional<int>& windKt) {
  // Wider markers for stronger systems, between 20 and 60 km.
  const double wind = std::clamp(windKt.value_or(0), 0, 160);
  return 20'000.0 + wind * 250.0;
}

// The parser's state while it reads one document; used by one parse only.
struct KMLDelegate {
  XML_Parser parser = nullptr;
  const std::function<bool()>* cancelled = nullptr;
  Date reference;
  std::optional<int> fallbackYear;
  std::string failure;
  bool wasCancelled = false;

  std::vector<KMLOverlayFeature> features;
  std::vector<std::string> currentElementPath;
  std::string currentCoordsText;
  GeometryKind currentGeometry = GeometryKind::none;
  std::string gxTrackCoordsText;
  std::vector<KMLCoordinate> gxTrackCoordinates;
  bool inPlacemark = false;
  std::string placemarkStyleUrlBuffer;
  std::string placemarkStyleUrl;
  std::vector<KMLCoordinate> pendingPlacemarkPoints;
  std::vector<std::size_t> currentPlacemarkFeatureIndices;
  std::string currentWhenBuffer;
  std::optional<Date> currentWhenDate;
  std::string currentNameBuffer;
  std::string currentDescriptionBuffer;
  std::string currentDataName;
  std::string currentDataValue;
  std::map<std::string, std::string> currentData;
  std::size_t attributeTextRead = 0;

  bool stop(std::string why) {
    if (failure.empty()) failure = std::move(why);
    XML_StopParser(parser, XML_FALSE);
    return false;
  }

  // Every callback first looks at the task's cancellation.
  bool proceed() {
    if (!failure.empty() || wasCancelled) return false;
    if (cancelled && *cancelled && (*cancelled)()) {
      wasCancelled = true;
      XML_StopParser(parser, XML_FALSE);
      return false;
    }
    return true;
  }

  bool inside(std::string_view element) const {
    return std::find(currentElementPath.begin(), currentElementPath.end(), element) != currentElementPath.end();
  }

  void addFeature(KMLOverlayFeature feature) {
    if (inPlacemark) currentPlacemarkFeatureIndices.push_back(features.size());
    features.push_back(std::move(feature));
  }

  void start(std::string_view name, const XML_Char** attributes) {
    if (!proceed()) return;
    if (currentElementPath.size() >= kMaxKMLDepth) {
      stop("elements nested deeper than " + std::to_string(kMaxKMLDepth));
      return;
    }
    currentElementPath.emplace_back(name);
    if (name == "Placemark") {
      inPlacemark = true;
      placemarkStyleUrlBuffer.clear();
      placemarkStyleUrl.clear();
      pendingPlacemarkPoints.clear();
      currentPlacemarkFeatureIndices.clear();
      currentWhenBuffer.clear();
      currentWhenDate.reset();
      currentNameBuffer.clear();
      currentDescriptionBuffer.clear();
      currentData.clear();
    } else if (name == "Polygon") {
      currentGeometry = GeometryKind::polygon;
    } else if (name == "LineString") {
      currentGeometry = GeometryKind::linestring;
    } else if (name == "Point") {
      currentGeometry = GeometryKind::point;
    } else if (name == "coordinates") {
      currentCoordsText.clear();
    } else if (name == "gx:Track" || name == "Track") {
      currentGeometry = GeometryKind::gxTrack;
      gxTrackCoordsText.clear();
      gxTrackCoordinates.clear();
    } else if (name == "gx:coord" || name == "coord") {
      gxTrackCoordsText.clear();
    } else if (inPlacemark && name == "styleUrl") {
      placemarkStyleUrlBuffer.clear();
    } else if (inPlacemark && name == "when") {
      currentWhenBuffer.clear();
    } else if (inPlacemark && name == "name" && currentElementPath.size() >= 2 &&
               currentElementPath[currentElementPath.size() - 2] == "Placemark") {
      currentNameBuffer.clear();
    } else if (inPlacemark && name == "description") {
      currentDescriptionBuffer.clear();
    }
    if (name == "Data" || name == "SimpleData") {
      currentDataName.clear();
      for (const XML_Char** a = attributes; a && *a; a += 2) {
        if (std::string_view(a[0]) == "name") currentDataName = a[1];
      }
    }
    if (name == "value" || name == "SimpleData") currentDataValue.clear();
  }

  void characters(std::string_view text) {
    if (!proceed() || currentElementPath.empty()) return;
    const std::string& element = currentElementPath.back();
    std::string* target = nullptr;
    if (element == "coordinates") {
      target = &currentCoordsText;
    } else if (element == "gx:coord" || element == "coord") {
      target = &gxTrackCoordsText;
    } else if (element == "styleUrl") {
      target = &placemarkStyleUrlBuffer;
    } else if (element == "when") {
      target = &currentWhenBuffer;
    } else if (element == "name") {
      if (currentElementPath.size() >= 2 && currentElementPath[currentElementPath.size() - 2] == "Placemark") {
        target = &currentNameBuffer;
      }
    } else if (element == "description") {
      target = &currentDescriptionBuffer;
    } else if (element == "value" || element == "SimpleData") {
      target = &currentDataValue;
    }
    if (target) target->append(text);
  }

  void end(std::string_view name) {
    if (!proceed()) return;
    if (name == "coordinates") {
      auto coordinates = parseCoordinates(currentCoordsText);
      switch (currentGeometry) {
        case GeometryKind::polygon:
          if (!inside("innerBoundaryIs") && !coordinates.empty()) addFeature(KMLPolygon{std::move(coordinates)});
          break;
        case GeometryKind::linestring:
          if (!coordinates.empty()) {
            std::optional<std::string> title;
            if (inPlacemark && !trimmed(currentNameBuffer).empty()) title = trimmed(currentNameBuffer);
            addFeature(KMLPolyline{std::move(coordinates), std::move(title)});
          }
          break;
        case GeometryKind::point:
          if (inPlacemark && !coordinates.empty()) pendingPlacemarkPoints.push_back(coordinates.front());
          break;
        default: break;
      }
    } else if (name == "gx:coord" || name == "coord") {
      if (auto c = parseTrackCoordinate(gxTrackCoordsText)) gxTrackCoordinates.push_back(*c);
      gxTrackCoordsText.clear();
    } else if (name == "gx:Track" || name == "Track") {
      if (!gxTrackCoordinates.empty()) addFeature(KMLPolyline{std::move(gxTrackCoordinates), std::nullopt});
      gxTrackCoordinates.clear();
      currentGeometry = GeometryKind::none;
    } else if (name == "Polygon" || name == "LineString" || name == "Point") {
      currentGeometry = GeometryKind::none;
    } else if (name == "styleUrl" && inPlacemark) {
      placemarkStyleUrl = trimmed(placemarkStyleUrlBuffer);
    } else if (name == "when" && inPlacemark) {
      const std::string when = trimmed(currentWhenBuffer);
      currentWhenDate = parseInternetDateTime(when, true);
      if (!currentWhenDate) currentWhenDate = parseInternetDateTime(when, false);
    } else if ((name == "value" || name == "SimpleData") && inPlacemark && !currentDataName.empty()) {
      currentData[currentDataName] = currentDataValue;
    } else if (name == "Placemark") {
      endPlacemark();
    }
    if (!currentElementPath.empty()) currentElementPath.pop_back();
  }

  void endPlacemark() {
    const std::string title = upperCased(trimmed(currentNameBuffer));
    const bool agencyShape = title.find("STORM TRACK") != std::string::npos ||
                             title.find("BEST TRACK") != std::string::npos ||
                             title.find("TCFA AREA") != std::string::npos || title.rfind("RADIUS OF", 0) == 0;
    if (agencyShape && !currentPlacemarkFeatureIndices.empty()) {
      for (auto it = currentPlacemarkFeatureIndices.rbegin(); it != currentPlacemarkFeatureIndices.rend(); ++it) {
        features.erase(features.begin() + static_cast<std::ptrdiff_t>(*it));
      }
    } else if (!pendingPlacemarkPoints.empty()) {
      attributeTextRead += currentNameBuffer.size() + currentDescriptionBuffer.size();
      for (const auto& [key, value] : currentData) attributeTextRead += key.size() + value.size();
      if (attributeTextRead > kMaxKMLAttributeText) {
        stop("placemark texts larger than " + std::to_string(kMaxKMLAttributeText) + " bytes");
        return;
      }
      const KMLPointAttributes attributes = kmlPointAttributes(currentNameBuffer, currentDescriptionBuffer, currentData,
                                                               placemarkStyleUrl, fallbackYear, reference);
      for (const auto& point : pendingPlacemarkPoints) {
        features.push_back(KMLCircleFeature{
            .coordinate = point,
            .radius = circleRadius(attributes.windKt),
            .intensityTag = attributes.intensityTag,
            .time = currentWhenDate ? currentWhenDate : attributes.time,
            .windKt = attributes.windKt,
            .windMph = attributes.windMph,
            .gustKt = attributes.gustKt,
            .gustMph = attributes.gustMph,
            .pressureMb = attributes.pressureMb,
            .forecastHour = attributes.forecastHour,
            .movementDir = attributes.movementDir,
            .movementSpeed = attributes.movementSpeed,
        });
      }
    }
    pendingPlacemarkPoints.clear();
    currentPlacemarkFeatureIndices.clear();
    inPlacemark = false;
  }
};

void XMLCALL onStart(void* user, const XML_Char* name, const XML_Char** attributes) {
  static_cast<KMLDelegate*>(user)->start(name, attributes);
}
void XMLCALL onEnd(void* user, const XML_Char* name) { static_cast<KMLDelegate*>(user)->end(name); }
void XMLCALL onCharacters(void* user, const XML_Char* text, int length) {
  static_cast<KMLDelegate*>(user)->characters(std::string_view(text, static_cast<std::size_t>(length)));
}
void XMLCALL onEntityDeclaration(void* user, const XML_Char*, int, const XML_Char*, int, const XML_Char*,
                                 const XML_Char*, const XML_Char*, const XML_Char*) {
  // Entities are where expansion bombs live; KML has no use for them.
  static_cast<KMLDelegate*>(user)->stop("entity declarations are not accepted");
}

struct ParserDeleter {
  void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};

std::optional<int> documentYear(std::string_view text) {
  static const TextPattern year(R"(\b((?:19|20)\d{2})\b)");
  if (auto y = integerOf(year.firstGroup(text))) return y;
  static const TextPattern stormID(R"([A-Z]{2}\d{2}(\d{4}))");
  return integerOf(stormID.firstGroup(text));
}

}  // namespace

std::optional<double> compassDegrees(std::string_view word) {
  static constexpr std::string_view kPoints[] = {// clang-format off
      "NORTH", "NORTH-NORTHEAST", "NORTHEAST", "EAST-NORTHEAST", "EAST", "EAST-SOUTHEAST", "SOUTHEAST", "SOUTH-SOUTHEAST",
      "SOUTH", "SOUTH-SOUTHWEST", "SOUTHWEST", "WEST-SOUTHWEST", "WEST", "WEST-NORTHWEST", "NORTHWEST", "NORTH-NORTHWEST"};
                                                 // clang-format on
  const std::string upper = upperCased(word);
  for (int i = 0; i < 16; ++i) {
    if (upper == kPoints[i]) return i * 22.5;
  }
  return std::nullopt;
}

KMLPointAttributes kmlPointAttributes(std::string_view name, std::string_view description,
                                      const std::map<std::string, std::string>& data, std::string_view styleUrl,
                                      std::optional<int> fallbackYear, Date reference) {
  KMLPointAttributes out;
  std::string text = std::string(name) + "\n" + std::string(description);
  for (const auto& [key, value] : data) text += "\n" + key + ": " + value;
  // Several expressions backtrack over runs of non-digits; a placemark's own texts are a few
  // hundred bytes, so a longer one is cut (at a character boundary) rather than searched slowly.
  if (text.size() > kMaxPlacemarkText) {
    std::size_t cut = kMaxPlacemarkText;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xc0) == 0x80) --cut;
    text.resize(cut);
  }

  static const TextPattern maximumWind(R"(Maxim?um (Wind|Intensity)[:]?[^\d]*(\d+)\s*knots[^\d]*(\d+)\s*mph)");
  static const TextPattern intensity(R"(INTENSITY[:]?[^\d]*(\d+)(?:\s*TO\s*(\d+))?\s*(KT|KTS|KNOTS))");
  static const TextPattern windSpeed(R"(WIND\s*SPD[^\d]*(\d+)\s*KTS?)");
  static const TextPattern knots(R"((\d+)\s*knots)");
  static const TextPattern mph(R"(\((\d+)\s*mph)");
  static const TextPattern range(R"((\d+)\s*TO\s*(\d+))");
  if (auto m = maximumWind.firstMatch(text)) {
    out.windKt = integerOf((*m)[2]);
    out.windMph = integerOf((*m)[3]);
  } else if (auto m = intensity.firstMatch(text)) {
    // A range ("45 TO 55 KT") reads as its upper end: the marker shows the worst case.
    out.windKt = (*m)[2] ? integerOf((*m)[2]) : integerOf((*m)[1]);
  } else if (auto w = windSpeed.firstGroup(text)) {
    out.windKt = integerOf(w);
  } else if (const std::string* value = dataValue(data, {"intensity", "windKt", "maxWind"})) {
    if (auto r = range.firstMatch(*value)) {
      out.windKt = integerOf((*r)[2]);
    } else {
      out.windKt = integerOf(trimmed(*value));
    }
  } else if (auto k = knots.firstGroup(text)) {
    out.windKt = integerOf(k);
  }
  if (!out.windMph) out.windMph = integerOf(mph.firstGroup(text));

  static const TextPattern gust(R"(Wind Gusts[:]?[^\d]*(\d+)\s*knots[^\(]*\((\d+)\s*mph)");
  if (auto m = gust.firstMatch(text)) {
    out.gustKt = integerOf((*m)[1]);
    out.gustMph = integerOf((*m)[2]);
  }
  static const TextPattern pressure(R"(Min(imum)?\s*(Sea\s*Level)?\s*Pressure[:]?[^\d]*(\d+)\s*mb)");
  out.pressureMb = integerOf(pressure.firstGroup(text, 3));
  if (!out.pressureMb) {
    if (const std::string* value = dataValue(data, {"pressureMb", "minPressure", "mslp"}))
      out.pressureMb = integerOf(trimmed(*value));
  }

  static const TextPattern hourForecast(R"((\d+)\s*hr\s*Forecast)");
  static const TextPattern tau(R"(TAU\s+(\d+))");
  static const TextPattern fcstpd(R"(<Data\s+name="fcstpd">\s*<value>(\d+)</value>)");
  static const TextPattern current(R"(\bCURRENT\b)");
  if (current.firstMatch(name) || current.firstMatch(description)) {
    out.forecastHour = "current";
  } else if (auto h = hourForecast.firstGroup(text)) {
    out.forecastHour = h;
  } else if (auto t = tau.firstGroup(text)) {
    out.forecastHour = t;
  } else if (const std::string* value = dataValue(data, {"fcstpd", "forecastHour", "tau"})) {
    out.forecastHour = trimmed(*value);
  } else if (auto f = fcstpd.firstGroup(description)) {
    out.forecastHour = f;
  }

  static const TextPattern movingAt(R"(MOVING\s+([A-Z]+(?:-[A-Z]+)*)\s+AT\s+(\d+)\s+KNOTS)");
  static const TextPattern moving(R"(MOVING\s+([A-Z]+(?:-[A-Z]+)*))");
  static const TextPattern atKnots(R"(AT\s+(\d+)\s+KNOTS)");
  if (auto m = movingAt.firstMatch(text)) {
    out.movementDir = compassDegrees(*(*m)[1]);
    out.movementSpeed = parseNumber(*(*m)[2]);
  } else {
    if (auto word = moving.firstGroup(text)) out.movementDir = compassDegrees(*word);
    if (auto speed = atKnots.firstGroup(text)) out.movementSpeed = parseNumber(*speed);
  }

  if (const std::string* value = dataValue(data, {"stormType", "intensityTag", "classification", "TCDVLP"})) {
    out.intensityTag = trimmed(*value);
  } else if (!styleUrl.empty()) {
    // "#hu_point" / "#ts" name the class in the style.
    std::string style(styleUrl);
    if (style.front() == '#') style.erase(0, 1);
    style = upperCased(style.substr(0, style.find('_')));
    static constexpr std::string_view kCodes[] = {"HU", "TS", "TD", "SS", "SD", "EX", "PTC", "TY", "STY", "TC"};
    if (std::find(std::begin(kCodes), std::end(kCodes), style) != std::end(kCodes) ||
        (style.size() > 2 && style.rfind("HU", 0) == 0 && parseInteger(style.substr(2)))) {
      out.intensityTag = style;
    }
  }
  out.time = pointTime(text, fallbackYear, reference);
  return out;
}

std::vector<KMLOverlayFeature> kmlFeatures(std::string_view text, Date reference,
                                           const std::function<bool()>& cancelled) {
  if (text.size() > kMaxKMLBytes)
    throw KMLParseError("KML document larger than " + std::to_string(kMaxKMLBytes) + " bytes");
  std::unique_ptr<XML_ParserStruct, ParserDeleter> parser(XML_ParserCreate("UTF-8"));
  if (!parser) throw KMLParseError("cannot create an XML parser");
  KMLDelegate delegate;
  delegate.parser = parser.get();
  delegate.cancelled = &cancelled;
  delegate.reference = reference;
  delegate.fallbackYear = documentYear(text);
  XML_SetUserData(parser.get(), &delegate);
  XML_SetElementHandler(parser.get(), onStart, onEnd);
  XML_SetCharacterDataHandler(parser.get(), onCharacters);
  XML_SetEntityDeclHandler(parser.get(), onEntityDeclaration);
  const auto status = XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE);
  if (delegate.wasCancelled) throw CancellationError();
  if (!delegate.failure.empty()) throw KMLParseError("KML refused: " + delegate.failure);
  if (status != XML_STATUS_OK) {
    throw KMLParseError("KML not well-formed: " + std::string(XML_ErrorString(XML_GetErrorCode(parser.get()))) +
                        " at line " + std::to_string(XML_GetCurrentLineNumber(parser.get())));
  }
  return std::move(delegate.features);
}

}  // namespace ombrine
