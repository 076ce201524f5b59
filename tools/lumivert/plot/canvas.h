/// A drawing in PNG or SVG, through cairo. Coordinates are pixels from the top left corner.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <cairo.h>

namespace lumivert::tool {

struct Colour {
    double r, g, b;
};

namespace colours {
constexpr Colour kInk = {0.13, 0.15, 0.19}, kQuiet = {0.45, 0.48, 0.54}, kGrid = {0.87, 0.89, 0.92},
                 kBlue = {0.05, 0.38, 0.75}, kOrange = {0.85, 0.42, 0.04}, kGreen = {0.10, 0.53, 0.28},
                 kRed = {0.78, 0.15, 0.20}, kViolet = {0.48, 0.25, 0.70}, kWhite = {1, 1, 1};
} // namespace colours

using Point = std::pair<double, double>;

enum class Align { kLeft, kCentre, kRight };

class Canvas {
public:
    /// What `path` ends in decides: .svg, else PNG.
    Canvas(const std::string& path, int width, int height);

    void line(Point from, Point to, Colour colour, double thickness = 1, bool dashed = false);
    void path(const std::vector<Point>& points, Colour colour, double thickness, bool dashed = false);
    void fill(Point corner, double width, double height, Colour colour);
    void frame(Point corner, double width, double height, Colour colour);
    void dot(Point centre, double radius, Colour colour, bool hollow = false);
    /// `at` is where the text's baseline starts, has its middle, or ends. `bold` for titles.
    void text(Point at, const std::string& text, Colour colour, double size = 14, Align align = Align::kLeft,
              bool bold = false);
    /// Reading upwards, centred at `at`.
    void text_upwards(Point at, const std::string& text, Colour colour, double size = 14);
    /// Pixels as 0xRRGGBB, row after row, one for each of the drawing's.
    void image(Point corner, const std::vector<uint32_t>& pixels, int width);
    /// Drawing outside this rectangle has no effect until `unclip`.
    void clip(Point corner, double width, double height);
    void unclip();

    /// Writes the file.
    void save();

private:
    struct Destroy {
        void operator()(cairo_t* context) const { cairo_destroy(context); }
        void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
    };

    void stroke(Colour colour, double thickness, bool dashed);
    void source(Colour colour);
    void save_png();

    std::string path_, bytes_;
    bool svg_;
    std::unique_ptr<cairo_surface_t, Destroy> surface_;
    std::unique_ptr<cairo_t, Destroy> context_;
};

} // namespace lumivert::tool
