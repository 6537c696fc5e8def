#pragma once
// Binary property lists ("bplist00", the binary format numbered 200) of key-value store values.
//
// The encoder writes one object per value (no sharing of equal objects), ASCII strings as
// such and any other text as UTF-16 big-endian, integers in the fewest of 1, 2, 4 or 8 bytes
// (negative ones always in 8), doubles in 8 bytes, dates as 8-byte doubles (seconds since
// 2001-01-01T00:00:00Z), and the smallest object-reference and offset widths that fit. The
// decoder reads what other writers produce too: shared objects, 4-byte floats, 16-byte integers
// up to 2^64 - 1 (above 2^63 - 1 as a double), 1- to 8-byte reference and offset widths.
// Other object kinds (sets, UIDs, null, fill) are refused, as is anything out of bounds, an
// object reachable from itself, or nesting deeper than 512 levels.
//
// Pure and reentrant.

#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/key_value_store.hpp"

namespace ombrine {

class PropertyListError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// Text that is not UTF-8 is written with U+FFFD in place of each bad byte (a property list
// string is text). Raises PropertyListError only for a value too large for the format.
std::string encodeBinaryPropertyList(const StoreValue& value);

// Raises PropertyListError saying what is wrong.
StoreValue decodeBinaryPropertyList(std::string_view bytes);

}  // namespace ombrine
