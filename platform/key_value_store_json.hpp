#pragma once
// The JSON form of a key-value dictionary, as the file-backed stores keep it on disk.
//
// The file is one JSON object, key → value, and every kind of StoreValue stays distinguishable
// when read back:
//   bool        true / false
//   integer     a JSON number without fraction or exponent: 42
//   double      a JSON number that always has a fraction or exponent: 42.0, 1e+300 (shortest
//               text that reads back as the same double); NaN and infinities as
//               {"$double": "nan" | "inf" | "-inf"}
//   string      a JSON string
//   date        {"$date": seconds since 2001-01-01T00:00:00Z}
//   data        {"$data": "<base64>"}
//   array       a JSON array
//   dictionary  a JSON object
// The tag objects have exactly one member whose key starts with one "$". So that a dictionary
// can never be mistaken for a tag, every dictionary key that starts with "$" (at any depth,
// including the top level) is written with one more "$" in front, which the reader removes.
// JSON null has no StoreValue and is refused.
//
// All functions are pure and reentrant.

#include <string>
#include <string_view>

#include "platform/key_value_store.hpp"

namespace ombrine {

// Compact JSON text of `values` (keys in their sorted order).
std::string encodeStoreDictionaryJson(const StoreDictionary& values);
// One value alone, in the same form.
std::string encodeStoreValueJson(const StoreValue& value);

// Raises std::invalid_argument naming what is wrong ("byte 17: ..." for malformed JSON, or the
// key whose value has no StoreValue form). The document must be a JSON object.
StoreDictionary decodeStoreDictionaryJson(std::string_view json);

// Standard base64 (RFC 4648, with padding); decoding raises std::invalid_argument for anything
// else, white space included.
std::string encodeBase64(std::string_view bytes);
std::string decodeBase64(std::string_view text);

}  // namespace ombrine
