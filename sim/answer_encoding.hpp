#pragma once
// The content coding of the simulator's answers, chosen the way a web server in front of a real
// service chooses it: gzip at a fast level for textual bodies when the request accepts gzip,
// otherwise the body as it is. Brotli is never sent (real services answer these clients with
// gzip, and brotli at its default quality costs tens of milliseconds per answer).
//
// Pure functions, any thread.

#include <optional>
#include <string>
#include <string_view>

namespace ombrine::sim {

// Whether an Accept-Encoding value admits gzip ("gzip", "x-gzip" or "*", not with q=0).
bool acceptsGzip(std::string_view acceptEncoding);

// Whether a body of this type is worth compressing (JSON, XML, text).
bool isCompressible(std::string_view contentType);

// `body` as a gzip member, or nullopt when it is too short to gain anything.
std::optional<std::string> gzipped(std::string_view body);

}  // namespace ombrine::sim
