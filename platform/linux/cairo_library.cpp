#include "platform/linux/cairo_library.hpp"

#include <cairo-svg.h>
#include <cairo.h>
#include <fontconfig/fontconfig.h>

#include "platform/linux/shared_library.hpp"

#define OMBRINE_FORWARD(name, ...) OMBRINE_FORWARD_TO(ombrine::kCairoLibrary, name __VA_OPT__(, ) __VA_ARGS__)

extern "C" {

void cairo_arc(cairo_t* cr, double xc, double yc, double radius, double angle1, double angle2) {
  OMBRINE_FORWARD(cairo_arc, cr, xc, yc, radius, angle1, angle2);
}
void cairo_clip(cairo_t* cr) { OMBRINE_FORWARD(cairo_clip, cr); }
void cairo_clip_extents(cairo_t* cr, double* x1, double* y1, double* x2, double* y2) {
  OMBRINE_FORWARD(cairo_clip_extents, cr, x1, y1, x2, y2);
}
cairo_t* cairo_create(cairo_surface_t* target) { OMBRINE_FORWARD(cairo_create, target); }
void cairo_debug_reset_static_data(void) { OMBRINE_FORWARD(cairo_debug_reset_static_data); }
void cairo_destroy(cairo_t* cr) { OMBRINE_FORWARD(cairo_destroy, cr); }
void cairo_fill(cairo_t* cr) { OMBRINE_FORWARD(cairo_fill, cr); }
void cairo_fill_preserve(cairo_t* cr) { OMBRINE_FORWARD(cairo_fill_preserve, cr); }
cairo_pattern_t* cairo_get_source(cairo_t* cr) { OMBRINE_FORWARD(cairo_get_source, cr); }
cairo_surface_t* cairo_image_surface_create(cairo_format_t format, int width, int height) {
  OMBRINE_FORWARD(cairo_image_surface_create, format, width, height);
}
cairo_surface_t* cairo_image_surface_create_from_png(const char* filename) {
  OMBRINE_FORWARD(cairo_image_surface_create_from_png, filename);
}
cairo_surface_t* cairo_image_surface_create_from_png_stream(cairo_read_func_t read_func, void* closure) {
  OMBRINE_FORWARD(cairo_image_surface_create_from_png_stream, read_func, closure);
}
unsigned char* cairo_image_surface_get_data(cairo_surface_t* surface) {
  OMBRINE_FORWARD(cairo_image_surface_get_data, surface);
}
cairo_format_t cairo_image_surface_get_format(cairo_surface_t* surface) {
  OMBRINE_FORWARD(cairo_image_surface_get_format, surface);
}
int cairo_image_surface_get_height(cairo_surface_t* surface) {
  OMBRINE_FORWARD(cairo_image_surface_get_height, surface);
}
int cairo_image_surface_get_stride(cairo_surface_t* surface) {
  OMBRINE_FORWARD(cairo_image_surface_get_stride, surface);
}
int cairo_image_surface_get_width(cairo_surface_t* surface) { OMBRINE_FORWARD(cairo_image_surface_get_width, surface); }
void cairo_line_to(cairo_t* cr, double x, double y) { OMBRINE_FORWARD(cairo_line_to, cr, x, y); }
void cairo_move_to(cairo_t* cr, double x, double y) { OMBRINE_FORWARD(cairo_move_to, cr, x, y); }
void cairo_paint(cairo_t* cr) { OMBRINE_FORWARD(cairo_paint, cr); }
void cairo_paint_with_alpha(cairo_t* cr, double alpha) { OMBRINE_FORWARD(cairo_paint_with_alpha, cr, alpha); }
void cairo_pattern_set_extend(cairo_pattern_t* pattern, cairo_extend_t extend) {
  OMBRINE_FORWARD(cairo_pattern_set_extend, pattern, extend);
}
void cairo_pattern_set_filter(cairo_pattern_t* pattern, cairo_filter_t filter) {
  OMBRINE_FORWARD(cairo_pattern_set_filter, pattern, filter);
}
void cairo_rectangle(cairo_t* cr, double x, double y, double width, double height) {
  OMBRINE_FORWARD(cairo_rectangle, cr, x, y, width, height);
}
void cairo_restore(cairo_t* cr) { OMBRINE_FORWARD(cairo_restore, cr); }
void cairo_save(cairo_t* cr) { OMBRINE_FORWARD(cairo_save, cr); }
void cairo_scale(cairo_t* cr, double sx, double sy) { OMBRINE_FORWARD(cairo_scale, cr, sx, sy); }
void cairo_select_font_face(cairo_t* cr, const char* family, cairo_font_slant_t slant, cairo_font_weight_t weight) {
  OMBRINE_FORWARD(cairo_select_font_face, cr, family, slant, weight);
}
void cairo_set_antialias(cairo_t* cr, cairo_antialias_t antialias) {
  OMBRINE_FORWARD(cairo_set_antialias, cr, antialias);
}
void cairo_set_dash(cairo_t* cr, const double* dashes, int num_dashes, double offset) {
  OMBRINE_FORWARD(cairo_set_dash, cr, dashes, num_dashes, offset);
}
void cairo_set_font_size(cairo_t* cr, double size) { OMBRINE_FORWARD(cairo_set_font_size, cr, size); }
void cairo_set_line_width(cairo_t* cr, double width) { OMBRINE_FORWARD(cairo_set_line_width, cr, width); }
void cairo_set_source_rgb(cairo_t* cr, double red, double green, double blue) {
  OMBRINE_FORWARD(cairo_set_source_rgb, cr, red, green, blue);
}
void cairo_set_source_rgba(cairo_t* cr, double red, double green, double blue, double alpha) {
  OMBRINE_FORWARD(cairo_set_source_rgba, cr, red, green, blue, alpha);
}
void cairo_set_source_surface(cairo_t* cr, cairo_surface_t* surface, double x, double y) {
  OMBRINE_FORWARD(cairo_set_source_surface, cr, surface, x, y);
}
void cairo_show_text(cairo_t* cr, const char* utf8) { OMBRINE_FORWARD(cairo_show_text, cr, utf8); }
cairo_status_t cairo_status(cairo_t* cr) { OMBRINE_FORWARD(cairo_status, cr); }
const char* cairo_status_to_string(cairo_status_t status) { OMBRINE_FORWARD(cairo_status_to_string, status); }
void cairo_stroke(cairo_t* cr) { OMBRINE_FORWARD(cairo_stroke, cr); }
void cairo_stroke_preserve(cairo_t* cr) { OMBRINE_FORWARD(cairo_stroke_preserve, cr); }
cairo_surface_t* cairo_surface_create_for_rectangle(cairo_surface_t* target, double x, double y, double width,
                                                    double height) {
  OMBRINE_FORWARD(cairo_surface_create_for_rectangle, target, x, y, width, height);
}
void cairo_surface_destroy(cairo_surface_t* surface) { OMBRINE_FORWARD(cairo_surface_destroy, surface); }
void cairo_surface_finish(cairo_surface_t* surface) { OMBRINE_FORWARD(cairo_surface_finish, surface); }
void cairo_surface_flush(cairo_surface_t* surface) { OMBRINE_FORWARD(cairo_surface_flush, surface); }
cairo_surface_type_t cairo_surface_get_type(cairo_surface_t* surface) {
  OMBRINE_FORWARD(cairo_surface_get_type, surface);
}
cairo_status_t cairo_surface_status(cairo_surface_t* surface) { OMBRINE_FORWARD(cairo_surface_status, surface); }
cairo_status_t cairo_surface_write_to_png(cairo_surface_t* surface, const char* filename) {
  OMBRINE_FORWARD(cairo_surface_write_to_png, surface, filename);
}
cairo_status_t cairo_surface_write_to_png_stream(cairo_surface_t* surface, cairo_write_func_t write_func,
                                                 void* closure) {
  OMBRINE_FORWARD(cairo_surface_write_to_png_stream, surface, write_func, closure);
}
cairo_surface_t* cairo_svg_surface_create_for_stream(cairo_write_func_t write_func, void* closure,
                                                     double width_in_points, double height_in_points) {
  OMBRINE_FORWARD(cairo_svg_surface_create_for_stream, write_func, closure, width_in_points, height_in_points);
}
void cairo_text_extents(cairo_t* cr, const char* utf8, cairo_text_extents_t* extents) {
  OMBRINE_FORWARD(cairo_text_extents, cr, utf8, extents);
}
void cairo_text_path(cairo_t* cr, const char* utf8) { OMBRINE_FORWARD(cairo_text_path, cr, utf8); }
void cairo_translate(cairo_t* cr, double tx, double ty) { OMBRINE_FORWARD(cairo_translate, cr, tx, ty); }

// Loaded with cairo, which depends on it.
void FcFini(void) { OMBRINE_FORWARD_TO(ombrine::kFontconfigLibrary, FcFini); }

}  // extern "C"
