#pragma once
// Compact JSON text the way web services write it.
//
// Keys keep their insertion order; numbers are written with std::to_chars (shortest text that
// reads back to the same double: 23.5, 7, 0.1), never in exponent form for ordinary values,
// and -0 is written as 0. Non-finite numbers are not JSON and are written as null.

#include <string>

#include <boost/json/value.hpp>

namespace ombrine::sim {

std::string writeJson(const boost::json::value& value);

// `value` rounded to `decimals` places (0..6) as the JSON number a service would send: an
// integer when `decimals` is 0.
boost::json::value roundedNumber(double value, int decimals);

}  // namespace ombrine::sim
