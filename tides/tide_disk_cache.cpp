#include "tides/tide_disk_cache.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <algorithm>
#include <system_error>

#include <fmt/format.h>

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include "core/record/tide_records_json.hpp"
#include "core/values/errors.hpp"
#include "core/values/iso8601.hpp"
#include "core/values/value_json.hpp"
#include "platform/atomic_file.hpp"
#include "platform/paths.hpp"

namespace ombrine {

namespace json = boost::json;

namespace {

// Whole seconds: the file keeps what ISO 8601 text without a fraction can hold.
json::value dateText(Date date) { return json::value(iso8601String(date, false)); }

Date readDate(const TideJsonObject& o, std::string_view key) {
  const std::string text = o.string(key);
  const auto date = parseInternetDateTime(text, false);
  if (!date) o.fail(key, "Invalid ISO8601 date: " + text);
  return *date;
}

template <class List>
std::string encodeStations(const List& stations, Date expiresAt,
                           json::object (*toJson)(const typename List::value_type&)) {
  json::array list;
  list.reserve(stations.size());
  for (const auto& station : stations) list.push_back(toJson(station));
  json::object payload;
  payload["stations"] = std::move(list);
  payload["expiresAt"] = dateText(expiresAt);
  return serializeJson(payload);
}

}  // namespace

std::string encodeTideDataPayload(const TideData& data, Date expiresAt) {
  json::array extremes;
  extremes.reserve(data.extremes.size());
  for (const auto& extreme : data.extremes) {
    extremes.push_back(json::object{{"date", dateText(extreme.date)},
                                    {"heightMeters", extreme.height.inMeters()},
                                    {"kind", toString(extreme.kind)}});
  }
  json::array points;
  points.reserve(data.chartPoints.size());
  for (const auto& point : data.chartPoints) {
    points.push_back(json::object{{"date", dateText(point.date)}, {"heightMeters", point.height.inMeters()}});
  }
  json::object payload;
  payload["station"] = tideStationToJson(data.station);
  payload["distance"] = data.distance;
  payload["extremes"] = std::move(extremes);
  payload["chartPoints"] = std::move(points);
  payload["fetchedAt"] = dateText(data.fetchedAt);
  payload["expiresAt"] = dateText(expiresAt);
  return serializeJson(payload);
}

TideDiskCache::LoadedTideData decodeTideDataPayload(std::string_view text, double distance) {
  const json::value document = parseJson(text);
  const TideJsonObject o(document, "");
  TideDiskCache::LoadedTideData loaded;
  TideData& data = loaded.data;
  data.station = decodeTideStation(o.require("station"), o.pathOf("station"));
  o.number("distance");  // stored for inspection; the caller's distance is the one served
  data.distance = distance;
  const auto& extremes = o.array("extremes");
  const std::string extremesPath = o.pathOf("extremes");
  for (size_t i = 0; i < extremes.size(); ++i) {
    const TideJsonObject e(extremes[i], indexPath(extremesPath, i));
    const std::string kindText = e.string("kind");
    const auto kind = tideExtremeKindFromString(kindText);
    if (!kind) e.fail("kind", "unknown tide kind \"" + kindText + "\"");
    data.extremes.push_back({readDate(e, "date"), Length::meters(e.number("heightMeters")), *kind});
  }
  const auto& points = o.array("chartPoints");
  const std::string pointsPath = o.pathOf("chartPoints");
  for (size_t i = 0; i < points.size(); ++i) {
    const TideJsonObject p(points[i], indexPath(pointsPath, i));
    data.chartPoints.push_back({readDate(p, "date"), Length::meters(p.number("heightMeters"))});
  }
  std::stable_sort(data.extremes.begin(), data.extremes.end(), tideExtremeLess);
  std::stable_sort(data.chartPoints.begin(), data.chartPoints.end(), tideChartPointLess);
  data.fetchedAt = readDate(o, "fetchedAt");
  loaded.expiresAt = readDate(o, "expiresAt");
  return loaded;
}

TideDiskCache::TideDiskCache(Strand strand, const Clock& clock, std::filesystem::path directory)
    : strand_(std::move(strand)), clock_(clock), directory_(std::move(directory)) {
  std::error_code ignored;
  std::filesystem::create_directories(directory_, ignored);
}

TideDiskCache::TideDiskCache(Strand strand, const Clock& clock)
    : TideDiskCache(std::move(strand), clock, cachesDirectory() / "Tides") {}

std::string TideDiskCache::fileName(std::string_view key) {
  std::string name;
  int32_t at = 0;
  const auto length = static_cast<int32_t>(key.size());
  while (at < length) {
    const int32_t start = at;
    UChar32 c = 0;
    U8_NEXT(key.data(), at, length, c);
    if (c >= 0 && (u_isalnum(c) || c == '-' || c == '_')) {
      name.append(key.substr(static_cast<size_t>(start), static_cast<size_t>(at - start)));
    } else {
      name.push_back('_');
    }
  }
  return name;
}

std::filesystem::path TideDiskCache::fileURL(std::string_view key) const {
  return directory_ / (fileName(key) + ".json");
}

TideDiskCache::~TideDiskCache() {
  std::lock_guard writing(pending_->writing);
  for (;;) {
    std::function<void()> write;
    {
      std::lock_guard guard(pending_->mutex);
      if (pending_->queue.empty()) return;
      write = std::move(pending_->queue.front());
      pending_->queue.pop_front();
    }
    write();
  }
}

void TideDiskCache::PendingWrites::writeOldest() {
  std::lock_guard hold(writing);
  std::function<void()> write;
  {
    std::lock_guard guard(mutex);
    if (queue.empty()) return;  // the destructor wrote it
    write = std::move(queue.front());
    queue.pop_front();
  }
  write();
}

void TideDiskCache::reportWriteFailures(std::function<void(std::string_view)> report) {
  std::lock_guard guard(pending_->mutex);
  pending_->report = std::move(report);
}

void TideDiskCache::enqueueWrite(std::filesystem::path file, std::function<std::string()> encode) {
  std::weak_ptr<PendingWrites> weak = pending_;
  auto write = [file = std::move(file), encode = std::move(encode), weak] {
    try {
      writeFileAtomically(file, encode());
    } catch (const std::exception& error) {
      // A cache that cannot be written only costs a refetch later; the old file stays.
      std::function<void(std::string_view)> report;
      if (auto pending = weak.lock()) {
        std::lock_guard guard(pending->mutex);
        report = pending->report;
      }
      if (report) report(fmt::format("Could not write the tide cache {}: {}", file.string(), error.what()));
    }
  };
  {
    std::lock_guard guard(pending_->mutex);
    pending_->queue.emplace_back(std::move(write));
  }
  asio::post(strand_, [pending = pending_] { pending->writeOldest(); });
}

Task<std::optional<std::string>> TideDiskCache::read(std::filesystem::path file) {
  auto readOnStrand = [](std::filesystem::path path) -> Task<std::optional<std::string>> {
    try {
      co_return readFileIfExists(path);
    } catch (const FileError&) {
      co_return std::nullopt;
    }
  };
  auto task = readOnStrand(std::move(file));
  co_return co_await asio::co_spawn(strand_, std::move(task), asio::use_awaitable);
}

void TideDiskCache::saveTideData(const TideData& data, std::string_view key, double validitySeconds) {
  const Date expiresAt = Date::fromSystem(clock_.now()) + validitySeconds;
  auto encode = [data, expiresAt] { return encodeTideDataPayload(data, expiresAt); };
  enqueueWrite(fileURL(key), std::move(encode));
}

Task<std::optional<TideDiskCache::LoadedTideData>> TideDiskCache::loadTideData(std::string key, double distance) {
  const auto text = co_await read(fileURL(key));
  if (!text) co_return std::nullopt;
  try {
    co_return decodeTideDataPayload(*text, distance);
  } catch (const DecodingError&) {
    co_return std::nullopt;
  }
}

void TideDiskCache::saveNOAAStations(std::vector<TideStation> stations, Date expiresAt) {
  auto encode = [stations = std::move(stations), expiresAt] {
    return encodeStations(stations, expiresAt, tideStationToJson);
  };
  enqueueWrite(fileURL(kNOAAStationsName), std::move(encode));
}

void TideDiskCache::saveCHSStations(std::vector<CHSStation> stations, Date expiresAt) {
  auto encode = [stations = std::move(stations), expiresAt] {
    return encodeStations(stations, expiresAt, chsStationToJson);
  };
  enqueueWrite(fileURL(kCHSStationsName), std::move(encode));
}

// A catalogue file: {"stations": [...], "expiresAt"}; nothing when it is missing or bad.
template <class Loaded, class DecodeList>
Task<std::optional<Loaded>> TideDiskCache::loadCatalogue(const char* name, DecodeList decodeList) {
  const auto text = co_await read(fileURL(name));
  if (!text) co_return std::nullopt;
  try {
    const json::value document = parseJson(*text);
    const TideJsonObject o(document, "");
    co_return Loaded{decodeList(o.require("stations"), "stations"), readDate(o, "expiresAt")};
  } catch (const DecodingError&) {
    co_return std::nullopt;
  }
}

Task<std::optional<TideDiskCache::LoadedNOAAStations>> TideDiskCache::loadNOAAStations() {
  return loadCatalogue<LoadedNOAAStations>(kNOAAStationsName, decodeTideStationList);
}

Task<std::optional<TideDiskCache::LoadedCHSStations>> TideDiskCache::loadCHSStations() {
  return loadCatalogue<LoadedCHSStations>(kCHSStationsName, decodeCHSStationList);
}

}  // namespace ombrine
