#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "conversion/clip_conversion.h"
#include "hdr10plus/pixel_chain.h"
#include "report.h"

namespace lumivert::tool {
namespace {

/// The first frame waits for the driver to finish compiling, so the median tells more than the mean.
double median_ms(std::vector<double> ms) {
    const auto middle = ms.begin() + static_cast<ptrdiff_t>(ms.size() / 2);
    std::nth_element(ms.begin(), middle, ms.end());
    return *middle;
}

double frames_per_second(const Tally& tally) {
    return static_cast<double>(tally.converting_ms.size()) / tally.total_s;
}

const char* name_of(const std::optional<Mode>& mode) {
    return !mode ? "none" : *mode == Mode::kStaticTable ? "static" : "hdr10plus";
}

} // namespace

std::string metadata_summary(const Outcome& outcome) {
    const auto& [plan, tally, device, left_out] = outcome;
    const auto [own, previous, none] = tally.by_origin;
    const std::string frames = counted(tally.converted(), "frame") + ": ";
    if (!plan.mode) return frames + "passed on as they are";
    if (plan.mode == Mode::kStaticTable) {
        const long peak = std::lround(plan.luminances.mastering_peak);
        return frames + "the table for masters up to " +
               std::to_string(fixed_table_of(plan.luminances.mastering_peak)) + " cd/m2 (mastering peak " +
               (peak > 0 ? std::to_string(peak) + " cd/m2)" : "not known)");
    }
    if (own + previous == 0) return frames + "all used the default for clips without HDR10+";
    std::string text = frames + std::to_string(own) + " with HDR10+";
    if (previous > 0) text += ", " + std::to_string(previous) + " without one used the record before";
    if (none > 0) text += ", " + std::to_string(none) + " before the first record used the default";
    return text;
}

std::string speed_summary(const Outcome& outcome, bool brief) {
    const auto& ms = outcome.tally.converting_ms;
    const double total_s = outcome.tally.total_s, sum = std::accumulate(ms.begin(), ms.end(), 0.0);
    const std::string device = brief ? "" : " on " + outcome.device;
    char line[300];
    if (ms.size() == 1)
        std::snprintf(line, sizeof line, "1 frame in %.2f s%s, start-up included", total_s, device.c_str());
    else if (brief)
        std::snprintf(line, sizeof line, "%.2f ms per frame, %.1f frames/s", median_ms(ms),
                      frames_per_second(outcome.tally));
    else
        std::snprintf(line, sizeof line, "%.2f ms per frame%s; %.1f frames/s in all, %.0f %% of the time converting",
                      median_ms(ms), device.c_str(), frames_per_second(outcome.tally), 100 * sum / 1000 / total_s);
    return line;
}

nlohmann::ordered_json to_json(const Outcome& outcome) {
    const auto& [plan, tally, device, left_out] = outcome;
    nlohmann::ordered_json document = {{"mode", name_of(plan.mode)}, {"frames", tally.converted()}};
    if (plan.mode == Mode::kHdr10plus)
        document["hdr10plus"] = {{"own_record", tally.by_origin[0]},
                                 {"record_before", tally.by_origin[1]},
                                 {"default_record", tally.by_origin[2]}};
    if (plan.mode == Mode::kStaticTable) document["table_cd_m2"] = fixed_table_of(plan.luminances.mastering_peak);
    document["format"] = info_of(plan.format).name;
    if (!left_out.empty()) document["not_copied"] = left_out;
    document["seconds"] = tally.total_s;
    if (plan.mode) {
        document["median_ms_per_frame"] = median_ms(tally.converting_ms);
        document["device"] = device;
    }
    return document;
}

} // namespace lumivert::tool
