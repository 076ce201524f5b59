#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <limits>

#include "commands/commands.h"
#include "commands/cube.h"
#include "commands/options.h"
#include "engine/converter.h"
#include "error.h"
#include "hdr10plus/pixel_chain.h"
#include "hdr10plus/record_track.h"
#include "io/output_file.h"
#include "light/clip_light.h"
#include "plot/curves.h"
#include "report.h"

namespace lumivert::tool {
namespace {

struct Options {
    CurveInput input;
    std::string output, device;
    int64_t frame = 0;
    int lut_size = 33;
    unsigned target = 250;
    bool all = false;
};

struct FrameRecord {
    int64_t frame;
    RecordOrigin origin;
    Record record;
};

/// What there is to draw.
struct Material {
    std::vector<FrameRecord> frames; ///< from 0 to the last one asked for, with the records that they use
    std::optional<FixedTable> table; ///< where the records are not used
    std::optional<LightHistogram> light;
};

constexpr size_t kMostFrames = 250000; // more than an hour at 60 a second, and all of them in memory

void add_frame(Material& material, RecordTrack& track, int64_t frame, const std::optional<Record>& own,
               const Record& fallback, const std::string& input) {
    if (material.frames.size() == kMostFrames)
        throw Error(input + ": has more than the " + std::to_string(kMostFrames) + " frames that are drawn");
    const RecordOrigin origin = track.advance(frame, own);
    material.frames.push_back({frame, origin, track.current().value_or(fallback)});
}

Material of_metadata(const Options& options, int64_t last) {
    const std::string& path = options.input.path;
    const RecordsByFrame list = read_metadata(path);
    RecordTrack track(list);
    Material material;
    for (int64_t frame = 0; frame <= std::min(last, list.rbegin()->first); ++frame)
        add_frame(material, track, frame, std::nullopt, default_record(0, 0), path);
    return material;
}

/// `pixels`: reads those of the chosen frame.
Material of_clip(const Options& options, int64_t last, bool pixels) {
    const auto source = options.input.open();
    const ClipInfo& clip = source->info();
    const Luminances luminances = luminances_of(clip.static_metadata);
    const Record fallback = default_record(luminances.mastering_peak, luminances.max_cll);
    Material material;
    if (options.input.takes_fixed_table(*source)) {
        material.table = {luminances.mastering_peak, options.target};
        if (options.all) last = 0; // one table for all
    }
    const Geometry geometry(clip.width, clip.height);
    RecordTrack track;
    SourceFrame frame;
    for (int64_t number = 0; number <= last; ++number) {
        if (pixels && number == options.frame) {
            const Planes planes(P010_LINEAR, geometry);
            if (!source->read(planes, geometry, frame)) break;
            material.light = count_light(view_of(planes, geometry, clip));
        } else if (!source->skip(geometry, frame)) {
            break;
        }
        add_frame(material, track, number, frame.record, fallback, options.input.path);
    }
    source->report();
    return material;
}

/// A row for each 8-bit level that the converter works with: the lowest of the four codes that share it.
std::string csv(const std::vector<FrameCurve>& curves) {
    std::string text = "frame,code_in,input_cd_m2,curve_cd_m2,relative_gain,code_out,output_cd_m2\n";
    char line[160];
    for (const FrameCurve& curve : curves)
        for (int code = 64; code <= 940; code += 4) {
            const GreyPixel pixel = through_tone_curve(code, curve);
            std::snprintf(line, sizeof line, "%ld,%d,%.4f,%.4f,%.6f,%d,%.4f\n", static_cast<long>(curve.frame), code,
                          pixel.input, curve.output(pixel.input), pixel.gain, pixel.code_out, pixel.light);
            text += line;
        }
    return text;
}

/// The fixed table is the same for all frames: a row for each 10-bit code.
std::string csv(const FixedTable& table) {
    std::string text = "table_cd_m2,code_in,input_cd_m2,code_out,output_cd_m2\n";
    char line[120];
    for (int code = 64; code <= 940; ++code) {
        const GreyPixel pixel = through_fixed_table(code, table.mastering_peak, table.target);
        std::snprintf(line, sizeof line, "%d,%d,%.4f,%d,%.4f\n", fixed_table_of(table.mastering_peak), code,
                      pixel.input, pixel.code_out, pixel.light);
        text += line;
    }
    return text;
}

void write_table(const Options& options, const std::string& name, const Material& material) {
    if (std::filesystem::path(options.output).extension() == ".csv")
        write_document(options.output, csv(*material.table));
    else
        draw_fixed_table(options.output,
                         name + (options.all ? ", all frames" : ", frame " + std::to_string(options.frame)),
                         options.input.mode == "auto" ? "no HDR10+ metadata" : "", *material.table,
                         material.light ? &*material.light : nullptr);
}

void write_curves(const Options& options, const std::string& name, const Material& material) {
    std::vector<FrameCurve> curves;
    for (const FrameRecord& frame : material.frames)
        if (options.all || frame.frame == options.frame)
            curves.emplace_back(frame.frame, frame.origin, frame.record, options.target);
    if (std::filesystem::path(options.output).extension() == ".csv")
        write_document(options.output, csv(curves));
    else if (options.all)
        draw_strip(options.output, name, curves);
    else
        draw_curve(options.output, name, curves.front(), material.light ? &*material.light : nullptr);
}

int run(const Options& options) {
    const CurveInput& input = options.input;
    refuse_same_file(options.output, {input.path});
    if (input.is_metadata() && input.mode == "static")
        throw Error(input.path + ": mode static uses no metadata; give the clip instead");
    const std::string kind = std::filesystem::path(options.output).extension().string();
    if (kind == ".cube") {
        if (options.all) throw Error(options.output + ": a LUT holds one frame; choose it with --frame");
        write_cube(input, options.frame, options.lut_size, options.device, options.output);
        return status_so_far();
    }
    if (kind != ".png" && kind != ".svg" && kind != ".csv")
        throw Error(options.output + ": a curve is written as .png, .svg, .csv or .cube");
    const int64_t last = options.all ? std::numeric_limits<int64_t>::max() - 1 : options.frame;
    const Material material =
        input.is_metadata() ? of_metadata(options, last) : of_clip(options, last, !options.all && kind != ".csv");
    if (material.frames.empty() || (!options.all && material.frames.back().frame != options.frame))
        throw Error(input.path + ": has no frame " + std::to_string(options.frame) + ", only " +
                    counted(static_cast<long>(material.frames.size()), "frame"));
    const std::string name = std::filesystem::path(input.path).filename().string();
    if (material.table)
        write_table(options, name, material);
    else
        write_curves(options, name, material);
    return status_so_far();
}

} // namespace

Command add_curve(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    Options& o = *options;
    arguments.add("INPUT", o.input.path, "a PQ clip, HDR10+ metadata as a .json file, or raw P010 with --size")
        .required();
    arguments.add("-o,--output", o.output, "a .png, .svg or .csv file; or a 3D LUT as .cube").required();
    arguments.add("--frame", o.frame, "which frame, counted from 0").not_negative().shows_default();
    arguments.add_flag("--all", o.all, "all frames, as a strip over time");
    arguments
        .add("--mode", o.input.mode,
             "as for convert; auto: hdr10plus if the first 16 frames have HDR10+ metadata, else static")
        .one_of({"auto", "hdr10plus", "static"})
        .shows_default();
    arguments.add("--target", o.target, "peak of the display in cd/m2; the converter's is 250")
        .between(200, 10000)
        .shows_default();
    arguments.add("--lut-size", o.lut_size, "points along each axis of a .cube: 17, 33 or 65")
        .one_of({17, 33, 65})
        .shows_default();
    arguments.add("--device", o.device, "for a .cube: part of an OpenCL device's name or number");
    arguments.add("--size", o.input.size, "INPUT is raw P010 of this size, such as 1920x1080");
    arguments.add_flag("--as-pq", o.input.as_pq, "accept a clip that is not tagged PQ or has 8 bits, as if it were PQ");
    arguments.footer("Examples:\n  lumivert curve clip.mp4 --frame 12 -o curve.png\n"
                     "  lumivert curve clip.mp4 --frame 12 -o look.cube\n"
                     "  lumivert curve clip.json --all -o curves.svg");
    return [options] { return run(*options); };
}

} // namespace lumivert::tool
