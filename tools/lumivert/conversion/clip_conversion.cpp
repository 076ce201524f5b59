#include "conversion/clip_conversion.h"

#include "conversion/warnings.h"
#include "error.h"
#include "report.h"

namespace lumivert::tool {
namespace {

RecordTrack track_of(const Request& request, const Plan& plan) {
    if (request.metadata == "none") return RecordTrack::without_records();
    return plan.list.empty() ? RecordTrack() : RecordTrack(plan.list);
}

[[noreturn]] void refuse_empty_part(const Request& request, const Tally& tally) {
    const std::string length = "; it ends after " + counted(tally.seen, "frame");
    if (request.part.by_time()) throw Error(request.input + ": has no frame in that time" + length);
    throw Error(request.input + ": has no frame " + std::to_string(request.part.frames.first) + length);
}

} // namespace

Outcome convert_clip(const Request& request, FrameSource& source, std::optional<Environment>& environment,
                     const std::string& device) {
    const ClipInfo& clip = source.info();
    Outcome outcome{make_plan(request, source), {}, {}, {}};
    const Plan& plan = outcome.plan;
    std::optional<Converter> converter;
    if (plan.mode) {
        if (!environment) environment.emplace(device);
        converter.emplace(Geometry(clip.width, clip.height), *plan.mode, plan.entry, *environment);
        outcome.device = environment->device().name;
    }
    if (clip.others && !plan.writer->video_file) clip.others->drop();
    const auto sink = plan.writer->open(output_spec(request, plan, clip));
    const Treatment treatment = {converter ? &*converter : nullptr, plan.format, request.part, plan.luminances,
                                 request.interval};
    outcome.tally = run_pipeline(source, track_of(request, plan), treatment, *sink);
    if (outcome.tally.converted() == 0) refuse_empty_part(request, outcome.tally);
    sink->finish();
    outcome.left_out = sink->left_out();
    source.report();
    warn_about(request, clip, plan, outcome.tally, source.loses_records());
    return outcome;
}

} // namespace lumivert::tool
