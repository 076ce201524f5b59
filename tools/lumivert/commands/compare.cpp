#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include <nlohmann/json.hpp>

#include "commands/commands.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "commands/options.h"
#include "error.h"
#include "io/png.h"
#include "io/progress.h"
#include "media/clip_reader.h"
#include "media/pixel_converter.h"
#include "report.h"

namespace lumivert::tool {
namespace {

struct Options {
    std::string a, b, size, format, picture;
    int tolerance = 0;
    bool json = false;
};

/// The planar format with the same samples, so that packed and planar files compare.
AVPixelFormat planar(AVPixelFormat format) {
    switch (format) {
    case AV_PIX_FMT_P010LE:
        return AV_PIX_FMT_YUV420P10LE;
    case AV_PIX_FMT_NV12:
    case AV_PIX_FMT_YUVJ420P:
        return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_RGBA:
    case AV_PIX_FMT_RGB24:
    case AV_PIX_FMT_RGB0:
    case AV_PIX_FMT_BGRA:
        return AV_PIX_FMT_GBRP;
    case AV_PIX_FMT_RGB48BE:
    case AV_PIX_FMT_RGBA64BE:
        return AV_PIX_FMT_GBRP16LE;
    default:
        return format;
    }
}

/// A side of the comparison: its frames in planes.
class Side {
public:
    Side(const std::string& path, const Options& options) : reader_(path, layout(path, options)) {
        const auto format = av_get_pix_fmt(reader_.info().pixel_format.c_str());
        format_ = planar(format);
        if (format_ == format) return;
        const int width = reader_.info().width, height = reader_.info().height;
        scaler_.reset(
            sws_getContext(width, height, format, width, height, format_, SWS_POINT, nullptr, nullptr, nullptr));
        if (!scaler_) throw Error(path + ": FFmpeg cannot take its " + reader_.info().pixel_format + " samples apart");
        planes_.reset(av_frame_alloc());
        planes_->format = format_;
        planes_->width = width;
        planes_->height = height;
        check(av_frame_get_buffer(planes_.get(), 0), path);
    }

    const ClipInfo& info() const { return reader_.info(); }
    const std::string& path() const { return reader_.path(); }
    AVPixelFormat format() const { return format_; }
    void report() const { reader_.report(); }

    /// The next frame, or null.
    const AVFrame* next() {
        if (!reader_.next(clip_)) return nullptr;
        if (!scaler_) return clip_.frame.get();
        sws_scale(scaler_.get(), clip_.frame->data, clip_.frame->linesize, 0, planes_->height, planes_->data,
                  planes_->linesize);
        return planes_.get();
    }

private:
    static std::optional<RawLayout> layout(const std::string& path, const Options& options) {
        if (options.size.empty()) return std::nullopt;
        const std::string extension = std::filesystem::path(path).extension().string();
        const FormatInfo* format =
            format_named(!options.format.empty() || extension.empty() ? options.format : extension.substr(1));
        if (format == nullptr) throw Error(path + ": raw frames need --format nv12, p010 or rgba");
        const Size size = parse_size(options.size);
        return RawLayout{size.width, size.height, av_format(format->format)};
    }

    ClipReader reader_;
    AVPixelFormat format_;
    ScalerPtr scaler_;
    FramePtr planes_;
    ClipFrame clip_;
};

/// Differences of one component over all frames.
struct Component {
    std::string name;
    double squares = 0, samples = 0;
    int largest = 0, x = 0, y = 0;
    int64_t frame = 0;

    /// In dB; infinite when equal.
    double psnr(int depth) const {
        const double peak = std::ldexp(1.0, depth) - 1;
        return 10 * std::log10(peak * peak * samples / squares);
    }
};

/// What differs in one frame at each pixel: the largest difference of its components.
struct DifferenceMap {
    int width, height, largest = 0;
    int64_t frame = -1;
    std::vector<uint16_t> values;
};

int sample(const AVFrame& frame, const AVComponentDescriptor& component, int x, int y) {
    const uint8_t* at = frame.data[component.plane] + static_cast<ptrdiff_t>(y) * frame.linesize[component.plane] +
                        static_cast<ptrdiff_t>(x) * component.step + component.offset;
    return component.depth > 8 ? at[0] | at[1] << 8 : at[0];
}

class Comparison {
public:
    Comparison(const AVPixFmtDescriptor& format, int width, int height)
        : worst{width, height, 0, -1, {}}, format_(format), current_{width, height, 0, -1, {}} {
        const bool rgb = (format.flags & AV_PIX_FMT_FLAG_RGB) != 0;
        const char* names[] = {rgb ? "R" : "Y", rgb ? "G" : "Cb", rgb ? "B" : "Cr"};
        for (int i = 0; i < std::min<int>(format.nb_components, 3); ++i)
            components.push_back({names[i]});
    }

    void add(const AVFrame& a, const AVFrame& b, int tolerance) {
        current_.largest = 0;
        current_.frame = frames++;
        current_.values.assign(static_cast<size_t>(a.width) * a.height, 0);
        for (size_t i = 0; i < components.size(); ++i) {
            const bool chroma = i > 0 && (format_.flags & AV_PIX_FMT_FLAG_RGB) == 0;
            add_component(a, b, format_.comp[i], components[i], chroma ? format_.log2_chroma_w : 0,
                          chroma ? format_.log2_chroma_h : 0);
        }
        if (current_.largest > tolerance && first_differing < 0) first_differing = current_.frame;
        if (current_.largest > worst.largest) std::swap(worst, current_);
    }

    int depth() const { return format_.comp[0].depth; }
    std::vector<Component> components;
    int64_t frames = 0, first_differing = -1;
    DifferenceMap worst; ///< the frame with the largest difference

private:
    void add_component(const AVFrame& a, const AVFrame& b, const AVComponentDescriptor& where, Component& component,
                       int shift_x, int shift_y) {
        const int width = AV_CEIL_RSHIFT(a.width, shift_x), height = AV_CEIL_RSHIFT(a.height, shift_y);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const int difference = std::abs(sample(a, where, x, y) - sample(b, where, x, y));
                if (difference == 0) continue;
                component.squares += static_cast<double>(difference) * difference;
                if (difference > component.largest) {
                    component.largest = difference;
                    component.x = x;
                    component.y = y;
                    component.frame = current_.frame;
                }
                current_.largest = std::max(current_.largest, difference);
                uint16_t& mark = current_.values[static_cast<size_t>(y << shift_y) * a.width + (x << shift_x)];
                mark = std::max<uint16_t>(mark, difference);
            }
        component.samples += static_cast<double>(width) * height;
    }

    const AVPixFmtDescriptor& format_;
    DifferenceMap current_;
};

/// The largest difference in white.
void draw(const std::string& path, const DifferenceMap& map) {
    std::vector<uint8_t> pixels(static_cast<size_t>(map.width) * map.height * 3);
    for (size_t i = 0; i < map.values.size(); ++i)
        std::fill_n(&pixels[3 * i], 3, static_cast<uint8_t>(map.values[i] * 255 / std::max(map.largest, 1)));
    write_png(path, pixels.data(), map.width, map.height, ptrdiff_t{3} * map.width, 3);
}

void print_text(const Comparison& result, const Options& options) {
    char line[160];
    for (const Component& component : result.components) {
        if (component.largest == 0)
            std::snprintf(line, sizeof line, "  %-2s  identical", component.name.c_str());
        else
            std::snprintf(line, sizeof line, "  %-2s  %6.2f dB, largest difference %d at (%d, %d) of frame %ld",
                          component.name.c_str(), component.psnr(result.depth()), component.largest, component.x,
                          component.y, static_cast<long>(component.frame));
        std::cout << line << '\n';
    }
    const std::string beyond = options.tolerance > 0 ? " by more than " + std::to_string(options.tolerance) : "";
    if (result.first_differing < 0)
        std::cout << "  no frame differs" << beyond << '\n';
    else
        std::cout << "  first frame that differs" << beyond << ": " << result.first_differing << '\n';
    if (!options.picture.empty() && result.worst.frame >= 0)
        std::cout << "  " << options.picture << " shows frame " << result.worst.frame << "; white is a difference of "
                  << result.worst.largest << '\n';
}

void print_json(const Comparison& result, const std::array<int64_t, 2>& frames) {
    nlohmann::ordered_json planes = nlohmann::ordered_json::array();
    for (const Component& c : result.components) {
        nlohmann::ordered_json plane = {{"plane", c.name}, {"largest_difference", c.largest}, {"psnr_db", nullptr}};
        if (c.largest > 0) {
            plane["psnr_db"] = c.psnr(result.depth());
            plane["at"] = {{"frame", c.frame}, {"x", c.x}, {"y", c.y}};
        }
        planes.push_back(plane);
    }
    nlohmann::ordered_json document = {
        {"frames", frames}, {"bits", result.depth()}, {"planes", planes}, {"first_differing_frame", nullptr}};
    if (result.first_differing >= 0) document["first_differing_frame"] = result.first_differing;
    std::cout << document.dump(2) << '\n';
}

int run(const Options& options) {
    Side a(options.a, options), b(options.b, options);
    const auto size = [](const Side& side) {
        return std::to_string(side.info().width) + "x" + std::to_string(side.info().height);
    };
    if (size(a) != size(b)) throw Error("sizes differ: " + a.path() + " " + size(a) + ", " + b.path() + " " + size(b));
    if (a.format() != b.format())
        throw Error("samples differ in kind: " + a.path() + " has " + a.info().pixel_format + ", " + b.path() + " " +
                    b.info().pixel_format);
    const AVPixFmtDescriptor& format = *av_pix_fmt_desc_get(a.format());
    if ((format.flags &
         (AV_PIX_FMT_FLAG_BE | AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_FLOAT)) != 0)
        throw Error(std::string("pictures of ") + format.name + " cannot be compared");

    Comparison result(format, a.info().width, a.info().height);
    std::array<int64_t, 2> frames = {};
    {
        Progress progress(a.info().frames);
        const AVFrame *from_a = a.next(), *from_b = b.next();
        while (from_a != nullptr || from_b != nullptr) {
            if (from_a != nullptr && from_b != nullptr) result.add(*from_a, *from_b, options.tolerance);
            if (from_a != nullptr) ++frames[0], from_a = a.next();
            if (from_b != nullptr) ++frames[1], from_b = b.next();
            progress.update(result.frames);
        }
    }
    a.report();
    b.report();
    if (!options.picture.empty() && result.worst.frame >= 0) draw(options.picture, result.worst);
    if (options.json) {
        print_json(result, frames);
    } else {
        std::cout << counted(result.frames, "frame") << " of " << size(a) << ", " << format.name << '\n';
        print_text(result, options);
    }
    if (frames[0] != frames[1])
        warn(a.path() + " has " + counted(frames[0], "frame") + ", " + b.path() + " " + std::to_string(frames[1]));
    return result.first_differing >= 0 ? kDoneWithWarnings : status_so_far();
}

} // namespace

Command add_compare(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Options& o = *options;
    app.add_option("A", o.a, "a clip, a picture, or raw frames with --size")->required();
    app.add_option("B", o.b, "what to compare it with")->required();
    app.add_option("--size", o.size, "A and B are raw frames of this size");
    app.add_option("--format", o.format, "of raw frames, unless their extension tells: nv12, p010 or rgba");
    app.add_option("--tolerance", o.tolerance, "differences up to this count as none")->check(CLI::Range(0, 65535));
    app.add_option("-o,--output", o.picture, "draws the frame with the largest difference, as a PNG");
    app.add_flag("--json", o.json, "one JSON document");
    app.footer("Exit status 1 tells of a difference.\n\nExample:\n"
               "  lumivert compare old.nv12 new.nv12 --size 1920x1080 --tolerance 1 -o difference.png");
    return [options] { return run(*options); };
}

} // namespace lumivert::tool
