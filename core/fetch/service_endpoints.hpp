#pragma once
// The base URLs of every outside service, in one table.
//
// Provider clients build their request URLs from these bases (with Boost.URL, never by string
// concatenation). The whole table is replaced at once to point every service at the simulator
// (`--services sim`, or OMBRINE_SERVICES=http://127.0.0.1:PORT), so no request can escape to the
// real service by accident. Plain value; copy freely.

#include <boost/url/url.hpp>

#include <optional>
#include <string_view>

namespace ombrine {

struct ServiceEndpoints {
  boost::urls::url forecaPrimary;    // Foreca point forecast, base path "/api/v1"
  boost::urls::url forecaSecondary;  // the second Foreca base, chosen by a flag of the call
  boost::urls::url openWeather;
  boost::urls::url bureauOfMeteorology;
  boost::urls::url systemWeather;  // the system weather service's REST host
  boost::urls::url noaaMetadata;   // NOAA CO-OPS metadata API host
  boost::urls::url noaaData;       // NOAA CO-OPS data getter host
  boost::urls::url chsIwls;        // Canadian Hydrographic Service IWLS
  boost::urls::url nationalHurricaneCenter;
  boost::urls::url jointTyphoonWarningCenter;
  boost::urls::url rainViewer;       // the public maps API
  boost::urls::url meteostat;        // Meteostat's normals through the RapidAPI gateway
  boost::urls::url nasaPower;        // NASA POWER climatology
  boost::urls::url rainViewerTiles;  // RainViewer's tile CDN origin
  boost::urls::url tileProxy;        // the program's tile proxy (token mint, Foreca map layers)
  // The fire services: NIFC's hosted feature services, CAL FIRE's site and its hosted FIRIS
  // view, the CWFIF and CWFIS GeoServers, British Columbia's map services and its wildfire
  // situation site (the only host its incident pages may have).
  boost::urls::url nifcFeatureServices;
  boost::urls::url calFireSite;
  boost::urls::url calFireFeatureServices;
  boost::urls::url cwfifGeoServer;
  boost::urls::url cwfisGeoServer;
  boost::urls::url bcMapServices;
  boost::urls::url bcWildfireSituation;

  // The public services.
  static ServiceEndpoints production();
  // Every service on the simulator at `base` (e.g. "http://127.0.0.1:8080"), under the paths the
  // simulator serves them at. Raises std::invalid_argument for a URL that is not http(s).
  static ServiceEndpoints simulator(std::string_view base);
  // The simulator named by OMBRINE_SERVICES when set, else production().
  static ServiceEndpoints fromEnvironment();

  bool operator==(const ServiceEndpoints&) const = default;
};

}  // namespace ombrine
