#pragma once
// The folded form of place names that the index's search keys are stored in and that queries
// are compared in.
//
// Steps, identical to the generator's (resources/places/fold.js), which folds the keys:
//   1. Unicode default case folding;
//   2. NFD, removal of every nonspacing mark, NFC — the effect of the ICU transliterator
//      "NFD; [:Nonspacing Mark:] Remove; NFC";
//   3. white space, hyphens, dashes and "_" become one space, apostrophe look-alikes "'",
//      and "." is dropped;
//   4. no leading, trailing or repeated spaces.
// So "Zürich", "ZURICH" and "zurich" meet, as do "São Paulo" and "sao paulo", "St. Louis" and
// "st louis", "Baden-Baden" and "baden baden". Folding first lets the dot that folding gives
// "İ" be removed as a mark. Invalid UTF-8 reads as U+FFFD.
//
// Thread-safe (ICU's normalizers are immutable singletons). Allocates.

#include <string>
#include <string_view>

namespace ombrine {

std::string searchKey(std::string_view text);

}  // namespace ombrine
