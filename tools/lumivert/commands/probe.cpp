#include <algorithm>
#include <cstdint>
#include <iostream>
#include <map>
#include <set>

#include <nlohmann/json.hpp>

#include "commands/commands.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "conversion/oddities.h"
#include "error.h"
#include "hdr10plus/record_oddities.h"
#include "io/progress.h"
#include "media/clip_reader.h"
#include "media/orientation.h"
#include "report.h"

namespace lumivert::tool {
namespace {

struct Options {
    std::string input;
    bool json = false;
};

/// What all frames together tell about HDR10+.
struct Hdr10PlusSummary {
    int64_t frames = 0, with_record = 0, first = -1, with_curve = 0;
    int version = 0;
    std::map<uint32_t, int64_t> targets; ///< targeted display luminance and its frames
    RecordOddities oddities;
    std::set<Record> distinct;
    int64_t last_pts = AV_NOPTS_VALUE, shortest = INT64_MAX, longest = 0; ///< durations of frames, in the time base

    void add(const ClipFrame& frame) {
        ++frames;
        if (last_pts != AV_NOPTS_VALUE) {
            shortest = std::min(shortest, frame.pts - last_pts);
            longest = std::max(longest, frame.pts - last_pts);
        }
        last_pts = frame.pts;
        if (!frame.record) return;
        const Record& record = *frame.record;
        if (first < 0) first = frame.number;
        ++with_record;
        if (record.tone_mapping_flag != 0) ++with_curve;
        version = record.application_version;
        ++targets[record.display_max_luminance];
        distinct.insert(record);
        oddities.add(frame.number, record);
    }
    /// Times in files are rounded; a difference that counts is larger than a tenth.
    bool variable_rate() const { return longest > 0 && longest > shortest + shortest / 10 + 2; }
    /// Profile B carries curves; a clip with both kinds of records follows neither profile.
    const char* profile() const { return with_curve == 0 ? "A" : with_curve == with_record ? "B" : "A and B mixed"; }
};

std::vector<std::string> warnings_about(const ClipInfo& clip, const Hdr10PlusSummary& plus, bool loses_records) {
    std::vector<std::string> lines;
    const StaticMetadata& fixed = clip.static_metadata;
    const bool pq = clip.transfer == AVCOL_TRC_SMPTE2084;
    if (!pq) lines.push_back(std::string("not PQ: the transfer is ") + av_color_transfer_name(clip.transfer));
    if (clip.depth < 10) lines.push_back(std::to_string(clip.depth) + "-bit samples");
    if (pq)
        for (const Oddity& oddity : odd_colours(clip))
            lines.push_back(oddity.line());
    if (pq && !fixed.has_mastering && !fixed.has_content_light && plus.with_record == 0 && !loses_records)
        lines.push_back("PQ without any metadata");
    for (const auto& oddity : {odd_peak(fixed.mastering_peak, plus.with_record == 0), late_records(plus.first)})
        if (oddity) lines.push_back(oddity->line());
    if (fixed.has_content_light && fixed.max_fall > fixed.max_cll && fixed.max_cll > 0)
        lines.push_back("MaxFALL above MaxCLL");
    if (clip.width % 2 != 0 || clip.height % 2 != 0) lines.push_back("an odd size, which cannot be converted");
    for (const std::string& line : plus.oddities.lines())
        lines.push_back(line);
    return lines;
}

const char* range_name(AVColorRange range) {
    return range == AVCOL_RANGE_JPEG ? "full" : range == AVCOL_RANGE_MPEG ? "limited" : "unknown";
}

void print_text(const std::string& path, const ClipInfo& clip, const Hdr10PlusSummary& plus,
                const std::vector<std::string>& warnings) {
    const StaticMetadata& fixed = clip.static_metadata;
    std::cout << path << '\n'
              << "  video      " << clip.width << "x" << clip.height << ", " << counted(plus.frames, "frame") << ", "
              << six_digits(av_q2d(clip.frame_rate)) << " frames/s, " << clip.codec << " in " << clip.container << ", "
              << clip.pixel_format << '\n'
              << "  file       ";
    if (clip.duration > 0) std::cout << six_digits(clip.duration) << " s, ";
    if (clip.bit_rate > 0) std::cout << six_digits(static_cast<double>(clip.bit_rate) / 1000) << " kbit/s, ";
    std::cout << (plus.variable_rate() ? "variable" : "constant") << " frame rate";
    if (const int degrees = Orientation(clip.display_matrix).degrees(); degrees != 0)
        std::cout << ", shown turned by " << degrees << " degrees";
    std::cout << '\n';
    for (const TrackInfo& track : clip.tracks)
        std::cout << "  track      " << track.kind << ", " << track.codec
                  << (track.language.empty() ? "" : ", " + track.language) << '\n';
    if (clip.dolby_vision >= 0) std::cout << "  Dolby Vision profile " << clip.dolby_vision << ", not used\n";
    std::cout << "  colour     primaries " << av_color_primaries_name(clip.primaries) << ", transfer "
              << av_color_transfer_name(clip.transfer) << ", matrix " << av_color_space_name(clip.matrix) << ", range "
              << range_name(clip.range) << '\n';
    std::cout << "  mastering  ";
    if (fixed.has_mastering)
        std::cout << "peak " << six_digits(fixed.mastering_peak) << " cd/m2, black "
                  << six_digits(fixed.mastering_black) << " cd/m2"
                  << (fixed.mastering_primaries.empty() ? "" : ", primaries " + fixed.mastering_primaries) << '\n';
    else
        std::cout << "none\n";
    std::cout << "  content    ";
    if (fixed.has_content_light)
        std::cout << "MaxCLL " << fixed.max_cll << " cd/m2, MaxFALL " << fixed.max_fall << " cd/m2\n";
    else
        std::cout << "none\n";
    std::cout << "  HDR10+     ";
    if (plus.with_record == 0) {
        std::cout << "none\n";
    } else {
        std::cout << "profile " << plus.profile() << ", application version " << plus.version << ", on "
                  << plus.with_record << " of " << counted(plus.frames, "frame") << " from frame " << plus.first
                  << " on, " << counted(static_cast<long>(plus.distinct.size()), "distinct record") << '\n';
        for (const auto& [target, frames] : plus.targets)
            std::cout << "             for a display of " << target << " cd/m2: " << counted(frames, "frame") << '\n';
    }
    for (const std::string& line : warnings)
        std::cout << "  warning    " << line << '\n';
}

void print_json(const std::string& path, const ClipInfo& clip, const Hdr10PlusSummary& plus,
                const std::vector<std::string>& warnings) {
    using Json = nlohmann::ordered_json;
    const StaticMetadata& fixed = clip.static_metadata;
    Json document = {
        {"file", path},
        {"container", clip.container},
        {"codec", clip.codec},
        {"width", clip.width},
        {"height", clip.height},
        {"frames", plus.frames},
        {"frame_rate", av_q2d(clip.frame_rate)},
        {"variable_frame_rate", plus.variable_rate()},
        {"duration_s", clip.duration},
        {"bit_rate", clip.bit_rate},
        {"rotation", Orientation(clip.display_matrix).degrees()},
        {"tracks", Json::array()},
        {"pixel_format", clip.pixel_format},
        {"bits", clip.depth},
        {"primaries", av_color_primaries_name(clip.primaries)},
        {"transfer", av_color_transfer_name(clip.transfer)},
        {"matrix", av_color_space_name(clip.matrix)},
        {"range", range_name(clip.range)},
        {"mastering", nullptr},
        {"content_light", nullptr},
        {"hdr10plus", nullptr},
        {"warnings", warnings},
    };
    for (const TrackInfo& track : clip.tracks)
        document["tracks"].push_back({{"kind", track.kind}, {"codec", track.codec}, {"language", track.language}});
    if (clip.dolby_vision >= 0) document["dolby_vision_profile"] = clip.dolby_vision;
    if (fixed.has_mastering)
        document["mastering"] = {{"peak_cd_m2", fixed.mastering_peak},
                                 {"black_cd_m2", fixed.mastering_black},
                                 {"primaries", fixed.mastering_primaries}};
    if (fixed.has_content_light)
        document["content_light"] = {{"max_cll_cd_m2", fixed.max_cll}, {"max_fall_cd_m2", fixed.max_fall}};
    if (plus.with_record > 0) {
        Json targets = Json::array();
        for (const auto& [target, frames] : plus.targets)
            targets.push_back({{"display_cd_m2", target}, {"frames", frames}});
        document["hdr10plus"] = {{"profile", plus.profile()},
                                 {"application_version", plus.version},
                                 {"frames_with_record", plus.with_record},
                                 {"frames_without_record", plus.frames - plus.with_record},
                                 {"first_frame", plus.first},
                                 {"distinct_records", plus.distinct.size()},
                                 {"targets", targets}};
    }
    std::cout << document.dump(2) << '\n';
}

int run(const Options& options) {
    ClipReader clip(options.input);
    Hdr10PlusSummary plus;
    {
        Progress progress(clip.info().frames);
        for (ClipFrame frame; clip.next(frame); progress.update(plus.frames))
            plus.add(frame);
    }
    clip.report();
    auto lines = warnings_about(clip.info(), plus, clip.loses_records());
    for (const std::string& line : take_warnings())
        lines.push_back(line);
    (options.json ? print_json : print_text)(clip.path(), clip.info(), plus, lines);
    return lines.empty() ? status_so_far() : kDoneWithWarnings;
}

} // namespace

Command add_probe(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.add("INPUT", options->input, "a clip; - is standard input").required();
    arguments.add_flag("--json", options->json, "one JSON document");
    arguments.footer("The exit status is 1 if there were warnings.\n\nExample:\n  lumivert probe clip.mp4");
    return [options] { return run(*options); };
}

} // namespace lumivert::tool
