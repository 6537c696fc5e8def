// Feeds arbitrary bytes to every fire decoder: each must either decode or raise DecodingError.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/values/errors.hpp"
#include "fires/fire_features.hpp"

namespace {

template <class Decode>
void attempt(Decode decode) {
  try {
    decode();
  } catch (const ombrine::DecodingError&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace ombrine;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  attempt([&] {
    for (const auto& feature : decodeFireFeatureCollection<NIFCFirePerimeterProperties>(text).features) {
      if (feature.geometry) (void)firePolygons(*feature.geometry);
    }
  });
  attempt([&] { (void)decodeFireFeatureCollection<NIFCFireIncidentProperties>(text); });
  attempt([&] { (void)decodeFireFeatureCollection<CalFirePerimeterProperties>(text); });
  attempt([&] { (void)decodeFireFeatureCollection<CWFISActiveFireProperties>(text); });
  attempt([&] { (void)decodeFireFeatureCollection<CWFISFirePerimeterProperties>(text); });
  attempt([&] { (void)decodeFireFeatureCollection<BCWildfireEnrichmentProperties>(text); });
  attempt([&] { (void)decodeCalFireIncidentList(text); });
  return 0;
}
