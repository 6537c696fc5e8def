#include "storms/jtwc_storms.hpp"

#include <algorithm>
#include <climits>
#include <functional>
#include <set>
#include <type_traits>

#include "core/values/errors.hpp"
#include "platform/errors.hpp"
#include "platform/exception_message.hpp"
#include "platform/log.hpp"
#include "storms/kml_reader.hpp"
#include "storms/storm_http.hpp"
#include "storms/storm_time.hpp"
#include "storms/text_pattern.hpp"
#include "storms/zip_reader.hpp"

namespace ombrine {

namespace {

std::optional<int> smallInteger(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  const auto value = parseInteger(trimmed(*text));
  if (!value || *value > INT_MAX || *value < INT_MIN) return std::nullopt;
  return static_cast<int>(*value);
}

std::optional<double> numberOf(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  return parseNumber(trimmed(*text));
}

std::string digitsOnly(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (c >= '0' && c <= '9') out.push_back(c);
  }
  return out;
}

}  // namespace

StormCoordinate readJTWCPosition(std::string_view text) {
  std::string spaced(text);
  std::replace(spaced.begin(), spaced.end(), ',', ' ');
  static const TextPattern position(R"((-?\d{1,2}(?:\.\d+)?)[\s]*([NS])[\s]+(-?\d{1,3}(?:\.\d+)?)[\s]*([EW]))");
  const auto match = position.firstMatch(spaced);
  if (!match) return StormCoordinate{0, 0};
  double latitude = parseNumber(*(*match)[1]).value_or(0.0);
  double longitude = parseNumber(*(*match)[3]).value_or(0.0);
  if (upperCased(*(*match)[2]) == "S") latitude = -latitude;
  if (upperCased(*(*match)[4]) == "W") longitude = -longitude;
  return StormCoordinate{latitude, longitude};
}

std::string cleanJTWCName(std::string_view name) {
  static const std::set<std::string> kAbbreviations{"td", "ts", "ty", "sty", "tc", "db"};
  std::string out;
  std::size_t i = 0;
  const std::string lower = lowerCased(name);
  while (i < lower.size()) {
    while (i < lower.size() && lower[i] == ' ') ++i;
    const std::size_t start = i;
    while (i < lower.size() && lower[i] != ' ') ++i;
    if (i == start) break;
    std::string word = lower.substr(start, i - start);
    const bool hasDigit = std::any_of(word.begin(), word.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (kAbbreviations.count(word) || hasDigit) {
      word = upperCased(word);
    } else {
      word = upperCased(word.substr(0, 1)) + word.substr(1);
    }
    if (!out.empty()) out.push_back(' ');
    out += word;
  }
  return out;
}

JTWCWarningText readJTWCWarningText(std::string_view text, std::optional<Date> reference, Date now) {
  JTWCWarningText out;
  static const TextPattern name(R"(\(([A-Za-z0-9\-\s]+)\))");
  if (auto n = name.firstGroup(text)) out.name = trimmed(*n);

  static const TextPattern spacedPosition(R"((\d{1,2}\.\d+\s*[NS]\s+\d{1,3}\.\d+\s*[EW]))");
  static const TextPattern tightPosition(R"((\d{1,2}\.\d+[NS]\s+\d{1,3}\.\d+[EW]))");
  auto position = spacedPosition.firstGroup(text);
  if (!position) position = tightPosition.firstGroup(text);
  if (position) out.coordinate = readJTWCPosition(trimmed(*position));

  static const TextPattern maxWinds(R"(MAX\s+SUSTAINED\s+WINDS\s*-\s*(\d{2,3})\s*KT)");
  static const TextPattern intensity(R"(INTENSITY:\s*(\d{1,3})\s*(KT|KTS|KNOTS))");
  out.intensity = smallInteger(maxWinds.firstGroup(text));
  if (!out.intensity) {
    if (auto i = intensity.firstGroup(text)) out.intensity = smallInteger(digitsOnly(*i));
  }

  static const TextPattern pressure(R"(PRESSURE[^\d]*(\d{2,4})\s*MB)");
  // The Center's warnings put the time between the word and the value ("MINIMUM CENTRAL
  // PRESSURE AT 310600Z IS 937 MB"), which the first form cannot read.
  static const TextPattern timedPressure(R"(PRESSURE\s+AT\s+\d{6}Z\s+IS\s+(\d{2,4})\s*MB)");
  out.pressure = smallInteger(pressure.firstGroup(text));
  if (!out.pressure) out.pressure = smallInteger(timedPressure.firstGroup(text));

  static const TextPattern movement(R"(MOVEMENT[^-]*-\s*(\d{1,3})\s*DEGREES[^\d]*(\d{1,3})\s*KTS)");
  static const TextPattern direction(R"((\d{1,3})\s*DEG)");
  static const TextPattern speed(R"(AT\s*(\d{1,3})\s*KTS)");
  const auto move = movement.firstMatch(text);
  const auto moveDir = move ? numberOf((*move)[1]) : std::nullopt;
  const auto moveSpeed = move ? numberOf((*move)[2]) : std::nullopt;
  if (moveDir && moveSpeed) {
    out.movementDir = moveDir;
    out.movementSpeed = moveSpeed;
  } else {
    out.movementDir = numberOf(direction.firstGroup(text));
    out.movementSpeed = numberOf(speed.firstGroup(text));
  }

  static const TextPattern time(R"(\b(\d{6})Z\b)");
  out.time = reference;
  if (auto token = time.firstGroup(text)) {
    if (auto parsed = parseTokenDDHHMM(trimmed(*token), reference.value_or(now))) out.time = parsed;
  }
  return out;
}

JTWCTrackSummary summarizeJTWCTrack(std::string_view kmz, std::optional<Date> reference, Date now,
                                    const std::function<bool()>& cancelled) {
  JTWCTrackSummary summary;
  for (const auto& [name, text] : kmlTexts(kmz, cancelled)) {
    std::vector<KMLCircleFeature> circles;
    try {
      for (auto& feature : kmlFeatures(text, reference.value_or(now), cancelled)) {
        if (auto* circle = std::get_if<KMLCircleFeature>(&feature)) circles.push_back(std::move(*circle));
      }
    } catch (const KMLParseError&) {
      continue;  // a document that fails counts as empty
    }
    if (circles.empty()) continue;
    const KMLCircleFeature* chosen = nullptr;
    for (const auto& circle : circles) {
      if (circle.forecastHour && lowerCased(*circle.forecastHour) == "current") {
        chosen = &circle;
        break;
      }
    }
    if (!chosen) {
      std::optional<long long> lowest;
      for (const auto& circle : circles) {
        if (!circle.forecastHour) continue;
        const auto hour = parseInteger(digitsOnly(*circle.forecastHour));
        if (hour && (!lowest || *hour < *lowest)) {
          lowest = hour;
          chosen = &circle;
        }
      }
    }
    if (!chosen) chosen = &circles.front();
    summary.coordinate = StormCoordinate{chosen->coordinate.latitude, chosen->coordinate.longitude};
    summary.intensity = chosen->windKt;
    summary.pressure = chosen->pressureMb;
    summary.movementDir = chosen->movementDir;
    summary.movementSpeed = chosen->movementSpeed;
    summary.time = chosen->time ? chosen->time : reference;
    break;
  }
  return summary;
}

Storm::Classification jtwcClassification(std::optional<int> knots) {
  if (!knots) return Storm::Classification::fromCode("TC");
  if (*knots >= 64) return Storm::Classification::fromCode("HU");
  if (*knots >= 34) return Storm::Classification::fromCode("TS");
  return Storm::Classification::fromCode("TD");
}

std::optional<JTWCStormDetails> combineJTWCDetails(const JTWCStormDescriptor& descriptor, const JTWCWarningText& text,
                                                   const std::optional<JTWCTrackSummary>& track) {
  std::optional<StormCoordinate> coordinate = track ? track->coordinate : std::nullopt;
  if (!coordinate) coordinate = text.coordinate;
  if (!coordinate) return std::nullopt;
  // The warning's measurements first; the KMZ only fills what the text lacks.
  auto pick = [&](const auto& fromText, auto member) {
    return fromText ? fromText : (track ? (*track).*member : std::remove_cvref_t<decltype(fromText)>{});
  };
  JTWCStormDetails details{
      .id = upperCased(descriptor.slug),
      .name = cleanJTWCName(text.name.value_or(upperCased(descriptor.slug))),
      .coordinate = *coordinate,
      .intensity = pick(text.intensity, &JTWCTrackSummary::intensity),
      .pressure = pick(text.pressure, &JTWCTrackSummary::pressure),
      .movementDir = pick(text.movementDir, &JTWCTrackSummary::movementDir),
      .movementSpeed = pick(text.movementSpeed, &JTWCTrackSummary::movementSpeed),
      .lastUpdate = track && track->time ? track->time : (text.time ? text.time : descriptor.pubDate),
      .advisoryURL = descriptor.advisoryURL,
      .kmzURL = descriptor.kmzURL,
  };
  return details;
}

Storm stormFromDetails(const JTWCStormDetails& details) {
  Storm storm;
  storm.id = details.id;
  storm.coordinate = details.coordinate;
  storm.name = details.name;
  storm.classification = jtwcClassification(details.intensity);
  storm.intensity = details.intensity;
  storm.pressure = details.pressure;
  storm.advisoryURL = details.advisoryURL;
  storm.movementDir = details.movementDir;
  storm.movementSpeed = details.movementSpeed;
  storm.lastUpdate = details.lastUpdate;
  // The Center packs cone, track and history into one file.
  storm.coneURL = details.kmzURL;
  storm.trackURL = details.kmzURL;
  storm.historyURL = details.kmzURL;
  storm.forecastIssuance = details.lastUpdate;
  return storm;
}

Task<std::optional<JTWCStormDetails>> fetchJTWCStormDetails(HttpClient& http, JTWCStormDescriptor descriptor,
                                                            Date now) {
  boost::urls::url advisoryURL = descriptor.advisoryURL;
  std::string textAccept = "text/plain";
  const std::string body = co_await getStormFile(http, std::move(advisoryURL), std::move(textAccept));
  if (!isValidUtf8(body)) throw DecodingError("JTWC warning " + descriptor.slug + ": cannot decode content data");
  // A warning is a few kilobytes; the expressions that read it backtrack, so a huge body is refused.
  if (body.size() > kMaxJTWCWarningBytes) throw DecodingError("JTWC warning " + descriptor.slug + ": too large");
  const JTWCWarningText text = readJTWCWarningText(body, descriptor.pubDate, now);
  const std::optional<Date> reference = text.time ? text.time : descriptor.pubDate;
  std::optional<JTWCTrackSummary> track;
  try {
    boost::urls::url kmzURL = descriptor.kmzURL;
    std::string kmzAccept = "application/zip,application/octet-stream,*/*";
    const std::string kmz = co_await getStormFile(http, std::move(kmzURL), std::move(kmzAccept));
    auto state = co_await asio::this_coro::cancellation_state;
    auto cancelled = [state] { return state.cancelled() != asio::cancellation_type::none; };
    track = summarizeJTWCTrack(kmz, reference, now, cancelled);
  } catch (...) {
    const auto error = std::current_exception();
    rethrowIfCancellation(error);
    logf("JTWC track {} unusable, using the warning text alone: {}", descriptor.slug, exceptionMessage(error));
  }
  co_return combineJTWCDetails(descriptor, text, track);
}

Task<ActiveStormSourceFetchResult<Storm>> fetchJTWCStorms(HttpClient& http,
                                                          std::vector<JTWCStormDescriptor> descriptors,
                                                          ActiveStormCoverageSet coverage, Date now) {
  ActiveStormSourceFetchResult<Storm> result;
  for (const auto& descriptor : descriptors) {
    co_await throwIfStormTaskCancelled();
    std::optional<JTWCStormDetails> details;
    try {
      details = co_await fetchJTWCStormDetails(http, descriptor, now);
    } catch (...) {
      const auto error = std::current_exception();
      rethrowIfCancellation(error);
      logf("JTWC storm {} failed: {}", descriptor.slug, exceptionMessage(error));
    }
    if (!details) {
      for (auto area : descriptor.coverage) coverage.erase(area);
      continue;
    }
    result.records.push_back(stormFromDetails(*details));
  }
  result.completeCoverage = std::move(coverage);
  co_return result;
}

}  // namespace ombrine
