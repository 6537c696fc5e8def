#pragma once
// Points ICU at the current time-zone data shipped in resources/icu-tzdata.
//
// ICU 72's built-in zone rules are from 2022; the shipped files carry a current IANA release.
// Call once at process start, before the first ICU call (ICU reads the setting when it first
// loads zone data). Safe to call again; later calls do nothing. Thread-safe.

#include <string>

namespace ombrine {

void useShippedTimeZoneData();

// The IANA release ICU is using, e.g. "2026a" (after useShippedTimeZoneData()).
std::string timeZoneDataVersion();

}  // namespace ombrine
