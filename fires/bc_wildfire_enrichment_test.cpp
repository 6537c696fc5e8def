#include "fires/bc_wildfire_enrichment.hpp"

#include <gtest/gtest.h>

namespace ombrine {
namespace {

namespace Policy = BCWildfireEnrichmentPolicy;
constexpr const char* kHost = "wildfiresituation.nrs.gov.bc.ca";

TEST(BCWildfireEnrichmentPolicy, NamesAndPages) {
  struct Case {
    std::optional<std::string> name;
    std::optional<std::string> description;
    std::optional<std::string> url;
    std::optional<std::string> displayName;
    bool hasPage;
  };
  const Case cases[] = {
      {"Tranquille Creek", "12 km NW of Kamloops",
       "https://wildfiresituation.nrs.gov.bc.ca/incidents?incidentNumber=K71234", "Tranquille Creek", true},
      {"UNKNOWN", "3 km S of Hope", "http://wildfiresituation.nrs.gov.bc.ca/incidents", "3 km S of Hope", false},
      {" n/a ", " tbd", "https://WildfireSituation.nrs.gov.bc.ca/map/incidents/K1", std::nullopt, true},
      {"", std::nullopt, "https://wildfiresituation.nrs.gov.bc.ca/map", std::nullopt, false},  // no incidents component
      {"Null", "Unk", "https://example.com/incidents", std::nullopt, false},                   // another host
      {std::nullopt, "Near Lytton", "not a url", "Near Lytton", false},
      {"  Bear Creek ", std::nullopt, "https://wildfiresituation.nrs.gov.bc.ca/incidentsx", "Bear Creek", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name.value_or("(none)"));
    const BCWildfireEnrichmentRecord record{"K1", c.name, c.description, c.url};
    EXPECT_EQ(Policy::displayName(record), c.displayName);
    EXPECT_EQ(Policy::detailsURL(record, kHost).has_value(), c.hasPage);
  }
  for (const char* placeholder : {"N/A", "NA", "NONE", "NULL", "TBA", "TBD", "UNK", "UNKNOWN", "unknown", ""}) {
    EXPECT_FALSE(Policy::isName(placeholder)) << placeholder;
  }
  EXPECT_TRUE(Policy::isName("Nazko"));
}

}  // namespace
}  // namespace ombrine
