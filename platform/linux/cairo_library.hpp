#pragma once
// Cairo (and the fontconfig it draws text with), loaded when the program first draws rather than
// at program start.
//
// libcairo brings pixman, freetype, fontconfig, the X and xcb client libraries and a dozen more
// with it, whose loading and relocation cost every run of the program, also the many that never
// draw. So the program does not link it: cairo_library.cpp defines each cairo function the
// program calls (with the declarations of <cairo.h>, so callers write plain cairo) and forwards
// it to "libcairo.so.2", opened on the first call; FcFini likewise to "libfontconfig.so.1".
//
// Thread-safe. Every forwarded function raises std::runtime_error when the library cannot be
// opened or lacks the function. A function not forwarded there fails to link: add it there.

namespace ombrine {

// The libraries the definitions forward to.
inline constexpr char kCairoLibrary[] = "libcairo.so.2";
inline constexpr char kFontconfigLibrary[] = "libfontconfig.so.1";

}  // namespace ombrine
