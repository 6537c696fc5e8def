#pragma once
// Animated GIF output of equally sized RGB pictures: one palette of up to 256 colours chosen
// from all frames (the most used colours at 4 bits a channel), each frame shown `delay`
// hundredths of a second, looping forever. Raises std::runtime_error when giflib fails or the
// frames differ in size. Pure; thread-safe.

#include <cairo.h>

#include <string>
#include <vector>

namespace ombrine {

std::string encodeAnimatedGif(const std::vector<cairo_surface_t*>& frames, int delayCentiseconds);

}  // namespace ombrine
