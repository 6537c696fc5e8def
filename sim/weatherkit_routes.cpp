#include "sim/weatherkit_routes.hpp"

#include <fmt/format.h>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>

#include <charconv>
#include <cmath>

#include "sim/json_writer.hpp"

namespace ombrine::sim {

namespace json = boost::json;
using namespace std::chrono;

namespace {

std::optional<std::string> base64Url(std::string_view text) {
  static constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string out;
  unsigned buffer = 0;
  int bits = 0;
  for (char c : text) {
    const size_t value = kAlphabet.find(c);
    if (value == std::string_view::npos) return std::nullopt;
    buffer = buffer << 6 | static_cast<unsigned>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<char>((buffer >> bits) & 0xFF));
    }
  }
  return out;
}

bool verifySignature(std::string_view signingInput, const std::string& raw, const std::string& publicPem) {
  ECDSA_SIG* signature = ECDSA_SIG_new();
  ECDSA_SIG_set0(signature, BN_bin2bn(reinterpret_cast<const unsigned char*>(raw.data()), 32, nullptr),
                 BN_bin2bn(reinterpret_cast<const unsigned char*>(raw.data()) + 32, 32, nullptr));
  unsigned char* der = nullptr;
  const int derLength = i2d_ECDSA_SIG(signature, &der);
  ECDSA_SIG_free(signature);
  BIO* bio = BIO_new_mem_buf(publicPem.data(), static_cast<int>(publicPem.size()));
  EVP_PKEY* key = PEM_read_bio_PUBKEY(bio, nullptr, nullptr, nullptr);
  BIO_free(bio);
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  const bool ok =
      key && derLength > 0 && EVP_DigestVerifyInit(context, nullptr, EVP_sha256(), nullptr, key) == 1 &&
      EVP_DigestVerify(context, der, static_cast<size_t>(derLength),
                       reinterpret_cast<const unsigned char*>(signingInput.data()), signingInput.size()) == 1;
  EVP_MD_CTX_free(context);
  EVP_PKEY_free(key);
  OPENSSL_free(der);
  return ok;
}

std::int64_t unixOf(Instant instant) { return instant.time_since_epoch().count(); }

json::object metadata(GeoPoint point, Instant now, std::string_view provider) {
  return {{"attributionURL", "https://developer.apple.com/weatherkit/data-source-attribution/"},
          {"expireTime", formatUtc(now + minutes(5))},
          {"latitude", roundedNumber(point.latitude, 3)},
          {"longitude", roundedNumber(point.longitude, 3)},
          {"readTime", formatUtc(now)},
          {"reportedTime", formatUtc(now - minutes(20))},
          {"providerName", provider},
          {"units", "m"},
          {"version", 1}};
}

std::string_view conditionCode(const WeatherSample& s) {
  if (s.thunder) return "Thunderstorms";
  if (s.precipRate > 0.05) {
    if (s.precipKind == PrecipKind::snow) return s.precipRate > 2.0 ? "HeavySnow" : "Snow";
    if (s.precipKind == PrecipKind::mixed) return "MixedRainAndSnow";
    if (s.precipRate > 4.0) return "HeavyRain";
    return s.precipRate > 1.0 ? "Rain" : "Drizzle";
  }
  if (s.fog) return "Foggy";
  if (s.windSpeed > 10.0) return "Windy";
  if (s.cloudiness > 84) return "Cloudy";
  if (s.cloudiness > 60) return "MostlyCloudy";
  if (s.cloudiness > 30) return "PartlyCloudy";
  return s.cloudiness > 10 ? "MostlyClear" : "Clear";
}

std::string_view precipitationType(const WeatherSample& s) {
  if (s.precipRate <= 0.05) return "clear";
  switch (s.precipKind) {
    case PrecipKind::snow: return "snow";
    case PrecipKind::mixed: return "mixed";
    case PrecipKind::rain: return "rain";
  }
  return "rain";
}

void commonFields(json::object& out, const WeatherSample& s) {
  out["cloudCover"] = roundedNumber(s.cloudiness / 100.0, 2);
  out["conditionCode"] = conditionCode(s);
  out["daylight"] = s.sunElevation > 0.0;
  out["humidity"] = roundedNumber(s.relHumidity / 100.0, 2);
  out["pressure"] = roundedNumber(s.pressure, 2);
  out["pressureTrend"] = "steady";
  out["temperature"] = roundedNumber(s.temperature, 2);
  out["temperatureApparent"] = roundedNumber(s.feelsLike, 2);
  out["temperatureDewPoint"] = roundedNumber(s.dewPoint, 2);
  out["uvIndex"] = static_cast<int>(std::lround(s.uvIndex));
  out["visibility"] = roundedNumber(s.visibility, 2);
  out["windDirection"] = s.windDirection;
  out["windGust"] = roundedNumber(s.windGust * 3.6, 2);
  out["windSpeed"] = roundedNumber(s.windSpeed * 3.6, 2);
}

std::string_view severityOf(WarningLevel level) {
  switch (level) {
    case WarningLevel::green: return "minor";
    case WarningLevel::yellow: return "moderate";
    case WarningLevel::orange: return "severe";
    case WarningLevel::red:
    case WarningLevel::purple: return "extreme";
  }
  return "unknown";
}

std::string_view kindName(WarningKind kind) {
  static constexpr std::string_view kNames[] = {"Wind", "Rain", "Snow",        "Thunderstorm", "Heat",
                                                "Cold", "Fog",  "Forest Fire", "Ice"};
  return kNames[static_cast<int>(kind)];
}

double coordinate(std::string_view text, double limit) {
  double value = 0.0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size() || std::abs(value) > limit) {
    throw Refusal{400, "Bad Request"};
  }
  return value;
}

}  // namespace

void WeatherKitKeyRing::trust(std::string publicKeyPem) {
  std::lock_guard lock(mutex_);
  keys_.push_back(std::move(publicKeyPem));
}

bool WeatherKitKeyRing::accepts(std::string_view token, Instant now) const {
  const size_t first = token.find('.');
  const size_t last = token.rfind('.');
  if (first == std::string_view::npos || first == last) return false;
  auto header = base64Url(token.substr(0, first));
  auto claims = base64Url(token.substr(first + 1, last - first - 1));
  auto signature = base64Url(token.substr(last + 1));
  if (!header || !claims || !signature || signature->size() != 64) return false;
  boost::system::error_code error;
  json::value headerJson = json::parse(*header, error);
  if (error || !headerJson.is_object()) return false;
  json::value claimsJson = json::parse(*claims, error);
  if (error || !claimsJson.is_object()) return false;
  const auto& h = headerJson.get_object();
  const auto& c = claimsJson.get_object();
  auto text = [](const json::object& o, std::string_view key) {
    const json::value* v = o.if_contains(key);
    return v && v->is_string() && !v->get_string().empty();
  };
  const json::value* alg = h.if_contains("alg");
  if (!alg || !alg->is_string() || alg->get_string() != "ES256" || !text(h, "kid") || !text(c, "iss") ||
      !text(c, "sub")) {
    return false;
  }
  const json::value* exp = c.if_contains("exp");
  if (!exp || !exp->is_int64() || exp->get_int64() <= unixOf(now)) return false;
  std::lock_guard lock(mutex_);
  for (const std::string& key : keys_) {
    if (verifySignature(token.substr(0, last), *signature, key)) return true;
  }
  return false;
}

std::string weatherKitErrorBody(int status, std::string_view message) {
  json::object body{{"timestamp", formatUtc(floor<seconds>(system_clock::now()))},
                    {"status", status},
                    {"error", message},
                    {"message", message},
                    {"path", "/api/v1/weather"}};
  return writeJson(body);
}

std::vector<SimRoute> weatherKitRoutes(const WeatherModel& model, std::shared_ptr<const WeatherKitKeyRing> keys) {
  std::vector<SimRoute> routes;
  auto handler = [model, keys](const SimRequest& request) -> SimResponse {
    try {
      constexpr std::string_view kBearer = "Bearer ";
      if (!request.authorization.starts_with(kBearer) ||
          !keys->accepts(std::string_view(request.authorization).substr(kBearer.size()), request.now)) {
        throw Refusal{401, "Unauthorized"};
      }
      const GeoPoint point{coordinate(request.captures.at(1), 90.0), coordinate(request.captures.at(2), 180.0)};
      const auto dataSets = request.param("dataSets");
      if (!dataSets || !request.param("timezone")) throw Refusal{400, "Bad Request"};
      const Instant now = request.now;
      json::object body;
      std::string_view sets = *dataSets;
      auto wants = [&](std::string_view name) {
        size_t at = 0;
        while (at <= sets.size()) {
          size_t end = sets.find(',', at);
          if (end == std::string_view::npos) end = sets.size();
          if (sets.substr(at, end - at) == name) return true;
          at = end + 1;
        }
        return false;
      };
      for (size_t at = 0; at <= sets.size();) {
        size_t end = sets.find(',', at);
        if (end == std::string_view::npos) end = sets.size();
        const std::string_view name = sets.substr(at, end - at);
        if (name != "currentWeather" && name != "forecastHourly" && name != "forecastDaily" &&
            name != "forecastNextHour" && name != "weatherAlerts") {
          throw Refusal{400, "Bad Request"};
        }
        at = end + 1;
      }
      if (wants("currentWeather")) {
        const WeatherSample s = model.sample(point, now);
        json::object set{{"name", "CurrentWeather"},
                         {"metadata", metadata(point, now, "Simulated Weather")},
                         {"asOf", formatUtc(now)}};
        commonFields(set, s);
        set["precipitationIntensity"] = roundedNumber(s.precipRate, 2);
        body["currentWeather"] = std::move(set);
      }
      if (wants("forecastHourly")) {
        Instant start = floor<hours>(now);
        Instant end = start + hours(24);
        if (auto text = request.param("hourlyStart")) {
          auto parsed = parseUtc(*text);
          if (!parsed) throw Refusal{400, "Bad Request"};
          start = floor<hours>(*parsed);
        }
        if (auto text = request.param("hourlyEnd")) {
          auto parsed = parseUtc(*text);
          if (!parsed) throw Refusal{400, "Bad Request"};
          end = *parsed;
        }
        end = std::min(end, start + hours(240));
        json::array hours_;
        for (Instant at = start; at < end; at += hours(1)) {
          const WeatherSample s = model.sample(point, at);
          const auto amount = model.accumulation(point, at, at + hours(1));
          json::object hour{{"forecastStart", formatUtc(at)}};
          commonFields(hour, s);
          hour["precipitationAmount"] = roundedNumber(amount.total, 2);
          hour["precipitationIntensity"] = roundedNumber(s.precipRate, 2);
          hour["precipitationChance"] = roundedNumber(precipitationProbability(amount.total, s.cloudiness) / 100.0, 2);
          hour["precipitationType"] = precipitationType(s);
          hour["snowfallIntensity"] = roundedNumber(s.precipKind == PrecipKind::snow ? s.precipRate * 10.0 : 0.0, 2);
          hours_.push_back(std::move(hour));
        }
        body["forecastHourly"] = json::object{{"name", "HourlyForecast"},
                                              {"metadata", metadata(point, now, "Simulated Weather")},
                                              {"hours", std::move(hours_)}};
      }
      if (wants("forecastDaily")) {
        const minutes offset = longitudeUtcOffset(point.longitude);
        const sys_days today = localDay(now, offset);
        json::array days_;
        for (int i = 0; i < 10; ++i) {
          const auto [midnight, low, high, noon, amount, sun] = modelDay(model, point, today + days(i), offset);
          json::object entry{{"forecastStart", formatUtc(midnight)},
                             {"forecastEnd", formatUtc(midnight + hours(24))},
                             {"conditionCode", conditionCode(noon)},
                             {"maxUvIndex", static_cast<int>(std::lround(noon.uvIndex))},
                             {"moonPhase", "waxingCrescent"},
                             {"precipitationAmount", roundedNumber(amount.total, 2)},
                             {"precipitationChance",
                              roundedNumber(precipitationProbability(amount.total / 24.0, noon.cloudiness) / 100.0, 2)},
                             {"precipitationType", amount.total > 0.1 ? precipitationType(noon) : "clear"},
                             {"snowfallAmount", roundedNumber(amount.snow * 10.0, 2)}};
          if (sun.sunrise) entry["sunrise"] = formatUtc(*sun.sunrise);
          if (sun.sunset) entry["sunset"] = formatUtc(*sun.sunset);
          entry["temperatureMax"] = roundedNumber(high, 2);
          entry["temperatureMin"] = roundedNumber(low, 2);
          entry["daytimeForecast"] = json::object{{"forecastStart", formatUtc(midnight + hours(7))},
                                                  {"forecastEnd", formatUtc(midnight + hours(19))},
                                                  {"cloudCover", roundedNumber(noon.cloudiness / 100.0, 2)},
                                                  {"conditionCode", conditionCode(noon)},
                                                  {"humidity", roundedNumber(noon.relHumidity / 100.0, 2)},
                                                  {"windDirection", noon.windDirection},
                                                  {"windSpeed", roundedNumber(noon.windSpeed * 3.6, 2)}};
          days_.push_back(std::move(entry));
        }
        body["forecastDaily"] = json::object{{"name", "DailyForecast"},
                                             {"metadata", metadata(point, now, "Simulated Weather")},
                                             {"days", std::move(days_)}};
      }
      if (wants("forecastNextHour")) {
        const Instant start = floor<minutes>(now);
        json::array minutes_;
        json::array summary;
        std::string current;
        for (int i = 0; i < 75; ++i) {
          const Instant at = start + minutes(i);
          const WeatherSample s = model.sample(point, at);
          minutes_.push_back(json::object{{"startTime", formatUtc(at)},
                                          {"precipitationChance", roundedNumber(s.precipRate > 0.05 ? 0.8 : 0.0, 2)},
                                          {"precipitationIntensity", roundedNumber(s.precipRate, 2)}});
          std::string condition(s.precipRate > 0.05 ? precipitationType(s) : "clear");
          if (condition != current) {
            if (!summary.empty()) summary.back().as_object()["endTime"] = formatUtc(at);
            summary.push_back(json::object{{"startTime", formatUtc(at)},
                                           {"condition", condition},
                                           {"precipitationChance", s.precipRate > 0.05 ? 0.8 : 0.0},
                                           {"precipitationIntensity", roundedNumber(s.precipRate, 2)}});
            current = condition;
          }
        }
        body["forecastNextHour"] = json::object{{"name", "NextHourForecast"},
                                                {"metadata", metadata(point, now, "Simulated Weather")},
                                                {"summary", std::move(summary)},
                                                {"forecastStart", formatUtc(start)},
                                                {"forecastEnd", formatUtc(start + minutes(75))},
                                                {"minutes", std::move(minutes_)}};
      }
      if (wants("weatherAlerts") && request.param("countryCode")) {
        json::array alerts;
        for (const WarningEvent& warning : model.warnings(point, now)) {
          if (warning.validUntil <= now) continue;
          const std::string id = fmt::format("{:016x}", warning.key);
          const std::string details = fmt::format("https://weatherkit.apple.com/alertDetails/index.html?ids={}", id);
          alerts.push_back(json::object{{"name", "WeatherAlertSummary"},
                                        {"id", id},
                                        {"areaId", warning.area},
                                        {"areaName", warning.area},
                                        {"countryCode", *request.param("countryCode")},
                                        {"description", fmt::format("{} Warning", kindName(warning.kind))},
                                        {"effectiveTime", formatUtc(warning.issued)},
                                        {"expireTime", formatUtc(warning.validUntil)},
                                        {"issuedTime", formatUtc(warning.issued)},
                                        {"eventOnsetTime", formatUtc(warning.validFrom)},
                                        {"detailsUrl", details},
                                        {"precedence", 0},
                                        {"severity", severityOf(warning.level)},
                                        {"source", "Simulated Weather Service"},
                                        {"urgency", "future"},
                                        {"certainty", "likely"},
                                        {"importance", "normal"},
                                        {"responses", json::array{"prepare"}}});
        }
        if (!alerts.empty()) {
          body["weatherAlerts"] = json::object{{"name", "WeatherAlertCollection"},
                                               {"metadata", metadata(point, now, "Simulated Weather Service")},
                                               {"alerts", std::move(alerts)}};
        }
      }
      return SimResponse{.status = 200, .body = writeJson(body)};
    } catch (const Refusal& refusal) {
      return SimResponse{.status = refusal.status, .body = weatherKitErrorBody(refusal.status, refusal.message)};
    }
  };
  routes.push_back(SimRoute{.name = "weatherkit.weather",
                            .pattern = std::regex("/weatherkit/api/v1/weather/([^/]+)/([^/]+)/([^/]+)"),
                            .answer = handler,
                            .errorBody = weatherKitErrorBody});
  return routes;
}

}  // namespace ombrine::sim
