#pragma once
// The files of the notification spool, one JSON object per request:
//   {"body": "...", "defaultSound": true, "deliveredTo": "desktop", "desktopId": 7,
//    "identifier": "...", "title": "...", "triggerDate": 1700000000.5}
// `triggerDate` is seconds since 1970 (UTC), to the millisecond; `deliveredTo` and `desktopId` appear only in
// delivered entries, `desktopId` only when the desktop showed it. Another program (a script
// reading the spool, an older version) may write these files, so the decoder trusts nothing.
//
// A request's file is named after its identifier, with every byte outside [A-Za-z0-9._:-] (and
// a leading ".") written as "%XX", so any identifier is one file name and no two share one.
//
// All functions are pure and reentrant.

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/notification_center.hpp"

namespace ombrine {

struct SpoolEntry {
  NotificationEntry entry;
  std::optional<std::uint32_t> desktopId;
  bool operator==(const SpoolEntry&) const = default;
};

// Raised by decodeSpoolEntry for anything but the form above.
class SpoolDecodingError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

std::string encodeSpoolEntry(const SpoolEntry& entry);
SpoolEntry decodeSpoolEntry(std::string_view json);

// "<escaped identifier>.json"; the identifier must not be empty.
std::string spoolFileName(std::string_view identifier);

}  // namespace ombrine
