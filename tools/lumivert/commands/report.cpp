#include "report.h"

#include <algorithm>
#include <filesystem>

#include "commands/commands.h"
#include "commands/options.h"
#include "error.h"
#include "hdr10plus/tone_curve.h"
#include "html_report/page.h"
#include "io/output_file.h"
#include "io/progress.h"

namespace lumivert::tool {
namespace {

struct Options {
    std::string input, output, size, device;
    double max_size = 5; ///< MB
    int stills = 12, width = 960;
    bool as_pq = false;
};

/// What the curve gives for a few inputs, frame by frame.
std::vector<Outputs> curve_outputs(const ClipLight& light, const Record& fallback) {
    std::vector<Outputs> list;
    for (const MeasuredFrame& frame : light.frames) {
        const bool same = !list.empty() && frame.number > 0 && light.frames[list.size() - 1].record == frame.record &&
                          light.frames[list.size() - 1].origin != RecordOrigin::kNone;
        if (same && frame.origin != RecordOrigin::kNone) {
            list.push_back(list.back());
            continue;
        }
        const ToneCurve curve(frame.origin == RecordOrigin::kNone ? fallback : frame.record, kConverterTarget);
        Outputs outputs;
        for (size_t i = 0; i < kProbeCount; ++i)
            outputs[i] = curve.output(kProbes[i]);
        list.push_back(outputs);
    }
    return list;
}

/// The middle of each scene; of evenly chosen scenes where there are more than `most`.
std::vector<int64_t> choose_stills(const ReportContent& content, size_t most) {
    std::vector<int64_t> frames;
    const auto& scenes = content.scenes;
    const size_t count = std::min(scenes.size(), most);
    for (size_t i = 0; i < count; ++i) {
        const Scene& scene = scenes[i * scenes.size() / count];
        frames.push_back(content.light.frames[(scene.first + scene.last) / 2].number);
    }
    return frames;
}

int run(const Options& options) {
    if (options.input == "-") throw Error("a report reads its clip twice; standard input can be read only once");
    if (std::filesystem::path(options.output).extension() != ".html" && options.output != "-")
        throw Error(options.output + ": a report is written as .html");
    refuse_same_file(options.output, {options.input});
    check_writable(options.output);
    const Environment environment(options.device);
    ReportContent content;
    content.path = options.input;
    content.size = options.size;
    content.as_pq = options.as_pq;
    content.most_bytes = static_cast<size_t>(options.max_size * 1e6);
    const auto source = open_source(options.input, options.size, 25, options.as_pq);
    const ClipInfo& clip = content.clip = source->info();
    content.fixed_table = !source->has_records();
    const Luminances luminances = luminances_of(clip.static_metadata);
    content.fallback = default_record(luminances.mastering_peak, luminances.max_cll);
    // The clip is read twice: how far the second reading goes is known only then.
    Progress progress(2 * clip.frames);
    content.light = measure_clip(*source, [&](int64_t frames) { progress.update(frames); });
    source->report();
    content.disagreements = find_disagreements(content.light, clip.static_metadata);
    content.advice = advice_for(clip, content.light, content.disagreements, content.fixed_table);
    content.scenes = find_scenes(content.light, av_q2d(clip.frame_rate));
    content.outputs = curve_outputs(content.light, content.fallback);
    content.jumps = find_jumps(content.scenes, content.outputs);
    const auto again = open_source(options.input, options.size, 25, options.as_pq);
    content.stills = make_stills(*again, choose_stills(content, static_cast<size_t>(options.stills)), options.width,
                                 content.fixed_table ? Mode::kStaticTable : Mode::kHdr10plus, luminances, environment,
                                 [&](int64_t frames) { progress.update(clip.frames + frames); });
    const std::string page = report_page(content);
    if (page.size() > content.most_bytes)
        warn(options.output + ": " + std::to_string(page.size() / 1000) +
             " kB even without stills; --max-size is less");
    write_document(options.output, page);
    tell(counted(static_cast<long>(content.light.frames.size()), "frame") + ", " +
         counted(static_cast<long>(content.scenes.size()), "scene") + ", " +
         counted(static_cast<long>(content.jumps.size()), "jump") + " of the curve, " +
         counted(static_cast<long>(content.advice.size()), "warning") + "; " + std::to_string(page.size() / 1000) +
         " kB");
    return content.advice.empty() ? status_so_far() : kDoneWithWarnings;
}

} // namespace

Command add_report(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    Options& o = *options;
    arguments.add("INPUT", o.input, "a PQ clip, or raw P010 with --size").required();
    arguments.add("-o,--output", o.output, "the page, .html").required();
    arguments.add("--size", o.size, "INPUT is raw P010 of this size, such as 1920x1080");
    arguments.add("--stills", o.stills, "number of scenes with stills, default: 12").between(0, 200);
    arguments.add("--width", o.width, "largest width of a still, default: 960").between(16, 7680);
    arguments
        .add("--max-size", o.max_size, "largest page in megabytes, default: 5; stills are left out of a larger one")
        .between(0.1, 1000.0);
    arguments.add("--device", o.device, "part of an OpenCL device's name or number; see 'lumivert devices'");
    arguments.add_flag("--as-pq", o.as_pq, "accept a clip that is not tagged PQ or has 8 bits, as if it were PQ");
    arguments.footer("One HTML page that shows why a clip looks as it does in SDR. It needs no other file.\n"
                     "Exit status 1: the page has warnings.\n\nExample:\n  lumivert report clip.mp4 -o report.html");
    return [options] { return run(*options); };
}

} // namespace lumivert::tool
