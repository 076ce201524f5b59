#include <cstdio>
#include <iostream>
#include <map>
#include <set>

#include <nlohmann/json.hpp>

#include "commands/commands.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "error.h"
#include "io/progress.h"
#include "media/clip_reader.h"
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
    std::map<uint32_t, int64_t> targets;                         ///< targeted display luminance and its frames
    std::map<std::string, std::pair<int64_t, int64_t>> oddities; ///< first frame and number of frames
    std::set<Record> distinct;

    void add(const ClipFrame& frame) {
        ++frames;
        if (!frame.record) return;
        const Record& record = *frame.record;
        if (first < 0) first = frame.number;
        ++with_record;
        if (record.tone_mapping_flag != 0) ++with_curve;
        version = record.application_version;
        ++targets[record.display_max_luminance];
        distinct.insert(record);
        for (const std::string& line : complaints(record))
            ++oddities.try_emplace(line, frame.number, 0).first->second.second;
    }
    /// Profile B carries curves; a clip with both kinds of records follows neither profile.
    const char* profile() const { return with_curve == 0 ? "A" : with_curve == with_record ? "B" : "A and B mixed"; }
};

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::vector<std::string> warnings_about(const ClipInfo& clip, const Hdr10PlusSummary& plus) {
    std::vector<std::string> lines;
    const StaticMetadata& fixed = clip.static_metadata;
    const bool pq = clip.transfer == AVCOL_TRC_SMPTE2084;
    if (!pq) lines.push_back(std::string("not PQ: the transfer is ") + av_color_transfer_name(clip.transfer));
    if (clip.depth < 10) lines.push_back(std::to_string(clip.depth) + "-bit samples");
    if (pq && clip.primaries != AVCOL_PRI_BT2020)
        lines.push_back(std::string("primaries are ") + av_color_primaries_name(clip.primaries) +
                        "; the converter assumes BT.2020");
    if (clip.range == AVCOL_RANGE_JPEG) lines.push_back("full range; the converter assumes limited range");
    if (pq && !fixed.has_mastering && !fixed.has_content_light && plus.with_record == 0)
        lines.push_back("PQ without any metadata");
    if (fixed.has_mastering && fixed.mastering_peak < 1)
        lines.push_back("a mastering peak of " + number(fixed.mastering_peak) + " cd/m2");
    if (fixed.has_content_light && fixed.max_fall > fixed.max_cll && fixed.max_cll > 0)
        lines.push_back("MaxFALL above MaxCLL");
    if (clip.width % 2 != 0 || clip.height % 2 != 0) lines.push_back("an odd size, which cannot be converted");
    for (const auto& [line, where] : plus.oddities)
        lines.push_back(line + ": " + counted(where.second, "frame") + ", the first " + std::to_string(where.first));
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
              << number(av_q2d(clip.frame_rate)) << " frames/s, " << clip.codec << " in " << clip.container << ", "
              << clip.pixel_format << '\n'
              << "  colour     primaries " << av_color_primaries_name(clip.primaries) << ", transfer "
              << av_color_transfer_name(clip.transfer) << ", matrix " << av_color_space_name(clip.matrix) << ", range "
              << range_name(clip.range) << '\n';
    std::cout << "  mastering  ";
    if (fixed.has_mastering)
        std::cout << "peak " << number(fixed.mastering_peak) << " cd/m2, black " << number(fixed.mastering_black)
                  << " cd/m2\n";
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
    if (fixed.has_mastering)
        document["mastering"] = {{"peak_cd_m2", fixed.mastering_peak}, {"black_cd_m2", fixed.mastering_black}};
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
    const auto lines = warnings_about(clip.info(), plus);
    (options.json ? print_json : print_text)(clip.path(), clip.info(), plus, lines);
    return lines.empty() ? status_so_far() : kDoneWithWarnings;
}

} // namespace

Command add_probe(CLI::App& app) {
    auto options = std::make_shared<Options>();
    app.add_option("INPUT", options->input, "a clip; - is standard input")->required();
    app.add_flag("--json", options->json, "one JSON document");
    app.footer("Exit status 1 tells that there were warnings.\n\nExample:\n  lumivert probe clip.mp4");
    return [options] { return run(*options); };
}

} // namespace lumivert::tool
