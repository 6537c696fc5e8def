#pragma once
// The JSON form of OneCallWeather: the shape the weather and trip caches store.
//
// Shape: {"lat", "lon", "timezone", "timezoneOffset", "current", "minutely"?, "hourly", "daily",
// "alerts", "attribution", "tideData"?}, in that order, and inside each record its fields in
// declaration order. "minutely" and "tideData" are left out when absent; "alerts" and
// "attribution" are always written, as null when absent; every other optional field is left out
// when absent. Keys equal the field names except rain/snow volumes ("1h"), a glyph's symbol
// ("icon") and air quality ("time", "AQI"). Value rules (dates, measurements, numbers, strings):
// core/value_json.hpp.
//
// Time zone: written as its identifier and its offset from GMT at the moment of encoding (a
// parameter, so encoding stays a pure function). Decoding tries the identifier, then a fixed
// offset from "timezoneOffset", then the device's zone; both keys must be present.
//
// Decoding is strict: a missing required key or a value of the wrong type fails the whole record
// with a DecodingError that names the place ("hourly[3].dt: missing key"); unknown keys are
// ignored. Text is decoded as it is read (core/values/json_stream.hpp); a DOM value is walked. Both give
// the same record, and for a document with one fault the same message. A decoded record never is a placeholder. An
// alert event "weather" is read as "special weather statement". Sun state changes and attributions must hold exactly
// one known key, else "Invalid number of keys found, expected one.". decode(encode(x)) == x bit for bit, and
// encode(decode(text)) == text for any text this encoder wrote.
//
// Pure functions; reentrant. Encoding raises EncodingError only for a NaN or infinite number.

#include <boost/json/storage_ptr.hpp>
#include <boost/json/value.hpp>

#include <string>
#include <string_view>

#include "core/record/one_call_weather.hpp"
#include "core/values/date.hpp"
#include "core/values/value_json.hpp"

namespace ombrine {

// The record as compact JSON text.
std::string encodeOneCallWeather(const OneCallWeather& weather, Date encodingMoment);
// Writes the record as one value into a larger document.
void writeOneCallWeather(JsonWriter& writer, const OneCallWeather& weather, Date encodingMoment);
// The record as a DOM (for documents built with boost::json; write them with serializeJson to
// keep the number rules).
boost::json::value oneCallWeatherToJson(const OneCallWeather& weather, Date encodingMoment,
                                        boost::json::storage_ptr storage = {});

// Decodes while reading the text (no document is built). Raises DecodingError.
OneCallWeather decodeOneCallWeather(std::string_view json);
// Decodes the record from a DOM value found at `path` of a larger document (the path only names
// the place in messages; JsonPath() for a document of its own).
OneCallWeather decodeOneCallWeather(const boost::json::value& value, const JsonPath& path);

// The codecs of the record and of its unions, for documents that embed them (DOM decoding,
// streaming decoding with core/values/json_stream.hpp, writing).
class JsonStream;
void decodeJson(const boost::json::value& value, const JsonPath& path, OneCallWeather& out);
void decodeJson(const boost::json::value& value, const JsonPath& path, SunStateChange& out);
void decodeJson(const boost::json::value& value, const JsonPath& path, WeatherServiceAttribution& out);
void streamObject(JsonStream& stream, const JsonPath& path, OneCallWeather& out);
void streamObject(JsonStream& stream, const JsonPath& path, SunStateChange& out);
void writeJson(JsonWriter& writer, const SunStateChange& value);
void writeJson(JsonWriter& writer, const WeatherServiceAttribution& value);

}  // namespace ombrine
