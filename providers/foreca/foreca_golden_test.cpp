// Conversion of recorded simulator answers against golden records in testdata/golden/.
// Set OMBRINE_UPDATE_GOLDEN=1 to rewrite the golden files after a deliberate change, and
// review the diff.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include "core/record/one_call_weather_json.hpp"
#include "providers/foreca/foreca_conversion.hpp"
#include "providers/foreca/foreca_test_support.hpp"

namespace ombrine {
namespace {

using testing_foreca::kRecordedAt;
using testing_foreca::kRecordedPlaces;
using testing_foreca::RecordedPlace;

const std::filesystem::path kTestdata = OMBRINE_TESTDATA_DIR;

OneCallWeather convertRecorded(const RecordedPlace& place) {
  return convertForecaWeather(testing_foreca::loadRecordedWeather(kTestdata / "recorded", place),
                              testing_foreca::recordedContext(place));
}

TEST(ForecaGoldenTest, RecordedAnswersConvertToTheGoldenRecords) {
  const bool update = std::getenv("OMBRINE_UPDATE_GOLDEN") != nullptr;
  for (const RecordedPlace& place : kRecordedPlaces) {
    SCOPED_TRACE(place.name);
    OneCallWeather record = convertRecorded(place);
    std::string encoded = encodeOneCallWeather(record, kRecordedAt) + "\n";
    const std::filesystem::path golden = kTestdata / "golden" / (std::string(place.name) + ".json");
    if (update) {
      std::filesystem::create_directories(golden.parent_path());
      std::ofstream(golden, std::ios::binary) << encoded;
      continue;
    }
    std::string expected = testing_foreca::readTextFile(golden);
    if (encoded != expected) {
      auto [at, _] = std::mismatch(encoded.begin(), encoded.end(), expected.begin(), expected.end());
      size_t offset = static_cast<size_t>(at - encoded.begin());
      size_t from = offset < 80 ? 0 : offset - 80;
      ADD_FAILURE() << "differs from " << golden << " at byte " << offset
                    << "\n  got:      " << encoded.substr(from, 160) << "\n  expected: " << expected.substr(from, 160);
    }
    // The golden text is a valid cache record that reads back as the same value.
    EXPECT_EQ(decodeOneCallWeather(expected), record);
  }
}

TEST(ForecaGoldenTest, RecordedPlacesShowTheirEdgeCases) {
  const auto& helsinki = kRecordedPlaces[0];
  const auto& oslo = kRecordedPlaces[1];
  const auto& tromso = kRecordedPlaces[2];
  const auto& suva = kRecordedPlaces[3];

  // Helsinki: one of three warnings is still in force at noon.
  OneCallWeather helsinkiRecord = convertRecorded(helsinki);
  ASSERT_TRUE(helsinkiRecord.alerts.has_value());
  EXPECT_EQ(helsinkiRecord.alerts->size(), 1u);
  EXPECT_TRUE(helsinkiRecord.minutely.has_value() && helsinkiRecord.minutely->empty());
  EXPECT_EQ(helsinkiRecord.daily.size(), 11u);
  EXPECT_GE(helsinkiRecord.hourly.front().dt, kRecordedAt);

  // Oslo: wet enough for minute data.
  OneCallWeather osloRecord = convertRecorded(oslo);
  ASSERT_TRUE(osloRecord.minutely.has_value());
  EXPECT_FALSE(osloRecord.minutely->empty());

  // Tromsø in January: polar night, so no sun rows and "now" for the current sun times.
  OneCallWeather tromsoRecord = convertRecorded(tromso);
  EXPECT_EQ(tromsoRecord.current.sunrise, kRecordedAt);
  EXPECT_EQ(tromsoRecord.current.sunset, kRecordedAt);
  EXPECT_FALSE(tromsoRecord.daily.front().sunrise.has_value());
  EXPECT_EQ(tromsoRecord.alerts->size(), 2u);

  // Suva (UTC+12): the current hour is already the next calendar day there.
  OneCallWeather suvaRecord = convertRecorded(suva);
  EXPECT_EQ(suvaRecord.current.dt, kRecordedAt);
  EXPECT_EQ(suvaRecord.daily.front().dt, Date::fromUnix(1768478400));  // 2026-01-16T00:00+12:00

  for (const auto* record : {&helsinkiRecord, &osloRecord, &suvaRecord}) {
    int sunRows = 0;
    for (const auto& row : record->hourly) sunRows += row.sunStateChange.has_value();
    // Every future sunrise and sunset inside the hourly range has exactly one row.
    // (Events up to the end of the hour of the last regular row.)
    Date end;
    for (const auto& row : record->hourly) {
      if (!row.sunStateChange) end = row.dt + 3600.0;
    }
    int futureEvents = 0;
    for (const auto& day : record->daily) {
      for (const auto& event : {day.sunrise, day.sunset}) {
        if (event && *event > kRecordedAt && *event < end) ++futureEvents;
      }
    }
    EXPECT_EQ(sunRows, futureEvents);
  }
}

}  // namespace
}  // namespace ombrine
