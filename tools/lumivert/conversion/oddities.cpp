#include "conversion/oddities.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "hdr10plus/pixel_chain.h"
#include "media/source.h"
#include "plot/luminance_axis.h"

namespace lumivert::tool {

std::vector<Oddity> odd_colours(const ClipInfo& clip) {
    std::vector<Oddity> list;
    if (clip.range == AVCOL_RANGE_JPEG)
        list.push_back({"full range",
                        "the converter assumes limited range, so blacks and whites come out wrong; convert "
                        "the clip to limited range first"});
    if (clip.primaries != AVCOL_PRI_BT2020 && clip.primaries != AVCOL_PRI_UNSPECIFIED)
        list.push_back({std::string("primaries ") + av_color_primaries_name(clip.primaries),
                        "the converter assumes bt2020, so colours come out wrong; convert them first"});
    if (clip.matrix != AVCOL_SPC_BT2020_NCL && clip.matrix != AVCOL_SPC_UNSPECIFIED)
        list.push_back({std::string("matrix ") + av_color_space_name(clip.matrix),
                        "the converter assumes bt2020nc, so colours come out wrong; convert them first"});
    return list;
}

std::optional<Oddity> odd_peak(double peak, bool fixed) {
    const std::string what = "a mastering peak of " + luminance_text(peak) + " cd/m2";
    if (peak > 0 && peak < 1) return Oddity{what, "it makes no sense; --max-luminance sets a better one"};
    if (fixed && peak > 1000 && fixed_table_of(peak) == 1000)
        return Oddity{what, "it is beyond both fixed tables, and the one that it selects clips what is above 1000 "
                            "cd/m2; --max-luminance 4000 selects the other"};
    return std::nullopt;
}

std::optional<Oddity> late_records(int64_t first) {
    if (first < kFramesToLookAhead) return std::nullopt;
    return Oddity{"HDR10+ metadata begins with frame " + std::to_string(first) + ", after the first " +
                      std::to_string(kFramesToLookAhead) + " that --mode auto looks at",
                  "--mode hdr10plus uses it"};
}

std::optional<Oddity> dark_for_default(double brightest) {
    constexpr double kReferenceWhite = 203; // cd/m2, ITU-R BT.2408
    if (brightest >= kReferenceWhite) return std::nullopt;
    return Oddity{"nothing above " + luminance_text(brightest) + " cd/m2 in frames that use the default record",
                  "it is made for brighter clips and darkens this one"};
}

} // namespace lumivert::tool
