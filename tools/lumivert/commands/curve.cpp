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
#include "media/clip_reader.h"
#include "plot/curves.h"
#include "report.h"

namespace lumivert::tool {
namespace {

struct Options {
    std::string input, output, device;
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

constexpr size_t kMostFrames = 250000; // more than an hour at 60 a second, and all of them in memory

/// The record that each frame from 0 to `last` uses.
std::vector<FrameRecord> read_records(const std::string& input, int64_t last) {
    std::vector<FrameRecord> frames;
    const auto take = [&](RecordTrack& track, int64_t frame, const std::optional<Record>& own, const Record& fallback) {
        if (frames.size() == kMostFrames)
            throw Error(input + ": has more than the " + std::to_string(kMostFrames) + " frames that are drawn");
        const RecordOrigin origin = track.advance(frame, own);
        frames.push_back({frame, origin, track.current().value_or(fallback)});
    };
    if (std::filesystem::path(input).extension() == ".json") {
        const RecordsByFrame list = read_metadata(input);
        RecordTrack track(list);
        for (int64_t frame = 0; frame <= std::min(last, list.rbegin()->first); ++frame)
            take(track, frame, std::nullopt, default_record(0, 0));
        return frames;
    }
    ClipReader clip(input);
    const StaticMetadata& fixed = clip.info().static_metadata;
    RecordTrack track;
    for (ClipFrame frame; static_cast<int64_t>(frames.size()) <= last && clip.next(frame);)
        take(track, frame.number, frame.record, default_record(fixed.mastering_peak, fixed.max_cll));
    clip.report();
    return frames;
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

int run(const Options& options) {
    refuse_same_file(options.output, {options.input});
    const std::string kind = std::filesystem::path(options.output).extension().string();
    if (kind == ".cube") {
        if (options.all) throw Error(options.output + ": a LUT holds one frame; choose it with --frame");
        write_cube(options.input, options.frame, options.lut_size, options.device, options.output);
        return status_so_far();
    }
    if (kind != ".png" && kind != ".svg" && kind != ".csv")
        throw Error(options.output + ": a curve is written as .png, .svg, .csv or .cube");
    const auto frames =
        read_records(options.input, options.all ? std::numeric_limits<int64_t>::max() - 1 : options.frame);
    std::vector<FrameCurve> curves;
    for (const FrameRecord& frame : frames)
        if (options.all || frame.frame == options.frame)
            curves.emplace_back(frame.frame, frame.origin, frame.record, options.target);
    if (curves.empty())
        throw Error(options.input + ": has no frame " + std::to_string(options.frame) + ", only " +
                    counted(static_cast<long>(frames.size()), "frame"));
    const std::string name = std::filesystem::path(options.input).filename().string();
    if (kind == ".csv")
        write_document(options.output, csv(curves));
    else if (options.all)
        draw_strip(options.output, name, curves);
    else
        draw_curve(options.output, name, curves.front());
    return status_so_far();
}

} // namespace

Command add_curve(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Options& o = *options;
    app.add_option("INPUT", o.input, "a clip, or HDR10+ metadata as a .json file")->required();
    app.add_option("-o,--output", o.output, "a .png, .svg or .csv file; or a 3D LUT as .cube")->required();
    app.add_option("--frame", o.frame, "which frame, counted from 0")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    app.add_flag("--all", o.all, "all frames, as a strip over time");
    app.add_option("--target", o.target, "peak of the display in cd/m2; the converter's is 250")
        ->check(CLI::Range(200, 10000))
        ->capture_default_str();
    app.add_option("--lut-size", o.lut_size, "points along each axis of a .cube: 17, 33 or 65")
        ->check(CLI::IsMember({17, 33, 65}))
        ->capture_default_str();
    app.add_option("--device", o.device, "for a .cube: part of an OpenCL device's name or number");
    app.footer("Examples:\n  lumivert curve clip.mp4 --frame 12 -o curve.png\n"
               "  lumivert curve clip.mp4 --frame 12 -o look.cube\n"
               "  lumivert curve clip.json --all -o curves.svg");
    return [options] { return run(*options); };
}

} // namespace lumivert::tool
