#pragma once
// Decoders of the two climate services' answers, the conversion of each into monthly normals,
// and the cache form of the blended record.
//
// Meteostat normals are {"meta": {...}, "data": [{"month", "tmin", "tmax", "prcp", "tsun", ...}]}
// (other members ignored; a null value is absent, a null or missing "data" is no months).
// Stations nearby are {"data": [{"id", ...}]}. NASA POWER climatology is a GeoJSON Feature
// whose "properties.parameter" maps each parameter to {"JAN": v, ..., "DEC": v, "ANN": v} and
// whose "header.fill_value" marks values it has not got; a parameter the answer lacks reads as
// no values for it.
//
// Every decoder raises DecodingError (saying where) for bytes that are not such a document;
// none crashes on any input. Pure functions.

#include <string>
#include <string_view>
#include <vector>

#include "history/climate_records.hpp"

namespace ombrine {

RawHistoryData decodeMeteostatNormals(std::string_view body);
StationData decodeMeteostatStations(std::string_view body);
NASAPowerHistoryData decodeNASAPowerClimatology(std::string_view body);

// Meteostat's months as normals; sunshine rounded to the nearest whole minute (a non-finite
// sunshine is absent).
std::vector<HistoryData::History> historyMonths(const RawHistoryData& raw);

// NASA POWER's twelve months in calendar order. A value counts only when it is finite and not
// the header's fill value; a month with none of its three values is left out; sunshine is
// always absent.
std::vector<HistoryData::History> historyMonths(const NASAPowerHistoryData& nasa);

// The cache form, and back (DecodingError for anything else).
std::string encodeHistoryData(const HistoryData& history);
HistoryData decodeHistoryData(std::string_view text);

}  // namespace ombrine
