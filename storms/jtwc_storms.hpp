#pragma once
// One JTWC storm from its warning text and its KMZ, and the walk over the feed's descriptors.
//
// The warning text outranks the KMZ for every measured value (wind, pressure, motion); the KMZ
// outranks the text for the position and the time. A KMZ that fails is no loss so long as the
// text has a position. A storm that yields nothing withdraws only its own coverage areas.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/values/date.hpp"
#include "platform/async/task.hpp"
#include "platform/http_client.hpp"
#include "storms/jtwc_feed.hpp"
#include "storms/nhc_feed.hpp"
#include "storms/storm.hpp"

namespace ombrine {

inline constexpr std::size_t kMaxJTWCWarningBytes = 32u << 10;

struct JTWCWarningText {
  std::optional<std::string> name;
  std::optional<StormCoordinate> coordinate;
  std::optional<int> intensity;
  std::optional<int> pressure;
  std::optional<double> movementDir;
  std::optional<double> movementSpeed;
  std::optional<Date> time;

  bool operator==(const JTWCWarningText&) const = default;
};

struct JTWCTrackSummary {
  std::optional<StormCoordinate> coordinate;
  std::optional<int> intensity;
  std::optional<int> pressure;
  std::optional<double> movementDir;
  std::optional<double> movementSpeed;
  std::optional<Date> time;

  bool operator==(const JTWCTrackSummary&) const = default;
};

struct JTWCStormDetails {
  std::string id;
  std::string name;
  StormCoordinate coordinate;
  std::optional<int> intensity;
  std::optional<int> pressure;
  std::optional<double> movementDir;
  std::optional<double> movementSpeed;
  std::optional<Date> lastUpdate;
  boost::urls::url advisoryURL;
  boost::urls::url kmzURL;

  bool operator==(const JTWCStormDetails&) const = default;
};

// Reads a warning text; `reference` places its DDHHMM time and stands in when it has none.
JTWCWarningText readJTWCWarningText(std::string_view text, std::optional<Date> reference, Date now);

// "(lat)[NS] (lon)[EW]" as a coordinate; (0, 0) when the text does not have that form.
StormCoordinate readJTWCPosition(std::string_view text);

// "TYPHOON 12W" -> "Typhoon 12W": agency abbreviations and words with digits upper-cased.
std::string cleanJTWCName(std::string_view name);

// The present position of a KMZ: the circle marked "current", else the lowest forecast hour,
// else the first circle, from the first KML document that has circles. `reference` (else `now`)
// resolves times in the KML; `reference` is the summary's time when the circle has none.
JTWCTrackSummary summarizeJTWCTrack(std::string_view kmz, std::optional<Date> reference, Date now,
                                    const std::function<bool()>& cancelled = {});

// No intensity "TC" (other); 64 kt and more hurricane; 34-63 tropical storm; below 34 depression.
Storm::Classification jtwcClassification(std::optional<int> knots);

// Combines text, track and descriptor; nothing without any position.
std::optional<JTWCStormDetails> combineJTWCDetails(const JTWCStormDescriptor& descriptor, const JTWCWarningText& text,
                                                   const std::optional<JTWCTrackSummary>& track);

Storm stormFromDetails(const JTWCStormDetails& details);

// Reads one storm: its warning text (required) and KMZ (optional). Raises the warning's
// HttpError, NetworkError or DecodingError (body not UTF-8), and CancellationError.
Task<std::optional<JTWCStormDetails>> fetchJTWCStormDetails(HttpClient& http, JTWCStormDescriptor descriptor, Date now);

// Reads the storms one at a time, in order, checking for cancellation before each. A storm that
// fails (other than by cancellation) or yields nothing removes its areas from `coverage`.
Task<ActiveStormSourceFetchResult<Storm>> fetchJTWCStorms(HttpClient& http,
                                                          std::vector<JTWCStormDescriptor> descriptors,
                                                          ActiveStormCoverageSet coverage, Date now);

}  // namespace ombrine
