#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <numeric>
#include <optional>

#include "commands/commands.h"
#include "commands/options.h"
#include "engine/pipeline.h"
#include "error.h"
#include "report.h"

namespace lumivert::tool {
namespace {

struct Options {
    std::string input, output, size, mode = "auto", metadata, format, writer, frames, entry = "pool", device;
    std::string codec, preset;
    double max_luminance = 0, max_cll = 0, rate = 25;
    int interval = 0, quality = 16;
    bool as_pq = false;
};

/// What is decided before the first frame.
struct Plan {
    std::optional<Mode> mode; ///< none: the samples are passed on as they are
    Entry entry;
    const WriterInfo* writer;
    _Image_ColorFormat format;
    ColourTags colour;
    FrameRange frames;
    Luminances luminances;
    RecordsByFrame list; ///< of --metadata FILE
};

/// How a player is to read the samples. They are limited range in every mode. After a tone curve the converter has
/// taken the black offset off without stretching the rest, and adds 16 again without making room for it: the two
/// omissions cancel for a display that reads limited range, and only for that one.
ColourTags tags_of(const std::optional<Mode>& mode) {
    if (!mode) return {AVCOL_PRI_BT2020, AVCOL_TRC_SMPTE2084, AVCOL_SPC_BT2020_NCL};
    return {AVCOL_PRI_BT709, AVCOL_TRC_BT709, AVCOL_SPC_BT709};
}

std::optional<Mode> choose_mode(const Options& options, FrameSource& source) {
    if (options.mode == "none") return std::nullopt;
    if (options.mode == "static") return Mode::kStaticTable;
    if (options.mode == "hdr10plus") return Mode::kHdr10plus;
    if (options.metadata == "none") return Mode::kStaticTable;
    return !options.metadata.empty() || source.has_records() ? Mode::kHdr10plus : Mode::kStaticTable;
}

_Image_ColorFormat choose_format(const Options& options, const Plan& plan) {
    const auto& taken = plan.writer->formats;
    const auto takes = [&](_Image_ColorFormat format) {
        return std::find(taken.begin(), taken.end(), format) != taken.end();
    };
    const FormatInfo* asked = format_named(options.format);
    if (asked != nullptr && !takes(asked->format))
        throw Error(std::string("the writer for ") + plan.writer->name + " does not take --format " + asked->name);
    if (plan.mode != Mode::kHdr10plus) {
        const std::string mode = plan.mode ? "static" : "none";
        if (asked != nullptr && asked->format != P010_LINEAR)
            throw Error(std::string("--format ") + asked->name + ": mode " + mode + " gives P010 only");
        if (!takes(P010_LINEAR))
            throw Error("mode " + mode + " gives P010, which ." + plan.writer->name + " does not hold");
        return P010_LINEAR;
    }
    const _Image_ColorFormat format = asked != nullptr ? asked->format : taken.front();
    if (format == P010_LINEAR && plan.entry == Entry::kRetained)
        throw Error("--entry retained has no P010 output in mode hdr10plus; take --entry pool");
    return format;
}

Luminances choose_luminances(const Options& options, const StaticMetadata& clip) {
    constexpr double kHighest = 10000; // of PQ, cd/m2; streams can carry more, which nothing can mean
    return {options.max_luminance > 0 ? options.max_luminance : std::clamp(clip.mastering_peak, 0.0, kHighest),
            options.max_cll > 0 ? options.max_cll : std::min<double>(clip.max_cll, kHighest)};
}

Plan make_plan(const Options& options, FrameSource& source) {
    const ClipInfo& clip = source.info();
    if (clip.width % 2 != 0 || clip.height % 2 != 0)
        throw Error(options.input + ": " + std::to_string(clip.width) + "x" + std::to_string(clip.height) +
                    ": odd sizes cannot be converted");
    Plan plan;
    plan.entry = options.entry == "pool" ? Entry::kPool : Entry::kRetained;
    plan.frames = parse_frames(options.frames);
    plan.writer = &find_writer(options.writer, options.output);
    if (options.output == "-" && !plan.writer->streams)
        throw Error(std::string(plan.writer->name) + " cannot be written to standard output");
    if (options.input == "-" && options.metadata == "-")
        throw Error("INPUT and --metadata cannot both be standard input");
    if (!options.metadata.empty() && options.metadata != "none") plan.list = read_metadata(options.metadata);
    plan.mode = choose_mode(options, source);
    plan.format = choose_format(options, plan);
    plan.colour = tags_of(plan.mode);
    plan.luminances = choose_luminances(options, clip.static_metadata);
    if (options.interval > 0 && plan.entry == Entry::kRetained)
        throw Error("--interval works with --entry pool; the retained entry converts every frame");
    if (options.interval > 1 && !plan.mode) throw Error("--interval picks frames to convert; mode none converts none");
    return plan;
}

std::string metadata_summary(const Plan& plan, const Tally& tally) {
    const auto [own, previous, none] = tally.by_origin;
    const std::string frames = counted(tally.converted(), "frame") + ": ";
    if (!plan.mode) return frames + "passed on as they are";
    if (plan.mode == Mode::kStaticTable) {
        const long peak = std::lround(plan.luminances.mastering_peak);
        const char* table = peak > 1000 && peak <= 4000 ? "4000" : "1000";
        return frames + "the table for masters up to " + table + " cd/m2 (mastering peak " +
               (peak > 0 ? std::to_string(peak) + " cd/m2)" : "not known)");
    }
    if (own + previous == 0) return frames + "all used the default for clips without HDR10+";
    std::string text = frames + std::to_string(own) + " with HDR10+";
    if (previous > 0) text += ", " + std::to_string(previous) + " without one used the record before";
    if (none > 0) text += ", " + std::to_string(none) + " before the first record used the default";
    return text;
}

/// The median, because the first frame waits for the driver to finish compiling.
std::string speed_summary(const std::string& device, Tally tally) {
    auto& ms = tally.converting_ms;
    const double sum = std::accumulate(ms.begin(), ms.end(), 0.0);
    const auto middle = ms.begin() + static_cast<ptrdiff_t>(ms.size() / 2);
    std::nth_element(ms.begin(), middle, ms.end());
    char line[200];
    std::snprintf(line, sizeof line, "%.2f ms per frame on %s; %.1f frames/s in all, %.0f %% of the time converting",
                  *middle, device.c_str(), static_cast<double>(ms.size()) / tally.total_s,
                  100 * sum / 1000 / tally.total_s);
    return line;
}

/// What the user may not expect of the result.
void warn_about(const Options& options, const Plan& plan, const Tally& tally) {
    const bool used_luminances = plan.mode == Mode::kStaticTable || tally.by_origin[2] > 0;
    if (used_luminances && plan.luminances.mastering_peak > 0 && plan.luminances.mastering_peak < 1)
        warn("a mastering peak of " + std::to_string(plan.luminances.mastering_peak).substr(0, 5) +
             " cd/m2 makes no sense; --max-luminance sets a better one");
    if (plan.mode == Mode::kHdr10plus && plan.list.empty() && options.metadata != "none" &&
        tally.by_origin[0] + tally.by_origin[1] == 0)
        warn("there is no HDR10+ metadata in " + options.input);
    if (plan.list.empty() || plan.mode != Mode::kHdr10plus) return;
    const auto unused = std::distance(plan.list.lower_bound(tally.seen), plan.list.end());
    if (tally.to_the_end && unused > 0)
        warn(options.metadata + ": " + counted(static_cast<long>(plan.list.size()), "record") + " for " +
             counted(tally.seen, "frame") + ": " + std::to_string(unused) + " not used");
    if (tally.by_origin[1] + tally.by_origin[2] > 0)
        warn(options.metadata + ": no record for " + counted(tally.by_origin[1] + tally.by_origin[2], "frame"));
}

int run(const Options& options) {
    const auto source = open_source(options.input, options.size, options.rate, options.as_pq);
    const ClipInfo& clip = source->info();
    const Plan plan = make_plan(options, *source);
    std::optional<Environment> environment;
    std::optional<Converter> converter;
    if (plan.mode) {
        environment.emplace(options.device);
        converter.emplace(Geometry(clip.width, clip.height), *plan.mode, plan.entry, *environment);
    }
    OutputSpec spec;
    spec.path = options.output;
    spec.format = plan.format;
    spec.colour = plan.colour;
    spec.width = clip.width;
    spec.height = clip.height;
    spec.clip = clip;
    if (options.interval > 1) spec.clip.frame_rate = av_mul_q(clip.frame_rate, {1, options.interval});
    spec.codec = options.codec;
    spec.preset = options.preset;
    spec.quality = options.quality;
    const auto sink = plan.writer->open(spec);

    RecordTrack track = options.metadata == "none" ? RecordTrack::without_records()
                        : plan.list.empty()        ? RecordTrack()
                                                   : RecordTrack(plan.list);
    const Treatment treatment = {converter ? &*converter : nullptr, plan.format, plan.frames, plan.luminances,
                                 options.interval};
    const Tally tally = run_pipeline(*source, std::move(track), treatment, *sink);
    if (tally.converted() == 0)
        throw Error(options.input + ": has no frame " + std::to_string(plan.frames.first) + "; it ends after " +
                    counted(tally.seen, "frame"));
    sink->finish();

    source->report();
    warn_about(options, plan, tally);
    tell(metadata_summary(plan, tally));
    if (environment) tell(speed_summary(environment->device().name, tally));
    return status_so_far();
}

} // namespace

Command add_convert(CLI::App& app) {
    auto options = std::make_shared<Options>();
    Options& o = *options;
    std::string kinds;
    for (const WriterInfo& writer : writers())
        kinds +=
            "\n  ." + std::string(writer.name) + std::string(6 - std::string(writer.name).size(), ' ') + writer.about;
    app.add_option("INPUT", o.input, "a clip, or raw P010 with --size; - is standard input")->required();
    app.add_option("-o,--output", o.output, "the result; its extension chooses what is written")->required();
    app.add_option("--size", o.size, "INPUT is raw P010 of this size, such as 1920x1080");
    app.add_option("--rate", o.rate, "frames per second of raw P010")->check(CLI::Range(1.0, 1000.0));
    app.add_option("--mode", o.mode,
                   "auto takes hdr10plus where there is HDR10+ metadata, else static; none passes the PQ samples on")
        ->check(CLI::IsMember({"auto", "static", "hdr10plus", "none"}));
    app.add_option("--metadata", o.metadata, "HDR10+ records from this JSON file instead of the clip's, or none");
    app.add_option("--max-luminance", o.max_luminance, "mastering peak in cd/m2, instead of the clip's")
        ->check(CLI::Range(1.0, 10000.0));
    app.add_option("--max-cll", o.max_cll, "maximum content light level in cd/m2, instead of the clip's")
        ->check(CLI::Range(1.0, 10000.0));
    app.add_option("--format", o.format, "what the converter writes: nv12, p010 or rgba")
        ->check(CLI::IsMember({"nv12", "p010", "rgba"}));
    app.add_option("--as", o.writer, "what is written, whatever the extension of OUTPUT");
    app.add_option("--frames", o.frames, "only these, such as 10-19, counted from 0");
    app.add_option("--interval", o.interval, "converts the first frame and then every Nth")
        ->check(CLI::Range(1, 1000000));
    app.add_option("--entry", o.entry, "pool imports planes for each frame, retained keeps them")
        ->check(CLI::IsMember({"pool", "retained"}));
    app.add_option("--device", o.device, "part of an OpenCL device's name or number; see 'lumivert devices'");
    app.add_option("--codec", o.codec, "h264 or hevc")->check(CLI::IsMember({"h264", "hevc"}));
    app.add_option("--preset", o.preset, "encoder preset, veryfast unless given");
    app.add_option("--quality", o.quality, "constant rate factor of the encoder")->check(CLI::Range(0, 51));
    app.add_flag("--as-pq", o.as_pq, "takes a clip that is not tagged PQ, or has 8 bits, all the same");
    app.footer("What OUTPUT's extension can be:" + kinds +
               "\n\nExamples:\n"
               "  lumivert convert phone.mp4 -o phone-sdr.mp4\n"
               "  lumivert convert movie.mkv --frames 100-100 -o frame.png\n"
               "  ffmpeg -i clip.mp4 -f rawvideo -pix_fmt p010le - | \\\n"
               "    lumivert convert - --size 1920x1080 --mode static -o sdr.p010");
    return [options] { return run(*options); };
}

} // namespace lumivert::tool
