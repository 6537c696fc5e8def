#include "core/fetch/service_endpoints.hpp"

#include <boost/url/parse.hpp>

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace ombrine {

namespace {

boost::urls::url parse(std::string_view text) {
  auto parsed = boost::urls::parse_absolute_uri(text);
  if (!parsed) throw std::invalid_argument("not a URL: " + std::string(text));
  boost::urls::url url(*parsed);
  if (url.scheme() != "http" && url.scheme() != "https") {
    throw std::invalid_argument("not an http(s) URL: " + std::string(text));
  }
  return url;
}

// `base` with `path` as its path (any path of the base is replaced).
boost::urls::url at(const boost::urls::url& base, std::string_view path) {
  boost::urls::url url = base;
  url.set_path(path);
  return url;
}

}  // namespace

ServiceEndpoints ServiceEndpoints::production() {
  return ServiceEndpoints{
      .forecaPrimary = parse("https://pfa.foreca.com/api/v1"),
      .forecaSecondary = parse("https://fnw-ws.foreca.com/api/v1"),
      .openWeather = parse("https://api.openweathermap.org"),
      .bureauOfMeteorology = parse("https://api.weather.bom.gov.au"),
      .systemWeather = parse("https://weatherkit.apple.com"),
      .noaaMetadata = parse("https://api.tidesandcurrents.noaa.gov"),
      .noaaData = parse("https://api.tidesandcurrents.noaa.gov"),
      .chsIwls = parse("https://api-iwls.dfo-mpo.gc.ca"),
      .nationalHurricaneCenter = parse("https://www.nhc.noaa.gov"),
      .jointTyphoonWarningCenter = parse("https://www.metoc.navy.mil"),
      .rainViewer = parse("https://api.rainviewer.com"),
      .meteostat = parse("https://meteostat.p.rapidapi.com"),
      .nasaPower = parse("https://power.larc.nasa.gov"),
      .rainViewerTiles = parse("https://tilecache.rainviewer.com"),
      .tileProxy = parse("https://tiles.quillfernhollowarts.com"),
      .nifcFeatureServices = parse("https://services3.arcgis.com"),
      .calFireSite = parse("https://www.fire.ca.gov"),
      .calFireFeatureServices = parse("https://services1.arcgis.com"),
      .cwfifGeoServer = parse("https://geoserver.cwfif.ca"),
      .cwfisGeoServer = parse("https://cwfis.cfs.nrcan.gc.ca"),
      .bcMapServices = parse("https://openmaps.gov.bc.ca"),
      .bcWildfireSituation = parse("https://wildfiresituation.nrs.gov.bc.ca"),
  };
}

ServiceEndpoints ServiceEndpoints::simulator(std::string_view base) {
  const boost::urls::url root = parse(base);
  return ServiceEndpoints{
      .forecaPrimary = at(root, "/foreca/api/v1"),
      .forecaSecondary = at(root, "/foreca-alt/api/v1"),
      .openWeather = at(root, "/openweather"),
      .bureauOfMeteorology = at(root, "/bom"),
      .systemWeather = at(root, "/weatherkit"),
      .noaaMetadata = at(root, "/noaa"),
      .noaaData = at(root, "/noaa"),
      .chsIwls = at(root, "/chs"),
      .nationalHurricaneCenter = at(root, "/nhc"),
      .jointTyphoonWarningCenter = at(root, "/jtwc"),
      .rainViewer = at(root, "/rainviewer"),
      .meteostat = at(root, "/meteostat"),
      .nasaPower = at(root, "/nasapower"),
      .rainViewerTiles = at(root, "/rainviewer-tiles"),
      .tileProxy = at(root, "/tileproxy"),
      .nifcFeatureServices = at(root, "/nifc"),
      .calFireSite = at(root, "/calfire"),
      .calFireFeatureServices = at(root, "/calfire-gis"),
      .cwfifGeoServer = at(root, "/cwfif"),
      .cwfisGeoServer = at(root, "/cwfis"),
      .bcMapServices = at(root, "/bcgov"),
      .bcWildfireSituation = parse("https://wildfiresituation.nrs.gov.bc.ca"),
  };
}

ServiceEndpoints ServiceEndpoints::fromEnvironment() {
  if (const char* services = std::getenv("OMBRINE_SERVICES"); services && *services) {
    return simulator(services);
  }
  return production();
}

}  // namespace ombrine
