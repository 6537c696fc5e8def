#include "web/api.hpp"

#include <fmt/format.h>

#include <charconv>
#include <chrono>
#include <cmath>
#include <mutex>
#include <stdexcept>
#include <unordered_map>

#include "core/fetch/content_view.hpp"
#include "core/fetch/geocoder.hpp"
#include "core/record/one_call_weather_json.hpp"
#include "core/record/tide_records_json.hpp"
#include "core/values/errors.hpp"
#include "core/values/iso8601.hpp"
#include "core/values/unit_rules.hpp"
#include "core/values/value_json.hpp"
#include "fires/fire_map_loader.hpp"
#include "fires/fire_report.hpp"
#include "history/civil_date.hpp"
#include "history/climate_normals_service.hpp"
#include "history/daily_sun_times.hpp"
#include "history/sun_labels.hpp"
#include "history/zoned_calendar.hpp"
#include "persistence/favorite_store.hpp"
#include "places/coordinate_text.hpp"
#include "platform/exception_message.hpp"
#include "platform/http_client.hpp"
#include "radar/radar_frames.hpp"
#include "radar/radar_loader.hpp"
#include "storms/active_storm_fetch.hpp"
#include "storms/storm_overlay_plan.hpp"
#include "storms/storm_report.hpp"
#include "tides/coast_tile_index.hpp"
#include "tides/tide_service.hpp"
#include "trips/trip_store.hpp"
#include "web/land_lines.hpp"
#include "web/threat_gathering.hpp"
#include "wiring/geocode_namer.hpp"

namespace ombrine::web {

namespace {

using Clock = std::chrono::steady_clock;

// Input the caller can fix: answered 400 with its sentence.
class BadRequest : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};
// Nothing has that name or id: answered 404.
class NotFound : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

ApiAnswer json(std::string body, int maxAge = 0) { return ApiAnswer{200, "application/json", std::move(body), maxAge}; }

ApiAnswer failure(int status, std::string_view message) {
  std::string body;
  JsonWriter writer(body);
  writer.beginObject();
  writer.key("error");
  writer.string(message);
  writer.endObject();
  return ApiAnswer{status, "application/json", std::move(body), 0};
}

std::string_view parameter(const QueryParameters& query, std::string_view name) {
  const auto found = query.find(name);
  return found == query.end() ? std::string_view() : std::string_view(found->second);
}

double number(std::string_view text, std::string_view what) {
  double value = 0;
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    throw BadRequest(fmt::format("{} must be a number, got \"{}\"", what, text));
  }
  return value;
}

// "W,S,E,N" in degrees.
FireMapEnvelope parseBox(std::string_view text) {
  if (text.empty()) throw BadRequest("bbox=WEST,SOUTH,EAST,NORTH is needed");
  double parts[4];
  for (int i = 0; i < 4; ++i) {
    const auto comma = text.find(',');
    if ((i < 3) == (comma == std::string_view::npos))
      throw BadRequest("bbox must be four numbers: WEST,SOUTH,EAST,NORTH");
    parts[i] = number(text.substr(0, comma), "each bbox value");
    text = i < 3 ? text.substr(comma + 1) : std::string_view();
  }
  const FireMapEnvelope box{parts[0], parts[1], parts[2], parts[3]};
  if (box.west >= box.east || box.south >= box.north || std::fabs(box.south) > 90 || std::fabs(box.north) > 90 ||
      box.west < -540 || box.east > 540) {
    throw BadRequest("bbox must have west < east and south < north, latitudes within -90...90");
  }
  return box;
}

struct Place {
  std::string name;
  Location location;
  GeoDetails details;
};

Place resolvePlace(Services& services, const QueryParameters& query) {
  const auto at = parameter(query, "at");
  const auto name = parameter(query, "q");
  Place place;
  if (!at.empty()) {
    place.location = parseCoordinate(at);
  } else if (!name.empty()) {
    const auto matches = services.geocoder().search(name, 1);
    if (matches.empty()) throw NotFound(fmt::format("no place named \"{}\"", name));
    place.location = matches.front().coordinate;
    place.name = matches.front().name;
  } else {
    throw BadRequest("name a place with q=NAME or at=LAT,LON");
  }
  place.details = services.namer().detailsOf(place.location);
  if (place.name.empty()) place.name = place.details.name;
  return place;
}

void writePlace(JsonWriter& writer, const Place& place) {
  writer.key("place");
  writer.beginObject();
  writer.key("name");
  writer.string(place.name);
  writer.key("latitude");
  writer.number(place.location.latitude());
  writer.key("longitude");
  writer.number(place.location.longitude());
  writer.key("timeZone");
  writer.string(place.details.timeZone.identifier());
  writer.key("region");
  writer.string(place.details.region.identifier);
  writer.endObject();
}

// Raw JSON texts side by side in one object: {"a": <text>, ...}.
std::string joinObject(std::initializer_list<std::pair<std::string_view, std::string_view>> members) {
  std::string out = "{";
  for (const auto& [name, text] : members) {
    if (out.size() > 1) out += ',';
    fmt::format_to(std::back_inserter(out), "\"{}\":{}", name, text);
  }
  return out + "}";
}

// The answers of slow outside services, kept for a while per request text.
class AnswerMemo {
 public:
  template <class Make>
  ApiAnswer get(const std::string& key, std::chrono::seconds keep, Make make) {
    {
      std::lock_guard lock(mutex_);
      const auto found = entries_.find(key);
      if (found != entries_.end() && Clock::now() - found->second.first < keep) return found->second.second;
    }
    ApiAnswer answer = make();
    if (answer.status == 200) {
      std::lock_guard lock(mutex_);
      if (entries_.size() > 512) entries_.clear();
      entries_[key] = {Clock::now(), answer};
    }
    return answer;
  }

 private:
  std::mutex mutex_;
  std::unordered_map<std::string, std::pair<Clock::time_point, ApiAnswer>> entries_;
};

std::string memoKey(std::string_view path, const QueryParameters& query) {
  std::string key(path);
  for (const auto& [name, value] : query) key += fmt::format("&{}={}", name, value);
  return key;
}

}  // namespace

struct Api::State {
  explicit State(Services& services) : services(services) {}

  Services& services;
  AnswerMemo memo;
  std::mutex radarMutex;  // guards radar
  std::optional<RainViewerFrames> radar;

  // --- Forecast --------------------------------------------------------------------------------

  ApiAnswer forecast(const QueryParameters& query) {
    const Place place = resolvePlace(services, query);
    const Date now = Date::fromSystem(services.clock().now());
    std::string body;
    JsonWriter writer(body);
    try {
      auto fetching = services.network().fetchOneCall(place.location, place.details.region, place.details.timeZone,
                                                      std::nullopt, true);
      const OneCallWeather weather = services.runtime().runBlocking(std::move(fetching));
      storeLatest(place, weather);
      writeForecast(writer, place, weather, "live", now, {});
    } catch (const CancellationError&) {
      throw;
    } catch (...) {
      const std::string reason = exceptionMessage(std::current_exception());
      auto last = services.latestWeather().latest();
      if (!last || place.location.distance(last->location) >= ContentView::kCachedRecordReuseDistance) {
        return failure(502, "the forecast could not be fetched: " + reason);
      }
      writeForecast(writer, place, last->weather, "stale", now, reason);
    }
    return json(std::move(body));
  }

  // Shares the record with the other processes (the widget reads it), unless it is the one the
  // cache already holds (the fetch path answered from it).
  void storeLatest(const Place& place, const OneCallWeather& weather) {
    if (auto held = services.latestWeather().latest();
        held && held->weather.current.dt == weather.current.dt && place.location.distance(held->location) < 1.0) {
      return;
    }
    PlacedWeather placed{place.name, place.location, place.details.region, weather};
    try {
      services.runtime().runBlocking(services.latestWeather().storeLatest(std::move(placed)));
    } catch (const CancellationError&) {
      throw;
    } catch (...) {
      // The forecast is still answered; the shared cache keeps its older record.
    }
  }

  static void writeForecast(JsonWriter& writer, const Place& place, const OneCallWeather& weather,
                            std::string_view state, Date now, std::string_view reason) {
    writer.beginObject();
    writePlace(writer, place);
    writer.key("source");
    writer.beginObject();
    writer.key("state");
    writer.string(state);
    writer.key("ageSeconds");
    writer.integer(static_cast<std::int64_t>(std::max(0.0, now.unixSeconds() - weather.current.dt.unixSeconds())));
    if (!reason.empty()) {
      writer.key("error");
      writer.string(reason);
    }
    writer.endObject();
    writer.key("weather");
    writer.value(parseJson(encodeOneCallWeather(weather, now)));
    writer.endObject();
  }

  // --- Places and trips ------------------------------------------------------------------------

  ApiAnswer search(const QueryParameters& query) {
    const auto text = parameter(query, "q");
    if (text.empty()) throw BadRequest("q=TEXT is needed");
    std::string body;
    JsonWriter writer(body);
    writer.beginArray();
    for (const auto& match : services.geocoder().search(text, 8)) {
      writer.beginObject();
      writer.key("name");
      writer.string(match.name);
      writer.key("admin1");
      writer.string(match.admin1);
      writer.key("country");
      writer.string(match.countryName);
      writer.key("latitude");
      writer.number(match.coordinate.latitude());
      writer.key("longitude");
      writer.number(match.coordinate.longitude());
      writer.endObject();
    }
    writer.endArray();
    return json(std::move(body));
  }

  ApiAnswer places() {
    std::string body;
    JsonWriter writer(body);
    writer.beginObject();
    writer.key("home");
    if (auto home = services.home().home()) {
      writeJson(writer, *home);
    } else {
      writer.null();
    }
    writer.key("favorites");
    writeJson(writer, services.favorites().locations());
    writer.endObject();
    return json(std::move(body));
  }

  ApiAnswer trips() {
    const auto trips = services.trips().trips();
    const auto home = services.home().home();
    const Date now = Date::fromSystem(services.clock().now());
    std::string body;
    JsonWriter writer(body);
    writer.beginObject();
    writer.key("trips");
    writeJson(writer, trips);
    // Where the user is at noon (UTC) of each of the coming 14 days.
    writer.key("days");
    writer.beginArray();
    const double today = std::floor(now.unixSeconds() / 86400.0) * 86400.0;
    for (int day = 0; day < 14; ++day) {
      const Date noon = Date::fromUnix(today + day * 86400.0 + 43200.0);
      const Trip* active = nullptr;
      for (const auto& trip : trips) {
        if (trip.dates.from <= noon && noon < trip.dates.to) active = &trip;
      }
      writer.beginObject();
      writer.key("date");
      writer.string(iso8601String(Date::fromUnix(today + day * 86400.0)).substr(0, 10));
      writer.key("place");
      if (active) {
        writer.string(active->destination.shownName());
      } else if (home) {
        writer.string(home->shownName());
      } else {
        writer.null();
      }
      writer.key("onTrip");
      writer.boolean(active != nullptr);
      writer.endObject();
    }
    writer.endArray();
    writer.endObject();
    return json(std::move(body));
  }

  // --- Tides, sun, history ---------------------------------------------------------------------

  ApiAnswer tides(const QueryParameters& query) {
    const Place place = resolvePlace(services, query);
    auto loading = services.tides().tideData(place.location.latitude(), place.location.longitude(),
                                             place.details.region.identifier);
    const auto data = services.runtime().runBlocking(std::move(loading));
    std::string body;
    JsonWriter writer(body);
    writer.beginObject();
    writePlace(writer, place);
    writer.key("tides");
    if (data) {
      writer.value(tideDataToJson(*data));
    } else {
      writer.null();
    }
    writer.endObject();
    return json(std::move(body), 600);
  }

  ApiAnswer sun(const QueryParameters& query) {
    const Place place = resolvePlace(services, query);
    auto calendar = ZonedCalendar::make(place.details.timeZone);
    const auto local = calendar ? calendar->localTime(Date::fromSystem(services.clock().now())) : std::nullopt;
    if (!local) return failure(502, "the place's calendar is unavailable");
    std::string body;
    JsonWriter writer(body);
    writer.beginObject();
    writePlace(writer, place);
    writer.key("days");
    writer.beginArray();
    for (int offset = 0; offset < 7; ++offset) {
      const CivilDate day = civilFromDays(daysFromCivil(local->date) + offset);
      const auto solar = localSolarDay(day, place.location, place.details.timeZone);
      if (!solar) continue;
      writer.beginObject();
      writer.key("date");
      writer.string(fmt::format("{:04}-{:02}-{:02}", day.year, day.month, day.day));
      writer.key("daylightState");
      writer.string(sunDaylightStateName(solar->day.daylightState));
      for (auto [name, instant] : {std::pair{"sunrise", solar->day.sunrise}, std::pair{"sunset", solar->day.sunset}}) {
        writer.key(name);
        if (instant) {
          writer.string(iso8601String(*instant));
        } else {
          writer.null();
        }
      }
      writer.key("daylightSeconds");
      if (solar->day.daylightDuration) {
        writer.number(*solar->day.daylightDuration);
      } else {
        writer.null();
      }
      writer.endObject();
    }
    writer.endArray();
    writer.endObject();
    return json(std::move(body), 3600);
  }

  ApiAnswer history(const QueryParameters& query) {
    const Place place = resolvePlace(services, query);
    const HistoryData data = services.runtime().runBlocking(services.climate().historyData(place.location));
    std::string body;
    JsonWriter writer(body);
    writer.beginObject();
    writePlace(writer, place);
    writer.key("months");
    writeJson(writer, data.data);
    writer.endObject();
    return json(std::move(body), 86400);
  }

  // --- Storms, fires, radar, land --------------------------------------------------------------

  ApiAnswer storms() {
    return memo.get("storms", std::chrono::minutes(5), [&] {
      const ActiveStormsResult result = trustedStorms(services);
      return json(stormListJson(stormListEntries(result.storms, std::nullopt, std::nullopt), result.completeCoverage,
                                currentLocale()),
                  300);
    });
  }

  ApiAnswer storm(const QueryParameters& query) {
    const std::string id(parameter(query, "id"));
    if (id.empty()) throw BadRequest("id=STORM is needed");
    return memo.get("storm:" + id, std::chrono::minutes(5), [&] {
      const ActiveStormsResult result = trustedStorms(services);
      const auto found = findStorm(result.storms, id);
      if (!found) throw NotFound(fmt::format("no active storm \"{}\"", id));
      const Date now = Date::fromSystem(services.clock().now());
      const StormOverlay overlay = services.runtime().runBlocking(loadStormOverlay(services.http(), *found, now));
      return json(stormOverlayGeoJson(*found, overlay), 300);
    });
  }

  ApiAnswer fires(const QueryParameters& query) {
    const FireMapEnvelope box = parseBox(parameter(query, "bbox"));
    return memo.get(memoKey("fires", query), std::chrono::minutes(5), [&] {
      FireMapLoader& loader = services.fireMapLoader();
      const FireMapLoad load = services.runtime().runBlocking(loader.load(box));
      const Date now = Date::fromSystem(services.clock().now());
      const FireCoordinate centre{(box.south + box.north) / 2, (box.west + box.east) / 2};
      const double radius = Location(box.south, box.west).distance(Location(box.north, box.east)) / 2000.0 + 1;
      const FireList list = fireListAround(load.data, centre, radius);
      return json(
          joinObject({{"list", fireListJson(list, load, centre, radius, now)}, {"geojson", fireListGeoJson(list)}}),
          300);
    });
  }

  RainViewerFrames radarFrames(bool reload) {
    std::lock_guard lock(radarMutex);
    if (!radar || reload) {
      auto loading = services.radar().loadRainViewerFrames(Date::fromSystem(services.clock().now()));
      radar = services.runtime().runBlocking(std::move(loading));
    }
    return *radar;
  }

  ApiAnswer radarList() {
    return memo.get("radar", std::chrono::minutes(1), [&] {
      const RainViewerFrames loaded = radarFrames(true);
      const RadarData& data = loaded.response.radar;
      const auto frames = displayedFrames(data);
      std::string body;
      JsonWriter writer(body);
      writer.beginObject();
      writer.key("source");
      writer.string(loaded.fromService ? "service" : "fallback");
      if (!loaded.fallbackReason.empty()) {
        writer.key("fallbackReason");
        writer.string(loaded.fallbackReason);
      }
      writer.key("maximumZoom");
      writer.integer(kRainViewerMaximumZoom);
      writer.key("nowIndex");
      writer.integer(data.past.empty() ? 0 : static_cast<std::int64_t>(data.past.size() - 1));
      writer.key("frames");
      writer.beginArray();
      for (std::size_t i = 0; i < frames.size(); ++i) {
        const auto time = static_cast<std::int64_t>(frames[i].time.unixSeconds());
        writer.beginObject();
        writer.key("time");
        writer.string(iso8601String(frames[i].time));
        writer.key("kind");
        writer.string(i < data.past.size() ? "past" : "nowcast");
        writer.key("tiles");
        writer.string(fmt::format("/tiles/radar/{}/{{z}}/{{x}}/{{y}}.png", time));
        writer.endObject();
      }
      writer.endArray();
      writer.endObject();
      return json(std::move(body), 60);
    });
  }

  // /tiles/radar/T/Z/X/Y.png: only tiles of listed frames, inside the world, up to the
  // service's zoom.
  ApiAnswer radarTile(std::string_view rest) {
    long long parts[4];
    for (int i = 0; i < 4; ++i) {
      const auto slash = rest.find(i < 3 ? '/' : '.');
      const auto text = rest.substr(0, slash);
      const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parts[i]);
      if (slash == std::string_view::npos || error != std::errc() || end != text.data() + text.size()) {
        throw BadRequest("radar tiles are /tiles/radar/TIME/Z/X/Y.png");
      }
      rest = rest.substr(slash + 1);
    }
    if (rest != "png") throw BadRequest("radar tiles are /tiles/radar/TIME/Z/X/Y.png");
    const auto [time, z, x, y] = std::tuple(parts[0], parts[1], parts[2], parts[3]);
    if (z < 0 || z > kRainViewerMaximumZoom || x < 0 || y < 0 || x >= (1LL << z) || y >= (1LL << z)) {
      throw BadRequest(
          fmt::format("no tile {}/{}/{} (zoom 0...{}, x and y inside the world)", z, x, y, kRainViewerMaximumZoom));
    }
    std::optional<std::string> found;
    for (bool reload : {false, true}) {
      const RainViewerFrames loaded = radarFrames(reload);
      for (const auto& frame : displayedFrames(loaded.response.radar)) {
        if (static_cast<long long>(frame.time.unixSeconds()) == time) {
          found = rainViewerTileTemplate(loaded.response.host, frame.path);
        }
      }
      if (found) break;
    }
    if (!found) throw NotFound(fmt::format("no radar frame at {}", time));
    auto replace = [&](std::string_view name, long long value) {
      if (const auto at = found->find(name); at != std::string::npos)
        found->replace(at, name.size(), std::to_string(value));
    };
    replace("{z}", z);
    replace("{x}", x);
    replace("{y}", y);
    HttpRequest request;
    request.url = boost::urls::url(*found);
    request.timeout = std::chrono::seconds(20);
    const HttpResponse response = services.runtime().runBlocking(services.cachedHttp().send(request));
    if (response.status != 200) return failure(502, fmt::format("the radar service answered {}", response.status));
    return ApiAnswer{200, response.header("Content-Type").value_or("image/png"), response.body, 600};
  }

  ApiAnswer land(const QueryParameters& query) {
    const FireMapEnvelope box = parseBox(parameter(query, "bbox"));
    const auto zoomText = parameter(query, "zoom");
    const int zoom = zoomText.empty() ? 3 : static_cast<int>(number(zoomText, "zoom"));
    const auto index = sharedCoastTileIndex();
    if (!index) return failure(502, "the coastline data is missing (resources/coastline)");
    return memo.get(memoKey("land", query), std::chrono::hours(24), [&] {
      try {
        return json(landLinesGeoJson(*index, LandBox{box.west, box.south, box.east, box.north}, zoom), 86400);
      } catch (const std::invalid_argument& error) {
        throw BadRequest(error.what());
      }
    });
  }

  ApiAnswer threats(const QueryParameters& query) {
    const Place place = resolvePlace(services, query);
    const auto radiusText = parameter(query, "radius");
    const double radius = radiusText.empty() ? kDefaultThreatRadiusKilometres : number(radiusText, "radius");
    if (!(radius >= 1 && radius <= 2000)) throw BadRequest("radius must be 1 to 2000 km");
    const PlaceThreats found = gatherThreats(services, place.name, place.location, place.details, radius);
    return json(threatsJson(found));
  }

  ApiAnswer route(std::string_view path, const QueryParameters& query) {
    if (path == "/api/forecast") return forecast(query);
    if (path == "/api/search") return search(query);
    if (path == "/api/places") return places();
    if (path == "/api/trips") return trips();
    if (path == "/api/tides") return tides(query);
    if (path == "/api/sun") return sun(query);
    if (path == "/api/history") return history(query);
    if (path == "/api/storms") return storms();
    if (path == "/api/storm") return storm(query);
    if (path == "/api/fires") return fires(query);
    if (path == "/api/radar") return radarList();
    if (path == "/api/land") return land(query);
    if (path == "/api/threats") return threats(query);
    if (path.starts_with("/tiles/radar/")) return radarTile(path.substr(13));
    return failure(404, fmt::format("no such address: {}", path));
  }
};

Api::Api(Services& services) : state_(std::make_unique<State>(services)) {}
Api::~Api() = default;

bool Api::serves(std::string_view path) noexcept {
  return path.starts_with("/api/") || path.starts_with("/tiles/radar/");
}

ApiAnswer Api::handle(std::string_view path, const QueryParameters& query) {
  try {
    return state_->route(path, query);
  } catch (const BadRequest& error) {
    return failure(400, error.what());
  } catch (const InvalidPlaceQuery& error) {
    return failure(400, error.what());
  } catch (const NotFound& error) {
    return failure(404, error.what());
  } catch (const DomainError& error) {
    if (error.domain() == kNoResultErrorDomain) return failure(404, "nothing is known at that place");
    return failure(502, error.detail().empty() ? error.what() : error.detail());
  } catch (...) {
    return failure(502, exceptionMessage(std::current_exception()));
  }
}

}  // namespace ombrine::web
