#include "conversion/warnings.h"

#include "conversion/oddities.h"
#include "hdr10plus/pixel_chain.h"
#include "report.h"

namespace lumivert::tool {
namespace {

void warn_of(const std::string& name, const Oddity& oddity) {
    warn(name + ": " + oddity.line());
}

void warn_about_light(const std::string& name, const Plan& plan, const Tally& tally) {
    const bool fixed = plan.mode == Mode::kStaticTable, by_default = !fixed && tally.by_origin[2] > 0;
    if (fixed || by_default)
        if (const auto oddity = odd_peak(plan.luminances.mastering_peak, fixed)) warn_of(name, *oddity);
    if (by_default && tally.brightest_by_default >= 0)
        if (const auto oddity = dark_for_default(luminance_from_code(tally.brightest_by_default)))
            warn_of(name, *oddity);
}

void warn_about_records(const Request& request, const Plan& plan, const Tally& tally, bool loses_records) {
    const std::string& name = request.input;
    if (plan.mode == Mode::kStaticTable && request.mode == "auto")
        if (const auto oddity = late_records(tally.first_record)) warn_of(name, *oddity);
    if (plan.mode != Mode::kHdr10plus) return;
    const auto [own, previous, none] = tally.by_origin;
    if (plan.list.empty()) {
        if (request.metadata != "none" && tally.first_record < 0 && !loses_records)
            warn("there is no HDR10+ metadata in " + name + (tally.to_the_end ? "" : " up to where this part ends"));
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
    for (const Oddity& oddity : odd_colours(clip))
        warn_of(request.input, oddity);
    warn_about_light(request.input, plan, tally);
    warn_about_records(request, plan, tally, loses_records);
}

} // namespace lumivert::tool
