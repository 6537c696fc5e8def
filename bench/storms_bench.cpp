// Reading storm overlays: a KMZ unpacked (central directory, inflate, CRC) and its KML parsed
// into features, in MB/s of KML text. The document is a long JTWC-style track: a cone polygon,
// wind radii and a line the reader drops, and placemarks whose descriptions carry the wind,
// pressure, motion and time texts the attribute expressions read.

#include <benchmark/benchmark.h>

#include <libdeflate.h>

#include <fmt/format.h>

#include <string>

#include "platform/icu_setup.hpp"
#include "storms/kml_reader.hpp"
#include "storms/storm_time.hpp"
#include "storms/zip_reader.hpp"

namespace {

std::string trackKml(int placemarks) {
  std::string body;
  body += "<Placemark><name>06W Forecast Cone</name><Polygon><outerBoundaryIs><LinearRing><coordinates>";
  for (int i = 0; i < 200; ++i) body += fmt::format("{:.2f},{:.2f},0 ", 120.0 + i * 0.05, 10.0 + (i % 7) * 0.3);
  body += "</coordinates></LinearRing></outerBoundaryIs></Polygon></Placemark>\n";
  body +=
      "<Placemark><name>RADIUS OF 034 KT WINDS</name><Polygon><outerBoundaryIs><LinearRing><coordinates>"
      "131,22 132,23 133,22 131,22</coordinates></LinearRing></outerBoundaryIs></Polygon></Placemark>\n";
  for (int i = 0; i < placemarks; ++i) {
    body += fmt::format(
        "<Placemark><name>06W TAU {}</name><styleUrl>#hu_point</styleUrl><description><![CDATA[{:02}0600Z INTENSITY {} "
        "KT "
        "MOVING NORTHWEST AT 9 KNOTS MINIMUM SEA LEVEL PRESSURE {} MB]]></description><ExtendedData><Data "
        "name=\"stormType\">"
        "<value>HU2</value></Data></ExtendedData><Point><coordinates>{:.2f},{:.2f},0</coordinates></Point></"
        "Placemark>\n",
        i * 6, 1 + i % 28, 60 + i % 80, 1000 - i % 80, 130.0 - i * 0.1, 20.0 + i * 0.05);
  }
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<kml "
         "xmlns=\"http://www.opengis.net/kml/2.2\"><Document><name>wp0626</name>\n" +
         body + "</Document></kml>\n";
}

// One deflated doc.kml, as agencies ship a KMZ.
std::string kmzOf(const std::string& kml) {
  libdeflate_compressor* compressor = libdeflate_alloc_compressor(6);
  std::string data(libdeflate_deflate_compress_bound(compressor, kml.size()), '\0');
  data.resize(libdeflate_deflate_compress(compressor, kml.data(), kml.size(), data.data(), data.size()));
  libdeflate_free_compressor(compressor);
  const std::uint32_t crc = libdeflate_crc32(0, kml.data(), kml.size());
  auto put16 = [](std::string& out, std::uint32_t v) {
    out.push_back(static_cast<char>(v & 0xff));
    out.push_back(static_cast<char>(v >> 8));
  };
  auto put32 = [&](std::string& out, std::uint32_t v) {
    put16(out, v & 0xffff);
    put16(out, v >> 16);
  };
  const std::string name = "doc.kml";
  std::string out;
  put32(out, 0x04034b50);
  for (std::uint32_t v : {20u, 0u, 8u}) put16(out, v);
  for (std::uint32_t v : {0u, crc, std::uint32_t(data.size()), std::uint32_t(kml.size())}) put32(out, v);
  put16(out, static_cast<std::uint32_t>(name.size()));
  put16(out, 0);
  out += name + data;
  std::string directory;
  put32(directory, 0x02014b50);
  for (std::uint32_t v : {20u, 20u, 0u, 8u}) put16(directory, v);
  for (std::uint32_t v : {0u, crc, std::uint32_t(data.size()), std::uint32_t(kml.size())}) put32(directory, v);
  for (std::uint32_t v : {std::uint32_t(name.size()), 0u, 0u, 0u, 0u}) put16(directory, v);
  put32(directory, 0);
  put32(directory, 0);
  directory += name;
  const auto directoryOffset = static_cast<std::uint32_t>(out.size());
  out += directory;
  put32(out, 0x06054b50);
  for (std::uint32_t v : {0u, 0u, 1u, 1u}) put16(out, v);
  put32(out, static_cast<std::uint32_t>(directory.size()));
  put32(out, directoryOffset);
  put16(out, 0);
  return out;
}

const ombrine::Date kReference = *ombrine::utcDate(2026, 9, 10, 12, 0);

void BM_KmzUnzip(benchmark::State& state) {
  const std::string kml = trackKml(static_cast<int>(state.range(0)));
  const std::string kmz = kmzOf(kml);
  for (auto _ : state) benchmark::DoNotOptimize(ombrine::kmlTexts(kmz));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kml.size()));
  state.counters["kml_kb"] = static_cast<double>(kml.size()) / 1024.0;
  state.counters["kmz_kb"] = static_cast<double>(kmz.size()) / 1024.0;
}
BENCHMARK(BM_KmzUnzip)->Arg(40)->Arg(4000);

void BM_KmlParse(benchmark::State& state) {
  ombrine::useShippedTimeZoneData();
  const std::string kml = trackKml(static_cast<int>(state.range(0)));
  std::size_t features = 0;
  for (auto _ : state) features = ombrine::kmlFeatures(kml, kReference).size();
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kml.size()));
  state.counters["features"] = static_cast<double>(features);
}
BENCHMARK(BM_KmlParse)->Arg(40)->Arg(4000);

void BM_KmzUnzipAndParse(benchmark::State& state) {
  ombrine::useShippedTimeZoneData();
  const std::string kml = trackKml(static_cast<int>(state.range(0)));
  const std::string kmz = kmzOf(kml);
  for (auto _ : state) {
    for (const auto& [name, text] : ombrine::kmlTexts(kmz))
      benchmark::DoNotOptimize(ombrine::kmlFeatures(text, kReference));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kml.size()));
}
BENCHMARK(BM_KmzUnzipAndParse)->Arg(40)->Arg(4000);

}  // namespace

BENCHMARK_MAIN();
