#include "html_report/advice.h"

#include <algorithm>
#include <map>

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "plot/luminance_axis.h"
#include "report.h"

namespace lumivert::tool {
namespace {

std::string what_to_do_about(const Disagreement& d) {
    if (d.rule == "maximum")
        return "Highlights above the record's maximum lose detail. A few pixels of encoder noise do no harm: compare "
               "the "
               "99.98 % point. Otherwise measure the records again from this grade.";
    if (d.rule == "average" || d.rule == "distribution")
        return "The curve was made for other light than this. The records may belong to another grade or another cut: "
               "extract them with 'lumivert metadata', correct them and convert with --metadata.";
    return "Displays that trust the value dim or clip. Write the measured value into the stream; 'lumivert convert' "
           "takes "
           "it with --max-cll.";
}

} // namespace

std::vector<Advice> advice_for(const ClipInfo& clip, const ClipLight& light,
                               const std::vector<Disagreement>& disagreements) {
    std::vector<Advice> list;
    const auto add = [&](const std::string& what, const std::string& what_to_do) {
        list.push_back({what, what_to_do});
    };
    const StaticMetadata& fixed = clip.static_metadata;
    if (clip.transfer == AVCOL_TRC_UNSPECIFIED)
        add("The clip does not say that it is PQ.",
            "It was taken as PQ. If that is wrong, nothing on this page holds.");
    if (clip.range == AVCOL_RANGE_JPEG)
        add("The samples are full range.", "Light was measured as full range, but the converter assumes limited range: "
                                           "convert the clip to limited range "
                                           "first, or its blacks and whites are wrong.");
    if (clip.primaries != AVCOL_PRI_BT2020 && clip.primaries != AVCOL_PRI_UNSPECIFIED)
        add(std::string("The primaries are ") + av_color_primaries_name(clip.primaries) + ".",
            "The converter assumes BT.2020: colours come out too saturated. Convert the primaries first.");
    if (fixed.has_mastering && fixed.mastering_peak < 1)
        add("The mastering peak of " + luminance_text(fixed.mastering_peak) + " cd/m\u00b2 makes no sense.",
            "Give the real one with --max-luminance where the fixed table or the default record is used.");
    if (fixed.mastering_peak > 4000)
        add("The mastering peak is above 4000 cd/m\u00b2.", "The fixed tables end there; use the HDR10+ mode.");

    int64_t without = 0, first_with = -1;
    std::map<std::string, std::pair<int64_t, int64_t>> oddities; // first frame, frames
    for (const MeasuredFrame& frame : light.frames) {
        if (frame.origin == RecordOrigin::kNone) {
            ++without;
            continue;
        }
        if (first_with < 0) first_with = frame.number;
        if (frame.origin != RecordOrigin::kOwn) continue;
        for (const std::string& line : complaints(frame.record))
            ++oddities.try_emplace(line, frame.number, 0).first->second.second;
    }
    if (first_with < 0) {
        const bool known = fixed.has_mastering || fixed.has_content_light;
        add(known ? "There is no HDR10+ metadata." : "There is no metadata at all.",
            "Mode auto uses the fixed table. 'lumivert convert --mode hdr10plus' uses a default curve instead; the "
            "stills "
            "show both.");
    } else if (without > 0) {
        add("HDR10+ begins at frame " + std::to_string(first_with) + ".",
            "The " + counted(without, "frame") +
                " before it use the default record and may look different. "
                "'lumivert convert --metadata' takes a list that covers them.");
    }
    for (const auto& [line, where] : oddities)
        add("Records have " + line + ": " + counted(where.second, "frame") + ", the first " +
                std::to_string(where.first) + ".",
            "Extract the records with 'lumivert metadata', correct them and convert with --metadata.");
    for (const Disagreement& d : disagreements)
        add("Metadata and pixels disagree: " + rule_text(d.rule) + " (" + d.text() + ").", what_to_do_about(d));
    return list;
}

} // namespace lumivert::tool
