#include "html_report/advice.h"

#include <algorithm>
#include <cctype>

#include "conversion/oddities.h"
#include "hdr10plus/record_oddities.h"
#include "report.h"

namespace lumivert::tool {
namespace {

std::string what_to_do_about(const Disagreement& d) {
    if (d.rule == "maximum")
        return "Highlights above the record's maximum lose detail. A few pixels of encoder noise do no harm: compare "
               "the 99.98 % point. Otherwise measure the records again from this grade.";
    if (d.rule == "average" || d.rule == "distribution")
        return "The curve was made for other light than this. The records may belong to another grade or another cut: "
               "extract them with 'lumivert metadata', correct them and convert with --metadata.";
    return std::string("Displays that trust the value dim or clip. Write the measured value into the stream") +
           (d.rule == "MaxCLL" ? "; 'lumivert convert' takes it with --max-cll." : ".");
}

std::string sentence(std::string text) {
    text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text + ".";
}

} // namespace

std::vector<Advice> advice_for(const ClipInfo& clip, const ClipLight& light,
                               const std::vector<Disagreement>& disagreements, bool fixed_table) {
    std::vector<Advice> list;
    const auto add = [&](const std::string& what, const std::string& what_to_do) {
        list.push_back({what, what_to_do});
    };
    const StaticMetadata& fixed = clip.static_metadata;
    if (clip.transfer == AVCOL_TRC_UNSPECIFIED)
        add("The clip does not say that it is PQ.",
            "It was taken as PQ. If that is wrong, nothing on this page holds.");
    for (const Oddity& oddity : odd_colours(clip))
        add(sentence(oddity.what), sentence(oddity.what_to_do));

    int64_t first_with = -1, without = 0;
    double brightest = 0; // of the frames without a record
    RecordOddities oddities;
    for (const MeasuredFrame& frame : light.frames) {
        if (frame.origin == RecordOrigin::kNone) {
            ++without;
            brightest = std::max(brightest, frame.light.peak());
            continue;
        }
        if (first_with < 0) first_with = frame.number;
        if (frame.origin == RecordOrigin::kOwn) oddities.add(frame.number, frame.record);
    }
    const bool by_default = !fixed_table && without > 0;
    std::vector<std::optional<Oddity>> found = {late_records(first_with)};
    if (fixed_table || by_default) found.push_back(odd_peak(fixed.mastering_peak, fixed_table));
    if (by_default) found.push_back(dark_for_default(brightest));
    for (const auto& oddity : found)
        if (oddity) add(sentence(oddity->what), sentence(oddity->what_to_do));
    if (first_with < 0 && !fixed.has_mastering && !fixed.has_content_light)
        add("There is no metadata at all.",
            "Mode auto uses the fixed table. 'lumivert convert --mode hdr10plus' uses a default curve instead; the "
            "stills show both.");
    if (by_default)
        add("HDR10+ begins at frame " + std::to_string(first_with) + ".",
            "The " + counted(without, "frame") +
                " before it use the default record and may look different. 'lumivert convert --metadata' takes a list "
                "that covers them.");
    for (const std::string& line : oddities.lines())
        add("Records have " + line + ".",
            "Extract the records with 'lumivert metadata', correct them and convert with --metadata.");
    for (const Disagreement& d : disagreements)
        add("Metadata and pixels disagree: " + rule_text(d.rule) + " (" + d.text() + ").", what_to_do_about(d));
    return list;
}

} // namespace lumivert::tool
