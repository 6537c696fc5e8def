#pragma once
// The JSON API of the local web page over the library, one answer per request.
//
// Paths (all GET; places are `q=NAME` or `at=LAT,LON`):
//   /api/search?q=TEXT            places whose name starts with TEXT
//   /api/forecast?q|at            the place's forecast record and its state (live or stale)
//   /api/places                   the home place and the saved places
//   /api/trips                    the trips, and where the user is on each of the coming days
//   /api/tides?q|at               the nearest tide station's predictions (null: none)
//   /api/storms                   active tropical storms and the basins answered in full
//   /api/storm?id=ID              one storm's cone and tracks as GeoJSON
//   /api/fires?bbox=W,S,E,N       incidents and perimeters in a box, and each service's state
//   /api/radar                    the radar frames, each with the local tile address
//   /api/land?bbox=W,S,E,N&zoom=Z the shore lines of the base map (GeoJSON)
//   /api/sun?q|at                 sunrise, sunset and daylight of the coming week
//   /api/history?q|at             the monthly climate normals
//   /api/threats?q|at[&radius=KM] fires, storms, warnings and rain near the place
//   /tiles/radar/T/Z/X/Y.png      one radar tile of the frame taken at Unix time T
//
// Bad input answers 400, an unknown path or place 404, a failed outside service 502; the body
// of every failure is {"error": "<sentence>"}. Answers of the slow outside services are kept
// for a short while (storms and fires 5 min, radar frames 1 min), so a page that polls does not
// multiply requests.
//
// Thread-safe: handlers run on the server's threads, several at once; each blocks on the
// runtime for its outside requests (never call from a runtime thread).

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "wiring/services.hpp"

namespace ombrine::web {

using QueryParameters = std::map<std::string, std::string, std::less<>>;

struct ApiAnswer {
  int status = 200;
  std::string contentType = "application/json";
  std::string body;
  // Seconds a browser may keep the answer; 0: "no-store".
  int maxAgeSeconds = 0;
};

class Api {
 public:
  explicit Api(Services& services);
  ~Api();
  Api(const Api&) = delete;
  Api& operator=(const Api&) = delete;

  // Never raises: every failure is an answer.
  ApiAnswer handle(std::string_view path, const QueryParameters& query);

  // True for paths this API serves (the server refuses everything else but the page).
  static bool serves(std::string_view path) noexcept;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace ombrine::web
