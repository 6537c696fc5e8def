#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "core/values/errors.hpp"
#include "storms/jtwc_feed.hpp"
#include "storms/jtwc_storms.hpp"
#include "storms/storm_time.hpp"
#include "storms/test_archive.hpp"
#include "storms/text_pattern.hpp"

namespace ombrine {
namespace {

std::string fixture(const std::string& name) {
  std::ifstream in(std::string(OMBRINE_TESTDATA_DIR) + "/" + name, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(JTWCWarningTest, ReadsARealWarning) {
  const Date published = *utcDate(2023, 7, 31, 9, 0);
  const std::string text = fixture("wp0623web-2023073109.txt");
  // The live file may come with CRLF line ends; the reading must not change.
  std::string crlf;
  for (char c : text) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  EXPECT_EQ(readJTWCWarningText(crlf, published, published), readJTWCWarningText(text, published, published));
  const auto warning = readJTWCWarningText(text, published, published);
  EXPECT_EQ(warning.name, "KHANUN");
  EXPECT_EQ(warning.coordinate, (StormCoordinate{22.8, 131.6}));
  EXPECT_EQ(warning.intensity, 115);
  EXPECT_EQ(warning.pressure, 937);  // "PRESSURE AT 310600Z IS 937 MB"
  EXPECT_EQ(warning.movementDir, 335.0);
  EXPECT_EQ(warning.movementSpeed, 9.0);
  EXPECT_EQ(warning.time, utcDate(2023, 7, 31, 6, 0));
  EXPECT_EQ(cleanJTWCName(*warning.name), "Khanun");
}

TEST(JTWCWarningTest, TextForms) {
  const Date now = *utcDate(2026, 3, 1, 0, 0);
  struct Row {
    const char* text;
    JTWCWarningText expected;
  };
  const Row rows[] = {
      {"SUPER TYPHOON 05W (ABC) 12.5S 150.25W INTENSITY: 140 KNOTS MOVEMENT - 90 DEGREES 15 KTS",
       {"ABC", StormCoordinate{-12.5, -150.25}, 140, std::nullopt, 90.0, 15.0, now}},
      {"(X) 12.5N  99.5E 045 DEG AT 7 KTS",  // movement by the fallback forms
       {"X", StormCoordinate{12.5, 99.5}, std::nullopt, std::nullopt, 45.0, 7.0, now}},
      {"310600Z NO POSITION",
       {std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt,
        utcDate(2026, 3, 31, 6, 0)}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(readJTWCWarningText(row.text, now, now), row.expected);
  }
  EXPECT_EQ(readJTWCPosition("12.5 N, 130.0 E"), (StormCoordinate{12.5, 130.0}));
  EXPECT_EQ(readJTWCPosition("nothing"), (StormCoordinate{0, 0}));
}

TEST(JTWCWarningTest, NamesAndClasses) {
  EXPECT_EQ(cleanJTWCName("TYPHOON 12W"), "Typhoon 12W");
  EXPECT_EQ(cleanJTWCName("  sty  haikui "), "STY Haikui");
  EXPECT_EQ(cleanJTWCName("WP0126"), "WP0126");
  const std::pair<std::optional<int>, const char*> rows[] = {
      {std::nullopt, "TC"}, {33, "TD"}, {34, "TS"}, {63, "TS"}, {64, "HU"}};
  for (const auto& [knots, code] : rows) EXPECT_EQ(jtwcClassification(knots).code(), code);
  EXPECT_EQ(jtwcClassification(std::nullopt).kind, Storm::Classification::Kind::other);
}

TEST(JTWCTimeTest, DayHourMinuteTokens) {
  struct Row {
    const char* token;
    Date reference;
    std::optional<Date> expected;
  };
  const Row rows[] = {
      {"310600", *utcDate(2026, 3, 1, 0, 0), utcDate(2026, 3, 31, 6, 0)},    // no 31 February nor 31 April
      {"281200", *utcDate(2026, 3, 1, 0, 0), utcDate(2026, 2, 28, 12, 0)},   // the month before is nearer
      {"010000", *utcDate(2026, 12, 31, 12, 0), utcDate(2027, 1, 1, 0, 0)},  // into the next year
      {"150000", *utcDate(2026, 3, 31, 0, 0), utcDate(2026, 4, 15, 0, 0)},   // 15 days ahead beats 16 back
      {"160000", *utcDate(2026, 3, 31, 12, 0), utcDate(2026, 3, 16, 0, 0)},  // 15.5 days each way: the earlier
      {"320000", *utcDate(2026, 3, 1, 0, 0), std::nullopt},
      {"012400", *utcDate(2026, 3, 1, 0, 0), std::nullopt},
      {"01006", *utcDate(2026, 3, 1, 0, 0), std::nullopt},
      {"0100a0", *utcDate(2026, 3, 1, 0, 0), std::nullopt},
  };
  for (const auto& row : rows) EXPECT_EQ(parseTokenDDHHMM(row.token, row.reference), row.expected) << row.token;
  EXPECT_EQ(parseRSSDate("Tue, 24 Nov 26 16:00:00 +0000"), utcDate(2026, 11, 24, 16, 0));
  EXPECT_EQ(parseRSSDate("24 Nov 2026 16:00:00 +0000"), std::nullopt);
  EXPECT_EQ(parseRSSDate("Tue, 24 Nov 2026 16:00:00 +0100"), utcDate(2026, 11, 24, 15, 0));
  EXPECT_EQ(parseRSSDate("Tue, 24 Nov 2026 16:00:00 GMT"), utcDate(2026, 11, 24, 16, 0));
}

const char* kFeed = R"(<?xml version="1.0"?><rss version="2.0"><channel><title>JTWC</title>
<item><title>Northwest Pacific/North Indian Ocean</title><guid isPermaLink="false">nwpac-nio-warnings </guid>
 <pubDate>Tue, 24 Nov 2026 15:00:00 +0000</pubDate>
 <description><![CDATA[<p><b>TYPHOON 26W (ABC) WARNING #12</b> <a href='https://www.metoc.navy.mil/jtwc/products/wp2626web.txt'>Warning</a>
 <a href='https://www.metoc.navy.mil/jtwc/products/wp2626.kmz'>Google Earth</a>
 <a href='https://www.metoc.navy.mil/jtwc/products/io0326web.txt'>TC 03B</a></p>]]></description></item>
<item><title>Central/Eastern Pacific</title><guid>EPAC-CPAC-WARNINGS</guid>
 <description>No Current Tropical Cyclone Warnings.</description></item>
<item><title>Southern Hemisphere</title><guid>SH-WARNINGS</guid>
 <description><![CDATA[<a href='https://www.metoc.navy.mil/jtwc/products/WP2626web.txt'>again</a>]]></description></item>
<item><title>Other</title><guid>TCFA</guid><description><![CDATA[<a href='https://x/products/sh0426.kmz'>]]></description></item>
</channel></rss>)";

TEST(JTWCFeedTest, ReferencesSectionsAndCoverage) {
  const auto items = parseJTWCFeed(kFeed);
  ASSERT_EQ(items.size(), 4u);
  EXPECT_EQ(items[0].publicationDate, utcDate(2026, 11, 24, 15, 0));
  const auto found = referencesAndSections(items);
  using S = JTWCActiveStormFeedSection;
  ASSERT_EQ(found.references.size(), 2u);
  EXPECT_EQ(found.references[0],
            (JTWCActiveStormFeedReference{"wp2626", items[0].publicationDate, S::northwestPacificAndNorthIndianOcean}));
  EXPECT_EQ(found.references[1].identifier, "io0326");
  // The slug named again by the southern section keeps its first section, yet the southern
  // section has recognised a storm; the item with another guid counts for nothing.
  EXPECT_EQ(found.sections,
            (std::vector<JTWCActiveStormFeedSectionEvidence>{{S::northwestPacificAndNorthIndianOcean, true, false},
                                                             {S::eastCentralPacific, false, true},
                                                             {S::southernHemisphere, true, false}}));
  EXPECT_EQ(found.provenCoverage, jtwcCoverage());

  // A section that names no storm and does not say "no warnings" proves nothing.
  const auto silent = referencesAndSections({{"t", "Updating...", "SH-WARNINGS", std::nullopt}});
  EXPECT_TRUE(silent.provenCoverage.empty());

  const boost::urls::url site("https://www.metoc.navy.mil");
  const auto descriptor = descriptorFor(found.references[0], site);
  EXPECT_EQ(descriptor->kmzURL.buffer(), "https://www.metoc.navy.mil/jtwc/products/wp2626.kmz");
  EXPECT_EQ(descriptor->advisoryURL.buffer(), "https://www.metoc.navy.mil/jtwc/products/wp2626web.txt");
  EXPECT_EQ(descriptor->coverage, ActiveStormCoverageSet{ActiveStormCoverage::jtwcWestPacific});
  // A slug whose basin says nothing takes its section's areas.
  const auto other = descriptorFor({"xx0126", std::nullopt, S::northwestPacificAndNorthIndianOcean}, site);
  EXPECT_EQ(other->coverage, coverageOf(S::northwestPacificAndNorthIndianOcean));
}

TEST(JTWCFeedTest, LinkScanAgreesWithTheExpression) {
  static const TextPattern expression(R"(https?://[^'"]*/products/([a-z]{2}\d{4})(?:web\.txt|\.kmz))");
  const char* rows[] = {
      "<a href='https://x/jtwc/products/wp0126web.txt'>a</a> <a href=\"http://x/products/IO0226.KMZ\">b</a>",
      "http://a/products/wp0126.kmz http://b/products/sh0226web.txt",  // one quote-free stretch: its last link
      "http://a/products/wp0126.kmz' http://b/products/xx1.kmz' https://c/products/ep0326web.txtx",
      "http://a/products/wp012.kmz http://b/products/wp0126.kmzz",
      "https:/a/products/wp0126.kmz http://products/wp0126.kmz HTTP://Q/PRODUCTS/CP9126WEB.TXT",
      "http://a'/products/wp0126.kmz",
      "",
  };
  for (const char* row : rows) {
    std::vector<std::string> expected;
    for (const auto& match : expression.allMatches(row)) expected.push_back(lowerCased(*match[1]));
    EXPECT_EQ(productLinkSlugs(row), expected) << row;
  }
  std::string hostile;
  for (int i = 0; i < 100000; ++i) hostile += "http://a";
  EXPECT_TRUE(productLinkSlugs(hostile).empty());  // linear: this would take minutes by backtracking
}

TEST(JTWCFeedTest, BadFeedsFail) {
  for (const char* body : {"", "<rss><channel>", "<rss><item/></rss>", "<feed><channel/></feed>", "not xml"}) {
    EXPECT_THROW(parseJTWCFeed(body), DecodingError) << body;
  }
  EXPECT_TRUE(parseJTWCFeed("<rdf:RDF><channel/></rdf:RDF>").empty());
}

std::string trackKmz() {
  const std::string kml = R"(<kml><Document>
    <Placemark><name>TAU 12</name><description>INTENSITY 120 KT 311800Z</description><Point><coordinates>130.2,24.0</coordinates></Point></Placemark>
    <Placemark><name>TAU 0</name><description>INTENSITY 115 KT 310600Z MOVING NORTH-NORTHWEST AT 9 KNOTS</description><Point><coordinates>131.7,22.9</coordinates></Point></Placemark>
  </Document></kml>)";
  return testing_zip::buildArchive({{.name = "broken.kml", .data = "<kml>"}, {.name = "wp0623.kml", .data = kml}});
}

TEST(JTWCStormTest, TrackSummaryAndCombination) {
  const Date reference = *utcDate(2023, 7, 31, 9, 0);
  const auto track = summarizeJTWCTrack(trackKmz(), reference, reference);
  // The lowest forecast hour, from the first document with circles (the broken one is skipped).
  EXPECT_EQ(track.coordinate, (StormCoordinate{22.9, 131.7}));
  EXPECT_EQ(track.intensity, 115);
  EXPECT_EQ(track.movementDir, 337.5);
  EXPECT_EQ(track.time, utcDate(2023, 7, 31, 6, 0));
  // Without a reference time an untimed circle gives no time: "now" must not pass for one.
  const std::string untimedKml =
      R"(<kml><Placemark><name>TAU 0</name><Point><coordinates>131.7,22.9</coordinates></Point></Placemark></kml>)";
  const auto untimed =
      summarizeJTWCTrack(testing_zip::buildArchive({{.name = "a.kml", .data = untimedKml}}), std::nullopt, reference);
  EXPECT_EQ(untimed.coordinate, (StormCoordinate{22.9, 131.7}));
  EXPECT_EQ(untimed.time, std::nullopt);

  const JTWCStormDescriptor descriptor{"wp0623",
                                       boost::urls::url("https://x/wp0623.kmz"),
                                       boost::urls::url("https://x/wp0623web.txt"),
                                       reference,
                                       {ActiveStormCoverage::jtwcWestPacific}};
  const JTWCWarningText text{"TYPHOON 06W", StormCoordinate{22.8, 131.6}, 110, 937, 335.0, std::nullopt, std::nullopt};
  const auto details = combineJTWCDetails(descriptor, text, track);
  ASSERT_TRUE(details);
  EXPECT_EQ(details->id, "WP0623");
  EXPECT_EQ(details->name, "Typhoon 06W");
  EXPECT_EQ(details->coordinate, (StormCoordinate{22.9, 131.7}));  // the KMZ's position
  EXPECT_EQ(details->intensity, 110);                              // the text's wind
  EXPECT_EQ(details->movementSpeed, 9.0);                          // the KMZ fills what the text lacks
  EXPECT_EQ(details->lastUpdate, track.time);

  const auto textOnly = combineJTWCDetails(descriptor, text, std::nullopt);
  EXPECT_EQ(textOnly->coordinate, (StormCoordinate{22.8, 131.6}));
  EXPECT_EQ(textOnly->lastUpdate, reference);  // neither KMZ nor text time: the publication date
  EXPECT_EQ(combineJTWCDetails(descriptor, JTWCWarningText{}, JTWCTrackSummary{}), std::nullopt);

  const Storm storm = stormFromDetails(*details);
  EXPECT_EQ(storm.coneURL, storm.trackURL);
  EXPECT_EQ(storm.historyURL, details->kmzURL);
  EXPECT_EQ(storm.forecastIssuance, storm.lastUpdate);
  EXPECT_EQ(storm.classification.code(), "HU");
}

}  // namespace
}  // namespace ombrine
