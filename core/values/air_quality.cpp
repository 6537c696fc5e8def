#include "core/values/air_quality.hpp"

namespace ombrine {

AirQualityRange airQualityRange(int aqi) noexcept {
  if (aqi <= 50) return AirQualityRange::good;
  if (aqi <= 100) return AirQualityRange::moderate;
  if (aqi <= 150) return AirQualityRange::sensitive;
  if (aqi <= 200) return AirQualityRange::unhealthy;
  if (aqi <= 300) return AirQualityRange::veryUnhealthy;
  return AirQualityRange::hazardous;
}

std::string_view label(AirQualityRange range) noexcept {
  switch (range) {
    case AirQualityRange::good: return "Good";
    case AirQualityRange::moderate: return "Moderate";
    case AirQualityRange::sensitive: return "Unhealthy for Sensitive Groups";
    case AirQualityRange::unhealthy: return "Unhealthy";
    case AirQualityRange::veryUnhealthy: return "Very Unhealthy";
    case AirQualityRange::hazardous: return "Hazardous";
  }
  return "";
}

std::string_view colorName(AirQualityRange range) noexcept {
  switch (range) {
    case AirQualityRange::good: return "green";
    case AirQualityRange::moderate: return "yellow";
    case AirQualityRange::sensitive: return "orange";
    case AirQualityRange::unhealthy: return "red";
    case AirQualityRange::veryUnhealthy: return "purple";
    case AirQualityRange::hazardous: return "brown";
  }
  return "";
}

}  // namespace ombrine
