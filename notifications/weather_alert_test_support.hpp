#pragma once
// Shared by the notifications tests: a temporary folder and alerts built in one line.

#include <stdlib.h>

#include <filesystem>
#include <string>

#include "core/record/one_call_weather.hpp"

namespace ombrine::testing_support {

class TempFolder {
 public:
  TempFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "ombrine-alerts-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

inline OneCallWeather::Alert alert(std::string event, std::string sender, Date start, std::optional<Date> end,
                                   std::optional<WeatherSeverity> severity = WeatherSeverity::moderate) {
  OneCallWeather::Alert a;
  a.event = std::move(event);
  a.senderName = std::move(sender);
  a.start = start;
  a.end = end;
  a.severity = severity;
  return a;
}

}  // namespace ombrine::testing_support
