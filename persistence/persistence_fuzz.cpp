// Cache files are outside bytes: another process, a crash or a user may leave anything there.
// Every decoder must raise DecodingError or return a value, never crash.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/values/errors.hpp"
#include "persistence/favorite_weather_cache.hpp"
#include "persistence/geocode_cache.hpp"
#include "persistence/weather_cache.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const ombrine::CachedWeather cached = ombrine::decodeCachedWeather(text);
    (void)ombrine::encodeCachedWeather(cached, cached.weather.current.dt);
  } catch (const ombrine::DecodingError&) {
  }
  try {
    const ombrine::FavoriteWeather favorites = ombrine::decodeFavoriteWeather(text);
    (void)ombrine::encodeFavoriteWeather(favorites, ombrine::Date{});
  } catch (const ombrine::DecodingError&) {
  }
  try {
    (void)ombrine::GeocodeCache::decode(text);
  } catch (const ombrine::DecodingError&) {
  }
  return 0;
}
