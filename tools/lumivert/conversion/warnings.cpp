#include "conversion/warnings.h"

#include <cstdio>

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "hdr10plus/pixel_chain.h"
#include "report.h"

namespace lumivert::tool {
namespace {

std::string light_text(double cd_m2) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4g cd/m2", cd_m2);
    return text;
}

void warn_about_colours(const std::string& name, const ClipInfo& clip) {
    const bool other_primaries = clip.primaries != AVCOL_PRI_BT2020 && clip.primaries != AVCOL_PRI_UNSPECIFIED;
    const bool other_matrix = clip.matrix != AVCOL_SPC_BT2020_NCL && clip.matrix != AVCOL_SPC_UNSPECIFIED;
    if (other_primaries)
        warn(name + ": primaries " + av_color_primaries_name(clip.primaries) + ", converted as if they were bt2020");
    if (other_matrix)
        warn(name + ": matrix " + av_color_space_name(clip.matrix) + ", converted as if it were bt2020nc");
}

void warn_about_luminances(const std::string& name, const Plan& plan, const Tally& tally) {
    const double peak = plan.luminances.mastering_peak;
    const bool fixed = plan.mode == Mode::kStaticTable, by_default = !fixed && tally.by_origin[2] > 0;
    if ((fixed || by_default) && peak > 0 && peak < 1)
        warn(name + ": a mastering peak of " + light_text(peak) + " makes no sense; --max-luminance sets a better one");
    if (fixed && fixed_table_of(peak) == 1000 && peak > 1000)
        warn(name + ": a mastering peak of " + light_text(peak) +
             " is beyond both tables; the one that it selects clips " +
             "what is above 1000 cd/m2. --max-luminance 4000 selects the other");
    constexpr double kReferenceWhite = 203; // cd/m2, ITU-R BT.2408
    const double brightest = luminance_from_code(tally.brightest_by_default);
    if (by_default && tally.brightest_by_default >= 0 && brightest < kReferenceWhite)
        warn(name + ": nothing above " + light_text(brightest) +
             " in frames that used the default record, which is made " + "for brighter clips and darkens this one");
}

void warn_about_records(const Request& request, const Plan& plan, const Tally& tally, bool loses_records) {
    const std::string& name = request.input;
    if (plan.mode == Mode::kStaticTable && request.mode == "auto" && tally.first_record >= 0)
        warn(name + ": HDR10+ metadata begins with frame " + std::to_string(tally.first_record) + ", after the first " +
             std::to_string(kFramesToLookAhead) + " that --mode auto looks at; --mode hdr10plus uses it");
    if (plan.mode != Mode::kHdr10plus) return;
    const auto [own, previous, none] = tally.by_origin;
    if (plan.list.empty()) {
        if (request.metadata != "none" && own + previous == 0 && !loses_records)
            warn("there is no HDR10+ metadata in " + name);
        for (const std::string& line : tally.oddities.lines())
            warn(name + ": " + line);
        return;
    }
    for (const std::string& line : tally.oddities.lines())
        warn(request.metadata + ": " + line);
    const auto unused = std::distance(plan.list.lower_bound(tally.seen), plan.list.end());
    if (tally.to_the_end && unused > 0)
        warn(request.metadata + ": " + counted(static_cast<long>(plan.list.size()), "record") + " for " +
             counted(tally.seen, "frame") + ": " + std::to_string(unused) + " not used");
    if (previous + none > 0) warn(request.metadata + ": no record for " + counted(previous + none, "frame"));
}

} // namespace

void warn_about(const Request& request, const ClipInfo& clip, const Plan& plan, const Tally& tally,
                bool loses_records) {
    if (!plan.mode) return;
    warn_about_colours(request.input, clip);
    warn_about_luminances(request.input, plan, tally);
    warn_about_records(request, plan, tally, loses_records);
}

} // namespace lumivert::tool
