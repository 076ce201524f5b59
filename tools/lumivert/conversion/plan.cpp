#include "conversion/plan.h"

#include <algorithm>

#include "error.h"

namespace lumivert::tool {
namespace {

/// How a player is to read the samples. They are limited range in every mode. After a tone curve the converter has
/// taken the black offset off without stretching the rest, and adds 16 again without making room for it: the two
/// omissions cancel for a display that reads limited range, and only for that one.
ColourTags tags_of(const std::optional<Mode>& mode) {
    if (!mode) return {AVCOL_PRI_BT2020, AVCOL_TRC_SMPTE2084, AVCOL_SPC_BT2020_NCL};
    return {AVCOL_PRI_BT709, AVCOL_TRC_BT709, AVCOL_SPC_BT709};
}

std::optional<Mode> choose_mode(const Request& request, FrameSource& source) {
    if (request.mode == "none") return std::nullopt;
    if (request.mode == "static") return Mode::kStaticTable;
    if (request.mode == "hdr10plus") return Mode::kHdr10plus;
    if (request.metadata == "none") return Mode::kStaticTable;
    return !request.metadata.empty() || source.has_records() ? Mode::kHdr10plus : Mode::kStaticTable;
}

_Image_ColorFormat choose_format(const Request& request, const Plan& plan) {
    const auto& taken = plan.writer->formats;
    const auto takes = [&](_Image_ColorFormat format) {
        return std::find(taken.begin(), taken.end(), format) != taken.end();
    };
    const FormatInfo* asked = format_named(request.format);
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

Luminances choose_luminances(const Request& request, const StaticMetadata& clip) {
    Luminances luminances = luminances_of(clip);
    if (request.max_luminance > 0) luminances.mastering_peak = request.max_luminance;
    if (request.max_cll > 0) luminances.max_cll = request.max_cll;
    return luminances;
}

} // namespace

Plan make_plan(const Request& request, FrameSource& source) {
    const ClipInfo& clip = source.info();
    Plan plan;
    plan.entry = request.entry == "pool" ? Entry::kPool : Entry::kRetained;
    plan.writer = &find_writer(request.writer, request.output);
    if (request.output == "-" && !plan.writer->streams)
        throw Error(std::string(plan.writer->name) + " cannot be written to standard output");
    if (request.input == "-" && request.metadata == "-")
        throw Error("INPUT and --metadata cannot both be standard input");
    if (!request.metadata.empty() && request.metadata != "none") plan.list = read_metadata(request.metadata);
    plan.mode = choose_mode(request, source);
    plan.format = choose_format(request, plan);
    plan.luminances = choose_luminances(request, clip.static_metadata);
    if (request.interval > 0 && plan.entry == Entry::kRetained)
        throw Error("--interval works with --entry pool; the retained entry converts every frame");
    if (request.interval > 1 && !plan.mode) throw Error("--interval picks frames to convert; mode none converts none");
    return plan;
}

OutputSpec output_spec(const Request& request, const Plan& plan, const ClipInfo& clip) {
    OutputSpec spec;
    spec.path = request.output;
    spec.format = plan.format;
    spec.colour = tags_of(plan.mode);
    spec.width = clip.width;
    spec.height = clip.height;
    spec.clip = clip;
    const double rate = av_q2d(clip.frame_rate);
    spec.cut = !request.part.whole();
    spec.seconds = static_cast<double>(request.part.most_frames(rate)) / rate;
    if (request.interval > 1) spec.clip.frame_rate = av_mul_q(clip.frame_rate, {1, request.interval});
    spec.codec = request.codec;
    spec.preset = request.preset;
    spec.quality = request.quality;
    return spec;
}

} // namespace lumivert::tool
