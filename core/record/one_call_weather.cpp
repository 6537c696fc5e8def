#include "core/record/one_call_weather.hpp"

#include <array>
#include <bit>
#include <cstdint>

namespace ombrine {

namespace {

constexpr std::array<std::string_view, 5> kSeverityNames = {"minor", "moderate", "severe", "extreme", "unknown"};

// Order-sensitive accumulation of field hashes (64-bit golden-ratio mixing).
class HashBuilder {
 public:
  HashBuilder& add(size_t value) noexcept {
    seed_ ^= value + 0x9e3779b97f4a7c15ULL + (seed_ << 6) + (seed_ >> 2);
    return *this;
  }
  HashBuilder& add(double value) noexcept { return add(std::hash<double>{}(value == 0.0 ? 0.0 : value)); }
  HashBuilder& add(int value) noexcept { return add(static_cast<size_t>(value)); }
  HashBuilder& add(bool value) noexcept { return add(static_cast<size_t>(value ? 1 : 2)); }
  HashBuilder& add(std::string_view value) noexcept { return add(std::hash<std::string_view>{}(value)); }
  HashBuilder& add(Date value) noexcept { return add(value.timeIntervalSinceReferenceDate); }
  HashBuilder& add(Temperature value) noexcept { return add(value.measurement); }
  HashBuilder& add(Speed value) noexcept { return add(value.measurement); }
  HashBuilder& add(Angle value) noexcept { return add(value.measurement); }
  HashBuilder& add(Precipitation value) noexcept { return add(value.measurement); }
  HashBuilder& add(const boost::urls::url& value) noexcept { return add(std::hash<boost::urls::url>{}(value)); }
  HashBuilder& addJson(const boost::json::value& value) noexcept;
  HashBuilder& add(const AirQuality& value) noexcept { return add(value.time).add(value.aqi); }
  HashBuilder& add(const OneCallWeather::Rain& value) noexcept { return add(value.rainVolume); }
  HashBuilder& add(const OneCallWeather::Snow& value) noexcept { return add(value.snowVolume); }
  HashBuilder& add(PrecipitationKind value) noexcept { return add(static_cast<int>(value)); }
  HashBuilder& add(WeatherSeverity value) noexcept { return add(static_cast<int>(value)); }
  HashBuilder& add(const OneCallWeather::Glyph& glyph) noexcept {
    return add(glyph.id).add(glyph.main).add(glyph.description).add(glyph.symbolName).add(glyph.isDaylight);
  }
  HashBuilder& add(const SunStateChange& change) noexcept { return add(change.isRise()).add(change.date()); }
  HashBuilder& add(const WeatherServiceAttribution& attribution) noexcept;
  HashBuilder& add(const OneCallWeather::Current& current) noexcept;
  HashBuilder& add(const OneCallWeather::Minutely& minute) noexcept {
    return add(minute.dt).add(minute.precipitation).add(minute.type);
  }
  HashBuilder& add(const OneCallWeather::Hourly& hour) noexcept;
  HashBuilder& add(const OneCallWeather::Daily& day) noexcept;
  HashBuilder& add(const OneCallWeather::Alert& alert) noexcept {
    return add(alert.senderName)
        .add(alert.event)
        .add(alert.start)
        .add(alert.end)
        .add(alert.description)
        .add(alert.url)
        .add(alert.severity)
        .add(alert.tags);
  }

  // Absence hashes differently from every present value's own hash chain.
  template <class T>
  HashBuilder& add(const std::optional<T>& value) noexcept {
    if (!value) return add(static_cast<size_t>(0x51ed270b27c3a1b5ULL));
    return add(static_cast<size_t>(1)).add(*value);
  }
  template <class T>
  HashBuilder& add(const std::vector<T>& values) noexcept {
    add(values.size());
    for (const auto& value : values) add(value);
    return *this;
  }

  size_t result() const noexcept { return seed_; }

 private:
  size_t seed_ = 0;
};

// Consistent with boost::json::value equality: objects compare without regard to key order,
// int64 and uint64 of the same value are equal, and 0.0 equals -0.0.
HashBuilder& HashBuilder::addJson(const boost::json::value& value) noexcept {
  add(static_cast<size_t>(value.kind() == boost::json::kind::uint64 ? boost::json::kind::int64 : value.kind()));
  switch (value.kind()) {
    case boost::json::kind::null: return *this;
    case boost::json::kind::bool_: return add(value.get_bool());
    case boost::json::kind::int64: return add(static_cast<size_t>(value.get_int64()));
    case boost::json::kind::uint64: return add(static_cast<size_t>(value.get_uint64()));
    case boost::json::kind::double_: return add(value.get_double());
    case boost::json::kind::string: return add(std::string_view(value.get_string()));
    case boost::json::kind::array:
      add(value.get_array().size());
      for (const auto& element : value.get_array()) addJson(element);
      return *this;
    case boost::json::kind::object: {
      size_t combined = 0;
      for (const auto& member : value.get_object()) {
        HashBuilder entry;
        entry.add(std::string_view(member.key())).addJson(member.value());
        combined += entry.result();
      }
      return add(value.get_object().size()).add(combined);
    }
  }
  return *this;
}

HashBuilder& HashBuilder::add(const WeatherServiceAttribution& attribution) noexcept {
  add(attribution.source.index());
  if (const auto* apple = std::get_if<WeatherServiceAttribution::Apple>(&attribution.source)) {
    return addJson(apple->attribution);
  }
  if (const auto* image = std::get_if<WeatherServiceAttribution::ImageAttribution>(&attribution.source)) {
    return add(image->combinedMarkDarkURL)
        .add(image->combinedMarkLightURL)
        .add(image->legalPageURL)
        .add(image->serviceName)
        .add(image->squareMarkURL);
  }
  const auto& name = std::get<WeatherServiceAttribution::NameAttribution>(attribution.source);
  return add(name.serviceName).add(name.url);
}

HashBuilder& HashBuilder::add(const OneCallWeather::Current& c) noexcept {
  return add(c.dt)
      .add(c.sunrise)
      .add(c.sunset)
      .add(c.temp)
      .add(c.feelsLike)
      .add(c.pressure)
      .add(c.dewPoint)
      .add(c.uvi)
      .add(c.humidity)
      .add(c.clouds)
      .add(c.visibility)
      .add(c.windSpeed)
      .add(c.windGust)
      .add(c.windDeg)
      .add(c.rain)
      .add(c.snow)
      .add(c.weather)
      .add(c.airQuality);
}

HashBuilder& HashBuilder::add(const OneCallWeather::Hourly& h) noexcept {
  return add(h.dt)
      .add(h.temp)
      .add(h.feelsLike)
      .add(h.pressure)
      .add(h.humidity)
      .add(h.dewPoint)
      .add(h.uvi)
      .add(h.clouds)
      .add(h.visibility)
      .add(h.windSpeed)
      .add(h.windDeg)
      .add(h.windGust)
      .add(h.pop)
      .add(h.rain)
      .add(h.snow)
      .add(h.weather)
      .add(h.sunStateChange)
      .add(h.airQuality);
}

HashBuilder& HashBuilder::add(const OneCallWeather::Daily& d) noexcept {
  return add(d.dt)
      .add(d.temp.min)
      .add(d.temp.max)
      .add(d.feelsLike.day)
      .add(d.feelsLike.night)
      .add(d.feelsLike.eve)
      .add(d.feelsLike.morn)
      .add(d.pop)
      .add(d.rain)
      .add(d.snow)
      .add(d.uvi)
      .add(d.windSpeed)
      .add(d.windDeg)
      .add(d.windGust)
      .add(d.humidity)
      .add(d.dewPoint)
      .add(d.clouds)
      .add(d.weather)
      .add(d.sunrise)
      .add(d.sunset);
}

}  // namespace

std::string_view weatherSeverityName(WeatherSeverity severity) noexcept {
  return kSeverityNames[static_cast<size_t>(severity)];
}

std::optional<WeatherSeverity> weatherSeverityNamed(std::string_view name) noexcept {
  for (size_t i = 0; i < kSeverityNames.size(); ++i) {
    if (kSeverityNames[i] == name) return static_cast<WeatherSeverity>(i);
  }
  return std::nullopt;
}

Date SunStateChange::date() const noexcept {
  return std::visit([](const auto& change) { return change.date; }, event);
}

std::string_view SunStateChange::label() const noexcept { return isRise() ? "Sunrise" : "Sunset"; }

size_t hashValue(const OneCallWeather& weather) noexcept {
  // tideData is left out: tides are refreshed on their own schedule and must not make a forecast
  // look changed.
  HashBuilder hash;
  hash.add(weather.lat)
      .add(weather.lon)
      .add(std::string_view(weather.timeZone.identifier()))
      .add(weather.current)
      .add(weather.minutely)
      .add(weather.hourly)
      .add(weather.daily)
      .add(weather.alerts)
      .add(weather.attribution)
      .add(weather.isPlaceholder);
  return hash.result();
}

}  // namespace ombrine
