#include "sim/storm_routes.hpp"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include <fmt/format.h>

#include <cmath>
#include <numbers>

#include "platform/compass_points.hpp"
#include "sim/json_writer.hpp"
#include "sim/storm_season.hpp"
#include "sim/zip_writer.hpp"

namespace ombrine::sim {

namespace {

namespace json = boost::json;

constexpr const char* kMonthNames[] = {"January", "February", "March",     "April",   "May",      "June",
                                       "July",    "August",   "September", "October", "November", "December"};
constexpr const char* kMonthAbbreviations[] = {"JAN", "FEB", "MAR", "APR", "MAY", "JUN",
                                               "JUL", "AUG", "SEP", "OCT", "NOV", "DEC"};
constexpr const char* kWeekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

struct Civil {
  int year, month, day, hour, minute, weekday;
};

Civil civil(Instant instant) {
  const auto day = std::chrono::floor<std::chrono::days>(instant);
  const std::chrono::year_month_day ymd(day);
  const std::chrono::hh_mm_ss time(instant - day);
  return Civil{static_cast<int>(ymd.year()),
               static_cast<int>(unsigned(ymd.month())),
               static_cast<int>(unsigned(ymd.day())),
               static_cast<int>(time.hours().count()),
               static_cast<int>(time.minutes().count()),
               static_cast<int>(std::chrono::weekday(day).c_encoding())};
}

std::string ddhhmm(Instant instant) {
  const Civil c = civil(instant);
  return fmt::format("{:02}{:02}{:02}", c.day, c.hour, c.minute);
}

// "12:00 PM UTC August 17, 2026", as the NHC track descriptions say "Valid at:".
std::string validAt(Instant instant) {
  const Civil c = civil(instant);
  const int hour12 = c.hour % 12 == 0 ? 12 : c.hour % 12;
  return fmt::format("{}:{:02} {} UTC {} {:02}, {}", hour12, c.minute, c.hour < 12 ? "AM" : "PM",
                     kMonthNames[c.month - 1], c.day, c.year);
}

// "0600 UTC AUG 16 2026", as best-track placemarks give their time.
std::string bestTrackTime(Instant instant) {
  const Civil c = civil(instant);
  return fmt::format("{:02}{:02} UTC {} {} {}", c.hour, c.minute, kMonthAbbreviations[c.month - 1], c.day, c.year);
}

std::string rssDate(Instant instant) {
  const Civil c = civil(instant);
  return fmt::format("{}, {:02} {} {} {:02}:{:02}:00 +0000", kWeekdays[c.weekday], c.day,
                     std::string(kMonthNames[c.month - 1]).substr(0, 3), c.year, c.hour, c.minute);
}

std::string compassWord(double heading) {
  static constexpr const char* kPoints[] = {// clang-format off
      "NORTH", "NORTH-NORTHEAST", "NORTHEAST", "EAST-NORTHEAST", "EAST", "EAST-SOUTHEAST", "SOUTHEAST", "SOUTH-SOUTHEAST",
      "SOUTH", "SOUTH-SOUTHWEST", "SOUTHWEST", "WEST-SOUTHWEST", "WEST", "WEST-NORTHWEST", "NORTHWEST", "NORTH-NORTHWEST"};
                                            // clang-format on
  return kPoints[nearestCompassIndex(heading)];
}

int mph(int knots) { return static_cast<int>(std::lround(knots * 1.15078 / 5.0)) * 5; }

std::string nhcTag(int windKt) {
  if (windKt >= 137) return "HU5";
  if (windKt >= 113) return "HU4";
  if (windKt >= 96) return "HU3";
  if (windKt >= 83) return "HU2";
  if (windKt >= 64) return "HU1";
  return windKt >= 34 ? "TS" : "TD";
}

std::string nhcKind(int windKt) {
  if (windKt >= 64) return "Hurricane";
  return windKt >= 34 ? "Tropical Storm" : "Tropical Depression";
}

std::string jtwcKind(const SimStorm& storm, int windKt) {
  if (windKt < 34) return "TROPICAL DEPRESSION";
  if (windKt < 64) return "TROPICAL STORM";
  if (storm.basin == "WP") return windKt >= 130 ? "SUPER TYPHOON" : "TYPHOON";
  if (storm.basin == "SH") return "TROPICAL CYCLONE";
  return "HURRICANE";
}

char jtwcSuffix(const std::string& basin) {
  if (basin == "WP") return 'W';
  if (basin == "CP") return 'C';
  if (basin == "EP") return 'E';
  return 'S';
}

std::string latitudeText(double latitude) {
  return fmt::format("{:.1f}{}", std::abs(latitude), latitude < 0 ? 'S' : 'N');
}
std::string longitudeText(double longitude) {
  return fmt::format("{:.1f}{}", std::abs(longitude), longitude < 0 ? 'W' : 'E');
}

std::string coordinate(double latitude, double longitude) {
  return fmt::format("{:.2f},{:.2f},0", longitude, latitude);
}

std::string baseOf(const SimRequest& request) {
  return "http://" + (request.host.empty() ? std::string("127.0.0.1") : request.host);
}

std::string binNumber(const SimStorm& storm) {
  return fmt::format("{}{}", storm.basin == "AL" ? "AT" : storm.basin,
                     *storm.nhcNumber % 10 == 0 ? 5 : *storm.nhcNumber % 10);
}

std::string upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

SimResponse kmz(std::string kml) {
  return SimResponse{.status = 200,
                     .contentType = "application/vnd.google-earth.kmz",
                     .body = storedZip({{"doc.kml", std::move(kml)}}),
                     .headers = {}};
}

SimResponse notFound(const char* what) {
  return SimResponse{.status = 404,
                     .contentType = "text/html",
                     .body = fmt::format("<html><body><h1>404</h1><p>{}</p></body></html>", what),
                     .headers = {}};
}

const SimStorm* findNHC(const std::vector<SimStorm>& storms, const std::string& id) {
  for (const auto& storm : storms) {
    if (storm.nhcNumber && lower(storm.nhcID()) == lower(id)) return &storm;
  }
  return nullptr;
}

const SimStorm* findJTWC(const std::vector<SimStorm>& storms, const std::string& slug) {
  for (const auto& storm : storms) {
    if (storm.jtwcNumber && storm.jtwcSlug() == slug) return &storm;
  }
  return nullptr;
}

// -- Shapes ----------------------------------------------------------------------------------

struct Point {
  double latitude, longitude;  // longitude continuous along the track
};

Point offset(Point from, double bearing, double nm) {
  const double rad = bearing * std::numbers::pi / 180.0;
  const double latitude = from.latitude + nm * std::cos(rad) / 60.0;
  const double longitude =
      from.longitude + nm * std::sin(rad) / (60.0 * std::cos(from.latitude * std::numbers::pi / 180.0));
  return Point{latitude, longitude};
}

double bearingBetween(Point a, Point b) {
  const double dx = (b.longitude - a.longitude) * std::cos(a.latitude * std::numbers::pi / 180.0);
  const double dy = b.latitude - a.latitude;
  return std::fmod(std::atan2(dx, dy) * 180.0 / std::numbers::pi + 360.0, 360.0);
}

double wrap(double longitude) {
  double reduced = std::fmod(longitude + 180.0, 360.0);
  if (reduced < 0) reduced += 360.0;
  return reduced - 180.0;
}

// The cone: left edge forward, a cap round the last point, right edge back.
std::string conePolygon(const SimStorm& storm) {
  std::vector<Point> points{{storm.current.latitude, storm.current.longitude}};
  std::vector<double> radii{15.0};
  for (const auto& [ahead, fix] : storm.forecast) {
    double longitude = fix.longitude;
    while (longitude - points.back().longitude > 180) longitude -= 360;
    while (longitude - points.back().longitude < -180) longitude += 360;
    points.push_back({fix.latitude, longitude});
    radii.push_back(15.0 + ahead * 1.6);
  }
  std::vector<Point> ring;
  std::vector<Point> right;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const double heading = points.size() < 2       ? storm.current.heading
                           : i + 1 < points.size() ? bearingBetween(points[i], points[i + 1])
                                                   : bearingBetween(points[i - 1], points[i]);
    ring.push_back(offset(points[i], heading - 90.0, radii[i]));
    right.push_back(offset(points[i], heading + 90.0, radii[i]));
    if (i + 1 == points.size()) {
      for (int step = 1; step < 6; ++step) ring.push_back(offset(points[i], heading - 90.0 + step * 30.0, radii[i]));
    }
  }
  ring.insert(ring.end(), right.rbegin(), right.rend());
  ring.push_back(ring.front());
  std::string text;
  for (const auto& p : ring) text += fmt::format("{:.2f},{:.2f},0 ", wrap(p.longitude), p.latitude);
  return text;
}

std::string kmlDocument(const std::string& name, const std::string& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<kml "
         "xmlns=\"http://www.opengis.net/kml/2.2\">\n<Document><name>" +
         name + "</name>\n" + body + "</Document>\n</kml>\n";
}

std::string pointPlacemark(const std::string& name, const std::string& description, const std::string& tag,
                           const SimStormFix& fix) {
  return fmt::format(
      "<Placemark><name>{}</name><styleUrl>#{}_point</styleUrl><description><![CDATA[{}]]></description>"
      "<ExtendedData><Data name=\"stormType\"><value>{}</value></Data></ExtendedData>"
      "<Point><coordinates>{}</coordinates></Point></Placemark>\n",
      name, lower(tag.substr(0, 2)), description, tag, coordinate(fix.latitude, fix.longitude));
}

std::string lineOf(const std::vector<SimStormFix>& fixes) {
  std::string text;
  for (const auto& fix : fixes) text += coordinate(fix.latitude, fix.longitude) + " ";
  return text;
}

std::string nhcPointDescription(const SimStorm& storm, const SimStormFix& fix, const std::string& when) {
  return fmt::format(
      "<table><tr><td><b>{} {}</b></td></tr><tr><td>{}</td></tr><tr><td>Valid at: {}</td></tr>"
      "<tr><td>Maximum Wind: {} knots ({} mph)</td></tr><tr><td>Wind Gusts: {} knots ({} mph)</td></tr>"
      "<tr><td>Minimum Pressure: {} mb</td></tr><tr><td>MOVING {} AT {} KNOTS</td></tr></table>",
      nhcKind(fix.windKt), storm.name, when, validAt(fix.time), fix.windKt, mph(fix.windKt), fix.gustKt,
      mph(fix.gustKt), fix.pressureMb, compassWord(fix.heading), static_cast<int>(fix.speedKt));
}

std::string nhcTrackKml(const SimStorm& storm) {
  std::vector<SimStormFix> line{storm.current};
  for (const auto& [ahead, fix] : storm.forecast) line.push_back(fix);
  std::string body = "<Placemark><name>Storm Track</name><LineString><coordinates>" + lineOf(line) +
                     "</coordinates></LineString></Placemark>\n";
  body += pointPlacemark(nhcKind(storm.current.windKt) + " " + storm.name + " Current Position",
                         nhcPointDescription(storm, storm.current, "Current Position"), nhcTag(storm.current.windKt),
                         storm.current);
  for (const auto& [ahead, fix] : storm.forecast) {
    const std::string when = fmt::format("{} hr Forecast", ahead);
    body += pointPlacemark(nhcKind(fix.windKt) + " " + storm.name + " " + when, nhcPointDescription(storm, fix, when),
                           nhcTag(fix.windKt), fix);
  }
  return kmlDocument(upper(storm.nhcID()) + " Advisory " + std::to_string(storm.advisoryNumber) + " Forecast Track",
                     body);
}

std::string nhcConeKml(const SimStorm& storm) {
  return kmlDocument(upper(storm.nhcID()) + " Cone",
                     "<Placemark><name>Cone of Uncertainty</name><Polygon><outerBoundaryIs><LinearRing><coordinates>" +
                         conePolygon(storm) + "</coordinates></LinearRing></outerBoundaryIs></Polygon></Placemark>\n");
}

std::string nhcBestTrackKml(const SimStorm& storm) {
  std::string body = "<Placemark><name>" + storm.name + " Best Track</name><LineString><coordinates>" +
                     lineOf(storm.history) + "</coordinates></LineString></Placemark>\n";
  for (const auto& fix : storm.history) {
    const std::string description = fmt::format(
        "<b>{} {}</b><br>{}<br>Maximum Wind: {} knots ({} mph)<br>Minimum Pressure: {} mb", nhcKind(fix.windKt),
        storm.name, bestTrackTime(fix.time), fix.windKt, mph(fix.windKt), fix.pressureMb);
    body += pointPlacemark(storm.name, description, nhcTag(fix.windKt), fix);
  }
  return kmlDocument(upper(storm.nhcID()) + " Best Track", body);
}

std::string jtwcKml(const SimStorm& storm) {
  const std::string label = fmt::format("{:02}{}", *storm.jtwcNumber, jtwcSuffix(storm.basin));
  std::string body = "<Placemark><name>" + label +
                     " Forecast Cone</name><Polygon><outerBoundaryIs><LinearRing><coordinates>" + conePolygon(storm) +
                     "</coordinates></LinearRing></outerBoundaryIs></Polygon></Placemark>\n";
  std::string radius;
  for (int step = 0; step <= 12; ++step) {
    const Point p = offset({storm.current.latitude, storm.current.longitude}, step * 30.0, 60.0);
    radius += fmt::format("{:.2f},{:.2f},0 ", wrap(p.longitude), p.latitude);
  }
  body += "<Placemark><name>RADIUS OF 034 KT WINDS</name><Polygon><outerBoundaryIs><LinearRing><coordinates>" + radius +
          "</coordinates></LinearRing></outerBoundaryIs></Polygon></Placemark>\n";
  std::vector<SimStormFix> line(storm.history);
  for (const auto& [ahead, fix] : storm.forecast) line.push_back(fix);
  body += "<Placemark><name>" + label + " STORM TRACK</name><LineString><coordinates>" + lineOf(line) +
          "</coordinates></LineString></Placemark>\n";
  for (std::size_t i = 0; i + 1 < storm.history.size(); ++i) {
    const auto& fix = storm.history[i];
    const Civil c = civil(fix.time);
    body += pointPlacemark(
        label,
        fmt::format("POSITION AT {:04}{:02}{:02}{:02}Z INTENSITY {} KT", c.year, c.month, c.day, c.hour, fix.windKt),
        nhcTag(fix.windKt), fix);
  }
  body +=
      pointPlacemark(label + " TAU 0 CURRENT POSITION",
                     fmt::format("{}Z INTENSITY {} KT MOVING {} AT {} KNOTS MINIMUM SEA LEVEL PRESSURE {} MB",
                                 ddhhmm(storm.current.time), storm.current.windKt, compassWord(storm.current.heading),
                                 static_cast<int>(storm.current.speedKt), storm.current.pressureMb),
                     nhcTag(storm.current.windKt), storm.current);
  for (const auto& [ahead, fix] : storm.forecast) {
    body += pointPlacemark(fmt::format("{} TAU {}", label, ahead),
                           fmt::format("{}Z INTENSITY {} KT", ddhhmm(fix.time), fix.windKt), nhcTag(fix.windKt), fix);
  }
  return kmlDocument(storm.jtwcSlug() + " warning graphic", body);
}

std::string jtwcWarning(const SimStorm& storm) {
  const bool invest = *storm.jtwcNumber >= 90;
  const std::string label = fmt::format("{:02}{}", *storm.jtwcNumber, jtwcSuffix(storm.basin));
  const SimStormFix& now = storm.current;
  const std::string kind = jtwcKind(storm, now.windKt);
  const std::string subject =
      invest ? "TROPICAL CYCLONE FORMATION ALERT (INVEST " + label + ")"
             : fmt::format("{} {} ({}) WARNING NR {:03}", kind, label, upper(storm.name), storm.advisoryNumber);
  std::string text =
      fmt::format("WTPN3{} PGTW {}\nMSGID/GENADMIN/JOINT TYPHOON WRNCEN PEARL HARBOR HI//\nSUBJ/{}//\nRMKS/\n",
                  *storm.jtwcNumber % 10, ddhhmm(now.time + std::chrono::hours(3)), subject);
  text += fmt::format("1. {}\n   MAX SUSTAINED WINDS BASED ON ONE-MINUTE AVERAGE\n    ---\n   WARNING POSITION:\n",
                      subject);
  text += fmt::format("   {}Z --- NEAR {} {}\n", ddhhmm(now.time), latitudeText(now.latitude),
                      longitudeText(now.longitude));
  text += fmt::format("     MOVEMENT PAST SIX HOURS - {:03} DEGREES AT {:02} KTS\n",
                      static_cast<int>(std::lround(now.heading)) % 360, static_cast<int>(now.speedKt));
  text += fmt::format("   PRESENT WIND DISTRIBUTION:\n   MAX SUSTAINED WINDS - {:03} KT, GUSTS {:03} KT\n", now.windKt,
                      now.gustKt);
  text += fmt::format("   REPEAT POSIT: {} {}\n    ---\n   FORECASTS:\n", latitudeText(now.latitude),
                      longitudeText(now.longitude));
  for (const auto& [ahead, fix] : storm.forecast) {
    text += fmt::format(
        "   {} HRS, VALID AT:\n   {}Z --- {} {}\n   MAX SUSTAINED WINDS - {:03} KT, GUSTS {:03} KT\n    ---\n", ahead,
        ddhhmm(fix.time), latitudeText(fix.latitude), longitudeText(fix.longitude), fix.windKt, fix.gustKt);
  }
  text +=
      fmt::format("REMARKS:\nMINIMUM CENTRAL PRESSURE AT {}Z IS {} MB.\n//\nNNNN\n", ddhhmm(now.time), now.pressureMb);
  return text;
}

// -- Answers ---------------------------------------------------------------------------------

SimResponse nhcStorms(const SimRequest& request) {
  const std::string base = baseOf(request);
  json::array list;
  for (const auto& storm : simulatedStorms(request.now)) {
    if (!storm.nhcNumber) continue;
    const std::string id = storm.nhcID();
    const std::string upperID = upper(id);
    const std::string advisory = formatUtc(storm.current.time + std::chrono::hours(3), true);
    const std::string adv = fmt::format("{:03}", storm.advisoryNumber);
    const std::string product = (storm.basin == "CP" ? "HFOTCP" : "MIATCP") + binNumber(storm);
    json::object entry;
    entry["id"] = id;
    entry["binNumber"] = binNumber(storm);
    entry["name"] = storm.name;
    entry["classification"] = storm.classification();
    entry["intensity"] = std::to_string(storm.current.windKt);
    entry["pressure"] = std::to_string(storm.current.pressureMb);
    entry["latitude"] = latitudeText(storm.current.latitude);
    entry["longitude"] = longitudeText(storm.current.longitude);
    entry["latitudeNumeric"] = storm.current.latitude;
    entry["longitudeNumeric"] = storm.current.longitude;
    entry["movementDir"] = static_cast<int>(std::lround(storm.current.heading)) % 360;
    entry["movementSpeed"] = static_cast<int>(storm.current.speedKt);
    entry["lastUpdate"] = formatUtc(storm.current.time, true);
    entry["publicAdvisory"] = json::object{{"advNum", std::to_string(storm.advisoryNumber)},
                                           {"issuance", advisory},
                                           {"fileUpdateTime", advisory},
                                           {"url", base + "/nhc/text/" + product + ".shtml"}};
    entry["forecastTrack"] =
        json::object{{"advNum", adv},
                     {"issuance", advisory},
                     {"fileUpdateTime", advisory},
                     {"zipFile", base + "/nhc/storm_graphics/api/" + upperID + "_" + adv + "adv_TRACK.zip"},
                     {"kmzFile", base + "/nhc/storm_graphics/api/" + upperID + "_" + adv + "adv_TRACK.kmz"}};
    entry["trackCone"] =
        json::object{{"advNum", adv},
                     {"issuance", advisory},
                     {"fileUpdateTime", advisory},
                     {"zipFile", base + "/nhc/storm_graphics/api/" + upperID + "_" + adv + "adv_CONE.zip"},
                     {"kmzFile", base + "/nhc/storm_graphics/api/" + upperID + "_" + adv + "adv_CONE.kmz"}};
    entry["bestTrackGIS"] = json::object{{"fileUpdateTime", advisory},
                                         {"zipFile", base + "/nhc/gis/best_track/" + id + "_best_track.zip"},
                                         {"kmzFile", base + "/nhc/gis/best_track/" + id + "_best_track.kmz"}};
    list.push_back(std::move(entry));
  }
  json::object document;
  document["activeStorms"] = std::move(list);
  return SimResponse{.status = 200, .contentType = "application/json", .body = writeJson(document), .headers = {}};
}

SimResponse nhcAdvisory(const SimRequest& request) {
  for (const auto& storm : simulatedStorms(request.now)) {
    if (!storm.nhcNumber) continue;
    const std::string product = (storm.basin == "CP" ? "HFOTCP" : "MIATCP") + binNumber(storm);
    if (product != request.captures[0]) continue;
    const std::string body =
        fmt::format("{} {} Advisory Number {}\n...{} MOVING {} AT {} KT...\nMAXIMUM SUSTAINED WINDS {} KT\n",
                    nhcKind(storm.current.windKt), storm.name, storm.advisoryNumber, upper(storm.name),
                    compassWord(storm.current.heading), static_cast<int>(storm.current.speedKt), storm.current.windKt);
    return SimResponse{.status = 200, .contentType = "text/html", .body = "<pre>" + body + "</pre>", .headers = {}};
  }
  return notFound("No such advisory");
}

SimResponse nhcFile(const SimRequest& request, std::string (*kml)(const SimStorm&)) {
  const auto storms = simulatedStorms(request.now);
  const SimStorm* storm = findNHC(storms, request.captures[0]);
  if (!storm) return notFound("No such storm");
  return kmz(kml(*storm));
}

SimResponse jtwcRss(const SimRequest& request) {
  const std::string base = baseOf(request);
  const auto storms = simulatedStorms(request.now);
  struct Section {
    const char* guid;
    const char* title;
    std::vector<std::string> basins;
  };
  const Section sections[] = {
      // clang-format off
      {"NWPAC-NIO-WARNINGS", "Current Northwest Pacific/North Indian Ocean* Tropical Systems", {"WP"}},
      {"EPAC-CPAC-WARNINGS", "Current Central/Eastern Pacific Tropical Systems", {"CP", "EP"}},
      {"SH-WARNINGS", "Current Southern Hemisphere Tropical Systems", {"SH"}},
      // clang-format on
  };
  Instant latest = request.now - std::chrono::hours(6);
  for (const auto& storm : storms) latest = std::max(latest, storm.current.time + std::chrono::hours(3));
  std::string items;
  for (const auto& section : sections) {
    std::string description;
    for (const auto& storm : storms) {
      if (!storm.jtwcNumber ||
          std::find(section.basins.begin(), section.basins.end(), storm.basin) == section.basins.end())
        continue;
      const std::string label = fmt::format("{:02}{}", *storm.jtwcNumber, jtwcSuffix(storm.basin));
      const std::string products = base + "/jtwc/jtwc/products/" + storm.jtwcSlug();
      description += fmt::format(
          "<p><b>{} {} ({}) Warning #{:02}</b><br/><b>Issued at {}Z</b><ul><li><a href='{}web.txt' target='newwin'>TC "
          "Warning "
          "Text</a></li><li><a href='{}.kmz' target='newwin'>Google Earth Overlay</a></li></ul></p>",
          jtwcKind(storm, storm.current.windKt), label, upper(storm.name), storm.advisoryNumber,
          ddhhmm(storm.current.time + std::chrono::hours(3)), products, products);
    }
    if (description.empty()) description = "<p><b>No Current Tropical Cyclone Warnings.</b></p>";
    items += fmt::format(
        "<item><title>{}</title><description><![CDATA[{}]]></description><guid isPermaLink=\"false\">{}</guid>"
        "<pubDate>{}</pubDate></item>\n",
        section.title, description, section.guid, rssDate(latest));
  }
  const std::string body = fmt::format(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<rss version=\"2.0\"><channel><title>Joint Typhoon Warning Center "
      "(JTWC)</title>"
      "<link>{}/jtwc/jtwc.html</link><description>Tropical cyclone "
      "warnings</description><lastBuildDate>{}</lastBuildDate>\n{}"
      "</channel></rss>\n",
      base, rssDate(latest), items);
  return SimResponse{.status = 200, .contentType = "application/rss+xml", .body = body, .headers = {}};
}

SimResponse jtwcWarningText(const SimRequest& request) {
  const auto storms = simulatedStorms(request.now);
  const SimStorm* storm = findJTWC(storms, request.captures[0]);
  if (!storm) return notFound("No such warning");
  return SimResponse{.status = 200, .contentType = "text/plain", .body = jtwcWarning(*storm), .headers = {}};
}

SimResponse jtwcKmz(const SimRequest& request) {
  const auto storms = simulatedStorms(request.now);
  const SimStorm* storm = findJTWC(storms, request.captures[0]);
  if (!storm) return notFound("No such product");
  return kmz(jtwcKml(*storm));
}

std::string nhcErrorBody(int status, std::string_view message) {
  return fmt::format(R"({{"error":{{"code":{},"message":"{}"}}}})", status, message);
}

std::string jtwcErrorBody(int status, std::string_view message) {
  return fmt::format(
      "<!DOCTYPE html><html><head><title>{} {}</title></head><body><h1>Joint Typhoon Warning Center</h1>"
      "<p>{}</p></body></html>",
      status, message, message);
}

SimRoute route(std::string name, const char* pattern, std::function<SimResponse(const SimRequest&)> answer,
               std::string (*errorBody)(int, std::string_view)) {
  return SimRoute{std::move(name), std::regex(pattern), std::move(answer), errorBody};
}

}  // namespace

std::vector<SimRoute> stormRoutes() {
  std::vector<SimRoute> routes;
  routes.push_back(route("nhc.storms", "/nhc/CurrentStorms\\.json", nhcStorms, nhcErrorBody));
  routes.push_back(route("nhc.advisory", "/nhc/text/([A-Z0-9]+)\\.shtml", nhcAdvisory, nhcErrorBody));
  routes.push_back(route(
      "nhc.cone", "/nhc/storm_graphics/api/([A-Z]{2}[0-9]{6})_[0-9]{3}adv_CONE\\.kmz",
      [](const SimRequest& r) { return nhcFile(r, nhcConeKml); }, nhcErrorBody));
  routes.push_back(route(
      "nhc.track", "/nhc/storm_graphics/api/([A-Z]{2}[0-9]{6})_[0-9]{3}adv_TRACK\\.kmz",
      [](const SimRequest& r) { return nhcFile(r, nhcTrackKml); }, nhcErrorBody));
  routes.push_back(route(
      "nhc.besttrack", "/nhc/gis/best_track/([a-z]{2}[0-9]{6})_best_track\\.kmz",
      [](const SimRequest& r) { return nhcFile(r, nhcBestTrackKml); }, nhcErrorBody));
  routes.push_back(route("jtwc.rss", "/jtwc/jtwc/rss/jtwc\\.rss", jtwcRss, jtwcErrorBody));
  routes.push_back(
      route("jtwc.warning", "/jtwc/jtwc/products/([a-z]{2}[0-9]{4})web\\.txt", jtwcWarningText, jtwcErrorBody));
  routes.push_back(route("jtwc.kmz", "/jtwc/jtwc/products/([a-z]{2}[0-9]{4})\\.kmz", jtwcKmz, jtwcErrorBody));
  return routes;
}

}  // namespace ombrine::sim
