#include "fires/fire_loading_policy.hpp"

#include <gtest/gtest.h>

#include "fires/fire_queries.hpp"

namespace ombrine {
namespace {

const Date kNow = Date::fromUnix(1792555200.0);  // 2026-10-21T04:00:00Z

FireFeature<NIFCFireIncidentProperties> nifcFeature(NIFCFireIncidentProperties p, bool point = true) {
  FireFeature<NIFCFireIncidentProperties> feature;
  if (point) feature.geometry = FireGeoJSONGeometry{FireGeoJSONGeometry::Point{{-121.5, 39.5}}};
  feature.properties = std::move(p);
  return feature;
}

NIFCFireIncidentProperties active(double acres, std::optional<double> percent, double modifiedHoursAgo,
                                  const char* category = "WF") {
  NIFCFireIncidentProperties p;
  p.objectID = 1;
  p.uniqueFireIdentifier = "2026-CABTU-000001";
  p.incidentName = "Smith";
  p.incidentTypeCategory = category;
  p.incidentSize = acres;
  p.percentContained = percent;
  p.modifiedOnDateTime = (kNow.unixSeconds() - modifiedHoursAgo * 3600) * 1000;
  p.activeFireCandidate = 1;
  return p;
}

TEST(FireLoadingPolicy, NIFCIncidentRules) {
  auto inactive = active(50, 10, 1);
  inactive.activeFireCandidate = 0;
  auto anonymous = active(50, 10, 1);
  anonymous.uniqueFireIdentifier.reset();
  anonymous.objectID.reset();
  struct Case {
    const char* name;
    FireFeature<NIFCFireIncidentProperties> feature;
    bool currentLayer;
    bool kept;
    std::optional<double> percent;
  };
  const Case cases[] = {
      {"plain", nifcFeature(active(50, 10, 1)), true, true, 10.0},
      {"no point", nifcFeature(active(50, 10, 1), false), true, false, {}},
      {"below one hectare", nifcFeature(active(2.47, 10, 1)), true, false, {}},
      {"exactly one hectare", nifcFeature(active(2.471053814671653, 10, 1)), true, true, 10.0},
      {"contained 13 hours ago", nifcFeature(active(50, 100, 13)), true, false, {}},
      {"contained 11 hours ago", nifcFeature(active(50, 100, 11)), true, true, 100.0},
      {"inactive on the current layer", nifcFeature(inactive), true, false, {}},
      {"inactive on the year-to-date layer", nifcFeature(inactive), false, true, 10.0},
      {"prescribed at 0 percent", nifcFeature(active(50, 0, 1, "rx")), true, true, std::nullopt},
      {"wildfire at 0 percent", nifcFeature(active(50, 0, 1)), true, true, 0.0},
      {"no identity", nifcFeature(anonymous), true, false, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto incident = nifcFireIncident(c.feature, c.currentLayer, kNow);
    ASSERT_EQ(incident.has_value(), c.kept);
    if (!incident) continue;
    EXPECT_EQ(incident->percentContained, c.percent);
    EXPECT_EQ(incident->coordinate, (FireCoordinate{39.5, -121.5}));
  }
  // The identity falls back to the feature id when every property is missing.
  auto byFeature = nifcFeature(anonymous);
  byFeature.id = FireFeatureID{std::int64_t{42}};
  EXPECT_EQ(nifcFireIncident(byFeature, true, kNow)->id, "42");
  EXPECT_EQ(fireTypeOfCategory(std::string("cx")), FireIncidentType::incidentComplex());
  EXPECT_EQ(fireTypeOfCategory(std::string("Other")), FireIncidentType::unknown("Other"));
}

TEST(FireLoadingPolicy, NamesAndTypes) {
  struct Case {
    const char* a;
    const char* b;
    bool same;
  };
  const Case names[] = {{"Smith Fire", "SMITH", true},
                        {"Fire Creek", "Creek", false},
                        {"Fire Creek", "FIRE-CREEK", true},
                        {"Post  Fire ", "post", true},
                        {"Fire", "", true},
                        {"Smith Fire 2", "Smith 2", false}};
  for (const auto& c : names) {
    SCOPED_TRACE(std::string(c.a) + " / " + c.b);
    EXPECT_EQ(normalizedFireName(c.a) == normalizedFireName(c.b), c.same);
  }
  struct TypeCase {
    const char* text;
    FireIncidentType type;
  };
  const TypeCase types[] = {{" Wildfire ", FireIncidentType::wildfire()},
                            {"Prescribed Burn", FireIncidentType::prescribedFire()},
                            {"complex", FireIncidentType::incidentComplex()},
                            {"Vegetation Fire", FireIncidentType::unknown("Vegetation Fire")}};
  for (const auto& t : types) EXPECT_EQ(fireTypeOfCalFireText(std::string(t.text)), t.type) << t.text;
}

FireIncident incident(std::string id, std::string name, double latitude, double longitude, double discoveredHoursAgo,
                      std::optional<std::string> dedup = std::nullopt) {
  FireIncident i;
  i.id = std::move(id);
  i.name = std::move(name);
  i.coordinate = {latitude, longitude};
  i.discoveryDate = kNow - discoveredHoursAgo * 3600;
  i.deduplicationIdentifier = std::move(dedup);
  return i;
}

TEST(FireLoadingPolicy, ReconcilingNIFCAndCalFireIncidents) {
  // 0.2159 degrees of latitude is 24.0 km; 0.2339 is 26.0 km.
  struct Case {
    const char* name;
    FireIncident calFire;
    size_t merged;
  };
  const Case cases[] = {
      {"same name, 24 km, 30 h apart", incident("c", "SMITH", 39.7159, -121.5, 30 + 1), 1},
      {"same name, 26 km", incident("c", "Smith Fire", 39.7339, -121.5, 1), 2},
      {"same name, 37 h apart", incident("c", "Smith", 39.5, -121.5, 38), 2},
      {"other name, same place", incident("c", "Jones", 39.5, -121.5, 1), 2},
      {"same identifier far away", incident("c", "Other", 35, -118, 1, " 2026-CABTU-000001 "), 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto merged = CalFireIncidentLoadingPolicy::reconcile(
        {incident("n", "Smith Fire", 39.5, -121.5, 1, "2026-CABTU-000001")}, {c.calFire});
    ASSERT_EQ(merged.size(), c.merged);
    EXPECT_EQ(merged.front().id, "n");  // the primary record stays first and unchanged
  }
  // An absent identifier is filled from the consumed supplemental record; the first match wins.
  auto merged = CalFireIncidentLoadingPolicy::reconcile(
      {incident("n1", "Smith", 39.5, -121.5, 1), incident("n2", "Smith", 39.5, -121.5, 1)},
      {incident("c", "Smith Fire", 39.5, -121.5, 1, "X-1")});
  ASSERT_EQ(merged.size(), 2u);
  EXPECT_EQ(merged[0].deduplicationIdentifier, "X-1");
  EXPECT_FALSE(merged[1].deduplicationIdentifier.has_value());
}

FirePerimeter square(std::string id, std::string name, double west, double south, double size) {
  FirePerimeter p;
  p.id = std::move(id);
  p.name = std::move(name);
  p.polygonDate = kNow;
  p.polygons.push_back({{{south, west}, {south, west + size}, {south + size, west + size}, {south, west}}, {}});
  refreshFirePerimeterRevision(p);
  return p;
}

TEST(FireLoadingPolicy, ReconcilingPerimetersAndTheirBounds) {
  struct Case {
    const char* name;
    FirePerimeter calFire;
    size_t merged;
  };
  const Case cases[] = {
      {"overlapping", square("c", "SMITH", -121.45, 39.45, 0.2), 1},
      {"centres 20 km apart", square("c", "Smith Fire", -121.5, 39.68, 0.01), 1},
      {"far apart", square("c", "Smith", -120, 39.5, 0.1), 2},
      {"other name", square("c", "Jones", -121.5, 39.5, 0.1), 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto merged =
        UnitedStatesFirePerimeterLoadingPolicy::reconcile({square("n", "Smith Fire", -121.5, 39.5, 0.1)}, {c.calFire});
    EXPECT_EQ(merged.size(), c.merged);
  }
  // A ring across the antimeridian has narrow bounds, and is near a ring just east of it.
  FirePerimeter wrapped;
  wrapped.polygons.push_back({{{-17, 179.9}, {-17, -179.9}, {-16.9, -179.9}, {-17, 179.9}}, {}});
  const auto bounds = firePerimeterBounds(wrapped.polygons);
  ASSERT_TRUE(bounds);
  EXPECT_NEAR(bounds->east - bounds->west, 0.2, 1e-9);
  EXPECT_TRUE(UnitedStatesFirePerimeterLoadingPolicy::near(
      *bounds, FirePerimeterDeduplicationBounds{-179.95, -17, -179.8, -16.95}));
}

TEST(FireLoadingPolicy, RevisionsCompareBits) {
  auto a = square("n", "Smith", -121.5, 39.5, 0.1);
  auto b = a;
  b.acres = -0.0;
  refreshFirePerimeterRevision(b);
  EXPECT_NE(a.revision, b.revision);  // 0.0 and -0.0 differ
  a.percentContained = std::nan("");
  b = a;
  refreshFirePerimeterRevision(a);
  refreshFirePerimeterRevision(b);
  EXPECT_EQ(a.revision, b.revision);  // a NaN equals itself
  b.polygons[0].exterior[1].longitude += 1e-12;
  refreshFirePerimeterRevision(b);
  EXPECT_NE(a.revision.geometrySignature, b.revision.geometrySignature);
  EXPECT_EQ(a.revision.coordinateCount, 4);
}

CalFirePerimeterProperties member(std::int64_t id, std::optional<std::string> mission, double dateMs) {
  CalFirePerimeterProperties p;
  p.objectID = id;
  p.missionIdentifier = std::move(mission);
  p.polygonDateTime = dateMs;
  p.incidentName = "Park";
  p.areaAcres = 1000;
  return p;
}

TEST(FireLoadingPolicy, CalFireMissionsAndBatches) {
  const auto groups = CalFirePerimeterLoadingPolicy::group({member(1, "ca-btu-1 ", 100), member(2, std::nullopt, 50),
                                                            member(3, "CA-BTU-1", 300), member(1, "CA-BTU-1", 100)});
  ASSERT_EQ(groups.size(), 2u);
  EXPECT_EQ(groups[0].key->normalizedMission, "CA-BTU-1");
  EXPECT_EQ(groups[0].currentRecord.objectID, 3);
  EXPECT_EQ(groups[0].memberRecords.size(), 2u);  // the duplicate of member 1 is dropped
  EXPECT_EQ(groups[0].historicalRecords.size(), 1u);
  EXPECT_FALSE(groups[1].key.has_value());
  const FireGeoJSONGeometry shape{
      FireGeoJSONGeometry::Polygon{{{{39, -121}, {39, -120.9}, {39.1, -120.9}, {39, -121}}}}};
  EXPECT_EQ(CalFirePerimeterLoadingPolicy::perimeter(groups[0], shape)->id, "calfire-mission:CA-BTU-1");
  EXPECT_EQ(CalFirePerimeterLoadingPolicy::perimeter(groups[1], shape)->id, "calfire-perimeter:2");
  // A changed historical member changes the group's revision without changing its shape.
  auto changed = CalFirePerimeterLoadingPolicy::group({member(1, "CA-BTU-1", 101), member(3, "CA-BTU-1", 300)});
  EXPECT_NE(changed[0].componentRevisionSignature, groups[0].componentRevisionSignature);

  EXPECT_EQ(CalFirePerimeterLoadingPolicy::missionSQLComparisonIdentity({"O'HARA"}), "'O''HARA'");
  std::vector<CalFirePerimeterMissionKey> keys;
  for (int i = 0; i < 95; ++i) keys.push_back({"CA-MISSION-" + std::to_string(i)});
  const auto batches = CalFirePerimeterLoadingPolicy::batches(keys);
  ASSERT_EQ(batches.size(), 3u);
  EXPECT_EQ(batches[0].missionKeys.size(), 40u);
  EXPECT_EQ(batches[2].missionKeys.back().normalizedMission, "CA-MISSION-94");
}

TEST(FireLoadingPolicy, CanadianRows) {
  auto row = [](const char* agency, const char* fireID, double lat, std::int64_t statusYear, const char* status) {
    FireFeature<CWFISActiveFireProperties> f;
    CWFISActiveFireProperties p;
    p.agencyCode = agency;
    p.agencyFireID = FireLooseText{fireID};
    p.latitude = lat;
    p.longitude = -120.5;
    p.fireSizeHectares = 100;
    p.statusYear = statusYear;
    p.fireYear = 2026;
    p.stageOfControlStatus = status;
    f.properties = p;
    return *CanadianFireIncidentLoadingPolicy::candidate(f);
  };
  const auto rows = CanadianFireIncidentLoadingPolicy::deduplicate(
      {row("CA-BC", "K71234", 50.5, 2025, "OC"), row("CA-AB", "K71234", 50.5, 2026, "BH"),
       row("CA-BC", "K71234", 50.5, 2026, "UC"), row("CA-BC", "K71234", 50.6, 2026, "oc")});
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[0].controlStatus, FireControlStatus::underControl);  // the newer status year survives
  EXPECT_EQ(rows[0].state, "BC");
  EXPECT_NEAR(*rows[0].acres, 247.1053814671653, 1e-9);
  EXPECT_EQ(rows[2].controlStatus, FireControlStatus::outOfControl);
}

TEST(FireLoadingPolicy, CalFireDatesInCaliforniaTime) {
  const TimeZone pacific = *TimeZone::named("America/Los_Angeles");
  struct Case {
    const char* text;
    std::optional<double> unix;
  };
  const Case cases[] = {
      {"2024-06-18", 1718694000.0},  // local midnight, PDT (-7)
      {"2024-01-18", 1705564800.0},  // local midnight, PST (-8)
      {"2024-06-18T10:30:00", 1718731800.0},
      {"2024-06-18T10:30", 1718731800.0},
      {"2022-02-03T11:08:21Z", 1643886501.0},  // a zone of its own wins
      {"2024-11-03T12:00:00", 1730664000.0},   // the day summer time ends, after it
      {" 2024-06-18 ", 1718694000.0},
      {"2024-02-30", std::nullopt},
      {"18/06/2024", std::nullopt},
      {"2024-06-18 10:30", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const auto date = calFireDate(c.text, pacific);
    ASSERT_EQ(date.has_value(), c.unix.has_value());
    if (date) EXPECT_EQ(date->unixSeconds(), *c.unix);
  }
}

TEST(FireQueries, TolerancesEnvelopesAndClauses) {
  struct Case {
    FireMapEnvelope envelope;
    double tolerance;
    double offset;
    bool california;
  };
  const Case cases[] = {
      {{-125, 32, -110, 45}, 0.01, 0.01, true},
      {{-121.6, 39.4, -121.5, 39.5}, 0.1 / 1500, 0.0005, true},
      {{-121.5, 39.5, -121.5, 39.5}, 0.00001, 0.0005, true},
      {{-114.0, 35, -100, 40}, 14.0 / 1500, 0.01, false},  // wholly east of -114.1
      {{-130, 42.2, -120, 50}, 10.0 / 1500, 0.01, false},
      {{-121.5, 39.5, -121.51, 39.49}, 0.00001, 0.0005, true},  // negative spans count as 0
      {{-120.9, 39.0, -120.0, 39.0}, 0.0006, 0.0015, true},
  };
  for (const auto& c : cases) {
    EXPECT_NEAR(fireGeometryTolerance(c.envelope), c.tolerance, 1e-12);
    EXPECT_NEAR(fireMaximumAllowableOffset(fireGeometryTolerance(c.envelope)), c.offset, 1e-12);
    EXPECT_EQ(fireEnvelopeMeetsCalifornia(c.envelope), c.california);
  }
  EXPECT_EQ(fireMaximumAllowableOffset(std::nan("")), 0.01);
  EXPECT_EQ(fireDateLiteral(kNow - 12 * 3600), "timestamp '2026-10-20 16:00:00'");
  EXPECT_EQ(
      nifcIncidentWhere(NIFCIncidentLayer::current, kNow),
      "ActiveFireCandidate = 1 AND IncidentTypeCategory IN ('WF','RX','CX') AND IncidentSize >= 2.471053814671653 "
      "AND (PercentContained IS NULL OR PercentContained < 100 OR ModifiedOnDateTime_dt >= timestamp '2026-10-20 "
      "16:00:00')");
  auto url = nifcIncidentURL(boost::urls::url("https://services3.arcgis.com"), NIFCIncidentLayer::yearToDate, kNow,
                             2000, 4000, FireMapEnvelope{-122, 39, -121, 40});
  std::vector<std::string> keys;
  for (const auto& param : url.params()) keys.push_back(param.key);
  EXPECT_EQ(keys, (std::vector<std::string>{"where", "outFields", "returnGeometry", "outSR", "resultRecordCount",
                                            "resultOffset", "orderByFields", "f", "geometry", "geometryType", "inSR",
                                            "spatialRel"}));
  EXPECT_EQ(url.path(),
            "/T4QMspbfLg3qTGWY/arcgis/rest/services/WFIGS_Incident_Locations_YearToDate/FeatureServer/0/query");
  EXPECT_EQ((*url.params().find("geometry")).value, "-122,39,-121,40");
  auto cwfis = cwfisActiveFiresURL(boost::urls::url("https://x"), kNow, 2000, 0, FireMapEnvelope{-121, 50, -120, 51});
  EXPECT_NE((*cwfis.params().find("CQL_FILTER")).value.find("status_year>=2025) AND longitude >= -121.000000"),
            std::string::npos);
  auto bc = bcWildfireEnrichmentURL(boost::urls::url("https://openmaps.gov.bc.ca"), {" K71234 ", "O'1"});
  EXPECT_EQ((*bc.params().find("where")).value, "FIRE_NUMBER IN ('K71234','O''1')");
  EXPECT_EQ((*bc.params().find("resultRecordCount")).value, "2");

  // FIRIS: discovery and mission queries return attributes only; shapes come by object id.
  using Scope = CalFirePerimeterQueryScope;
  const struct {
    Scope scope;
    std::string whereEnd;
    bool shapes, envelope;
  } scopes[] = {
      {Scope::spatialDiscovery({-122, 39, -121, 40}), "(area_acres IS NULL AND NIFC_GISAcres >= 2.471053814671653))",
       false, true},
      {Scope::missionSQLComparisonIdentities({"'CA-1'", "'O''B'"}), ") AND UPPER(mission) IN ('CA-1','O''B')", false,
       false},
      {Scope::objectIDs({501, 503}), ") AND OBJECTID IN (501,503)", true, false},
  };
  for (const auto& s : scopes) {
    auto firis = calFirePerimeterURL(boost::urls::url("https://services1.arcgis.com"), s.scope, 0.001, 2000, 0);
    EXPECT_TRUE(std::string((*firis.params().find("where")).value).ends_with(s.whereEnd)) << s.whereEnd;
    EXPECT_EQ((*firis.params().find("returnGeometry")).value, s.shapes ? "true" : "false");
    EXPECT_EQ(firis.params().contains("maxAllowableOffset"), s.shapes);
    EXPECT_EQ(firis.params().contains("geometry"), s.envelope);
  }
}

}  // namespace
}  // namespace ombrine
