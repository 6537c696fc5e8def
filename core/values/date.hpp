#pragma once
// An absolute instant.
//
// Held exactly as the stores write it: seconds since 2001-01-01T00:00:00Z as a double, so a
// value read from a cache file is written back bit for bit. Conversions to Unix time and to
// std::chrono are provided; all are pure.

#include <chrono>
#include <compare>
#include <functional>

namespace ombrine {

struct Date {
  // Seconds between 1970-01-01T00:00:00Z and 2001-01-01T00:00:00Z.
  static constexpr double kReferenceToUnix = 978307200.0;

  double timeIntervalSinceReferenceDate = 0.0;

  static constexpr Date fromReference(double seconds) { return Date{seconds}; }
  static constexpr Date fromUnix(double seconds) { return Date{seconds - kReferenceToUnix}; }
  static Date fromSystem(std::chrono::system_clock::time_point time) {
    return fromUnix(std::chrono::duration<double>(time.time_since_epoch()).count());
  }
  // The instants the platform calls distant past and distant future (years 1 and 4001).
  static constexpr Date distantPast() { return Date{-63114076800.0}; }
  static constexpr Date distantFuture() { return Date{63113904000.0}; }

  constexpr double unixSeconds() const { return timeIntervalSinceReferenceDate + kReferenceToUnix; }
  std::chrono::system_clock::time_point toSystem() const {
    return std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::duration<double>(unixSeconds())));
  }

  constexpr Date operator+(double seconds) const { return Date{timeIntervalSinceReferenceDate + seconds}; }
  constexpr Date operator-(double seconds) const { return Date{timeIntervalSinceReferenceDate - seconds}; }
  // Seconds from `other` to this instant.
  constexpr double operator-(Date other) const {
    return timeIntervalSinceReferenceDate - other.timeIntervalSinceReferenceDate;
  }
  constexpr auto operator<=>(const Date&) const = default;
};

}  // namespace ombrine

template <>
struct std::hash<ombrine::Date> {
  size_t operator()(ombrine::Date date) const noexcept {
    // 0.0 and -0.0 are equal, so they must hash alike.
    double v = date.timeIntervalSinceReferenceDate;
    return std::hash<double>{}(v == 0.0 ? 0.0 : v);
  }
};
