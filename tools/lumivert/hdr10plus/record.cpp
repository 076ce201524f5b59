#include "hdr10plus/record.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <tuple>

extern "C" {
#include <libavutil/hdr_dynamic_metadata.h>
#include <libavutil/mathematics.h>
}

#include "hdr10plus/default_metadata.h" // of the library

namespace {

template <typename T, size_t N>
std::array<T, N> whole(const T (&values)[N]) {
    std::array<T, N> copy;
    std::copy(std::begin(values), std::end(values), copy.begin());
    return copy;
}

/// All that a record says, as something that compares.
auto key(const HDR10PLUS_DYNAMIC_INFO& r) {
    return std::tuple(r.country_code, r.provider_code, r.provider_oriented_code, r.application_identifier,
                      r.application_version, r.display_max_luminance, whole(r.maxscl), r.avg_maxrgb,
                      r.num_maxrgb_percentiles, whole(r.maxrgb_percentages), whole(r.maxrgb_percentiles),
                      r.tone_mapping_flag, r.knee_point_x, r.knee_point_y, r.num_bezier_curve_anchors,
                      whole(r.bezier_curve_anchors));
}

} // namespace

bool operator==(const HDR10PLUS_DYNAMIC_INFO& a, const HDR10PLUS_DYNAMIC_INFO& b) {
    return key(a) == key(b);
}
bool operator<(const HDR10PLUS_DYNAMIC_INFO& a, const HDR10PLUS_DYNAMIC_INFO& b) {
    return key(a) < key(b);
}

namespace lumivert::tool {
namespace {

/// The integer that the stream carries: FFmpeg gives it as a fraction of `scale`. Fields that the stream leaves out
/// are 0/0.
uint32_t coded(AVRational value, int scale) {
    return value.den == 0 ? 0 : static_cast<uint32_t>(av_rescale(value.num, scale, value.den));
}

} // namespace

Record make_record() {
    Record record = {};
    // ITU-T T.35 country and provider of the SMPTE ST 2094-40 message. FFmpeg reports a country code of 0.
    record.country_code = 181;
    record.provider_code = 60;
    record.provider_oriented_code = 1;
    record.application_identifier = 4;
    return record;
}

Record from_side_data(const AVDynamicHDRPlus& side_data) {
    const AVHDRPlusColorTransformParams& window = side_data.params[0];
    Record record = make_record();
    record.application_version = side_data.application_version;
    record.display_max_luminance = coded(side_data.targeted_system_display_maximum_luminance, 1);
    for (int i = 0; i < 3; ++i)
        record.maxscl[i] = coded(window.maxscl[i], 100000);
    record.avg_maxrgb = coded(window.average_maxrgb, 100000);
    record.num_maxrgb_percentiles = std::min<int>(window.num_distribution_maxrgb_percentiles, kMaxPoints);
    for (int i = 0; i < record.num_maxrgb_percentiles; ++i) {
        record.maxrgb_percentages[i] = window.distribution_maxrgb[i].percentage;
        record.maxrgb_percentiles[i] = coded(window.distribution_maxrgb[i].percentile, 100000);
    }
    record.tone_mapping_flag = window.tone_mapping_flag;
    if (record.tone_mapping_flag == 0) return record;
    record.knee_point_x = coded(window.knee_point_x, 4095);
    record.knee_point_y = coded(window.knee_point_y, 4095);
    record.num_bezier_curve_anchors = std::min<int>(window.num_bezier_curve_anchors, kMaxPoints);
    for (int i = 0; i < record.num_bezier_curve_anchors; ++i)
        record.bezier_curve_anchors[i] = coded(window.bezier_curve_anchors[i], 1023);
    return record;
}

Record default_record(double mastering_peak, double max_cll) {
    Record record = {};
    default_metadata(static_cast<float>(mastering_peak), static_cast<float>(max_cll), &record);
    return record;
}

std::vector<std::string> complaints(const Record& record) {
    std::vector<std::string> lines;
    const auto complain_if = [&](bool wrong, const std::string& line) {
        if (wrong) lines.push_back(line);
    };
    const auto above = [](const auto* values, int count, uint32_t limit) {
        return std::any_of(values, values + count, [limit](uint32_t value) { return value > limit; });
    };
    const int points = std::min<int>(record.num_maxrgb_percentiles, kMaxPoints);
    complain_if(above(record.maxscl, 3, 100000), "a scene maximum above 10000 cd/m2");
    complain_if(above(record.maxrgb_percentages, points, 100), "a distribution point above 100 %");
    complain_if(above(record.maxrgb_percentiles, points, 100000), "a distribution value above 10000 cd/m2");
    complain_if(points == 0 && !above(record.maxscl, 3, 0), "neither a scene maximum nor a distribution");
    const uint32_t maximum = *std::max_element(record.maxscl, record.maxscl + 3);
    // The entries at positions 1 and 2 often carry other quantities than their percentages say.
    const bool distribution_above = points > 3 && above(record.maxrgb_percentiles + 3, points - 3, maximum);
    complain_if(maximum > 0 && distribution_above, "a scene maximum below values of the distribution");
    complain_if(maximum > 0 && record.avg_maxrgb > maximum, "an average above the scene maximum");
    complain_if(points > 3 && record.avg_maxrgb > record.maxrgb_percentiles[points - 1],
                "an average above the last distribution value");
    if (record.tone_mapping_flag != 0) {
        const int anchors = std::min<int>(record.num_bezier_curve_anchors, kMaxPoints);
        complain_if(anchors == 0, "a tone-mapping flag with no anchors");
        complain_if(anchors == 1 || anchors == 2, "fewer than 3 anchors: the converter ignores them");
        complain_if(record.knee_point_x > 4095 || record.knee_point_y > 4095, "a knee point above 4095");
        complain_if(above(record.bezier_curve_anchors, anchors, 1023), "an anchor above 1023");
        const auto* falls = std::is_sorted_until(record.bezier_curve_anchors, record.bezier_curve_anchors + anchors);
        complain_if(falls != record.bezier_curve_anchors + anchors, "anchors that fall");
        complain_if(record.display_max_luminance < 10, "a curve for a display below 10 cd/m2");
    }
    return lines;
}

} // namespace lumivert::tool
