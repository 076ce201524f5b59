#include "plot/canvas.h"

#include <cstring>
#include <filesystem>

#include <cairo-svg.h>

#include "error.h"
#include "io/output_file.h"
#include "io/png.h"

namespace lumivert::tool {
namespace {

constexpr double kFullCircle = 6.283185307179586;

cairo_status_t append(void* bytes, const unsigned char* data, unsigned int size) {
    static_cast<std::string*>(bytes)->append(reinterpret_cast<const char*>(data), size);
    return CAIRO_STATUS_SUCCESS;
}

} // namespace

Canvas::Canvas(const std::string& path, int width, int height)
    : path_(path), svg_(std::filesystem::path(path).extension() == ".svg"),
      surface_(svg_ ? cairo_svg_surface_create_for_stream(append, &bytes_, width, height)
                    : cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height)),
      context_(cairo_create(surface_.get())) {
    fill({0, 0}, width, height, colours::kWhite);
    cairo_set_line_join(context_.get(), CAIRO_LINE_JOIN_ROUND);
}

void Canvas::source(Colour colour) {
    cairo_set_source_rgb(context_.get(), colour.r, colour.g, colour.b);
}

void Canvas::stroke(Colour colour, double thickness, bool dashed) {
    constexpr double kDashes[] = {6, 5};
    cairo_set_dash(context_.get(), kDashes, dashed ? 2 : 0, 0);
    cairo_set_line_width(context_.get(), thickness);
    source(colour);
    cairo_stroke(context_.get());
}

void Canvas::line(Point from, Point to, Colour colour, double thickness, bool dashed) {
    path({from, to}, colour, thickness, dashed);
}

void Canvas::path(const std::vector<Point>& points, Colour colour, double thickness, bool dashed) {
    for (const auto& [x, y] : points)
        cairo_line_to(context_.get(), x, y);
    stroke(colour, thickness, dashed);
}

void Canvas::fill(Point corner, double width, double height, Colour colour) {
    cairo_rectangle(context_.get(), corner.first, corner.second, width, height);
    source(colour);
    cairo_fill(context_.get());
}

void Canvas::frame(Point corner, double width, double height, Colour colour) {
    cairo_rectangle(context_.get(), corner.first, corner.second, width, height);
    stroke(colour, 1, false);
}

void Canvas::dot(Point centre, double radius, Colour colour, bool hollow) {
    cairo_new_sub_path(context_.get());
    cairo_arc(context_.get(), centre.first, centre.second, radius, 0, kFullCircle);
    source(hollow ? colours::kWhite : colour);
    cairo_fill_preserve(context_.get());
    stroke(colour, 1.5, false);
}

void Canvas::text(Point at, const std::string& text, Colour colour, double size, Align align, bool bold) {
    cairo_select_font_face(context_.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(context_.get(), size);
    cairo_text_extents_t extents;
    cairo_text_extents(context_.get(), text.c_str(), &extents);
    const double shift = align == Align::kLeft     ? 0
                         : align == Align::kCentre ? extents.x_advance / 2
                                                   : extents.x_advance;
    source(colour);
    cairo_move_to(context_.get(), at.first - shift, at.second);
    cairo_show_text(context_.get(), text.c_str());
    cairo_new_path(context_.get());
}

void Canvas::text_upwards(Point at, const std::string& line, Colour colour, double size) {
    cairo_save(context_.get());
    cairo_translate(context_.get(), at.first, at.second);
    cairo_rotate(context_.get(), -kFullCircle / 4);
    text({0, 0}, line, colour, size, Align::kCentre);
    cairo_restore(context_.get());
}

void Canvas::image(Point corner, const std::vector<uint32_t>& pixels, int width) {
    const int height = static_cast<int>(pixels.size()) / width;
    const std::unique_ptr<cairo_surface_t, Destroy> picture(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height));
    const int pitch = cairo_image_surface_get_stride(picture.get());
    uint8_t* rows = cairo_image_surface_get_data(picture.get());
    for (int y = 0; y < height; ++y)
        std::memcpy(rows + static_cast<ptrdiff_t>(y) * pitch, &pixels[static_cast<size_t>(y) * width],
                    sizeof(uint32_t) * width);
    cairo_surface_mark_dirty(picture.get());
    cairo_set_source_surface(context_.get(), picture.get(), corner.first, corner.second);
    cairo_paint(context_.get());
}

void Canvas::clip(Point corner, double width, double height) {
    cairo_save(context_.get());
    cairo_rectangle(context_.get(), corner.first, corner.second, width, height);
    cairo_clip(context_.get());
}

void Canvas::unclip() {
    cairo_restore(context_.get());
}

void Canvas::save_png() {
    const int width = cairo_image_surface_get_width(surface_.get());
    const int height = cairo_image_surface_get_height(surface_.get());
    const ptrdiff_t pitch = cairo_image_surface_get_stride(surface_.get());
    const uint8_t* rows = cairo_image_surface_get_data(surface_.get());
    std::vector<uint8_t> rgb;
    rgb.reserve(size_t{3} * width * height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint32_t pixel = 0; // 0xRRGGBB
            std::memcpy(&pixel, rows + y * pitch + x * ptrdiff_t{4}, sizeof pixel);
            for (const int shift : {16, 8, 0})
                rgb.push_back(static_cast<uint8_t>(pixel >> shift));
        }
    write_png(path_, rgb.data(), width, height, ptrdiff_t{3} * width);
}

void Canvas::save() {
    context_.reset();
    if (svg_)
        cairo_surface_finish(surface_.get());
    else
        cairo_surface_flush(surface_.get());
    if (const cairo_status_t status = cairo_surface_status(surface_.get()); status != CAIRO_STATUS_SUCCESS)
        throw Error(path_ + ": " + cairo_status_to_string(status));
    if (svg_)
        write_document(path_, bytes_);
    else
        save_png();
}

} // namespace lumivert::tool
