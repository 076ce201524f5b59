#include "stage.h"

#include <algorithm>

namespace lumivert::check {
namespace {

constexpr uint8_t kUntouched = 0x55;
constexpr unsigned kDisplay = 250; // cd/m2, of both paths

/// The mastering peak in whole cd/m2.
unsigned nits_of(Light light) {
    switch (light) {
    case Light::kMaster0:
        return 0;
    case Light::kMaster1001:
        return 1001;
    case Light::kMaster4000:
    case Light::kNoRecord4000:
        return 4000;
    case Light::kMaster4001:
        return 4001;
    default:
        return 1000;
    }
}

HDR10PLUS_DYNAMIC_INFO make_record(Light light) {
    HDR10PLUS_DYNAMIC_INFO record = reference::default_record(0, 1000);
    const auto set_anchors = [&](int count) {
        record.num_bezier_curve_anchors = static_cast<uint8_t>(count);
        for (int i = 0; i < count; ++i)
            record.bezier_curve_anchors[i] = static_cast<uint16_t>(std::min(1023, 300 + 900 * i / count));
    };
    switch (light) {
    case Light::kGradedForBrighter:
        record.display_max_luminance = 400;
        break;
    case Light::kGradedForDimmer:
        record.display_max_luminance = 150;
        break;
    case Light::kNoCurve:
        record.tone_mapping_flag = 0;
        break;
    case Light::kNoCurveDarkScene:
        record.tone_mapping_flag = 0;
        record.maxrgb_percentiles[4] = 120; // of 1000 cd/m2
        break;
    case Light::kNoCurveBrightScene:
        record.tone_mapping_flag = 0;
        std::fill_n(record.maxscl, 3, 3600U);
        record.maxrgb_percentiles[4] = 2500;
        record.maxrgb_percentiles[8] = 3500;
        break;
    case Light::kNoCurveBrightMaster:
        record.tone_mapping_flag = 0;
        record.maxrgb_percentiles[8] = 40000;
        break;
    case Light::kDimScene:
        record.display_max_luminance = 400;
        std::fill_n(record.maxscl, 3, 1800U);
        record.maxrgb_percentiles[8] = 1700;
        break;
    case Light::kFewAnchors:
        set_anchors(2);
        break;
    case Light::kManyAnchors:
        set_anchors(15);
        break;
    case Light::kNoRecord4000:
        record = reference::default_record(0, 4000);
        break;
    default:
        break;
    }
    return record;
}

bool sends_record(Light light) {
    return light >= Light::kGradedForThisDisplay && light < Light::kNoRecord1000;
}

} // namespace

Stage::Stage(const Conversion& conversion, Size size, PlaneSource source, const Stage* shared)
    : conversion_(conversion), size_(size), in_(source, P010_LINEAR, size.width, size.height),
      out_(source, conversion.output, size.width, size.height),
      instance_(shared ? shared->instance_ : std::make_shared<Instance>(size, conversion.mode, conversion.pool)),
      frame_(0, 0) {}

std::string Stage::trouble() const {
    if (!in_.valid() || !out_.valid()) return "no memory for the planes";
    if (!instance_->ready()) return format("init returned %d", instance_->result());
    return "";
}

int Stage::convert(uint32_t seed, int interval) {
    frame_ = reference::test_frame(size_.width, size_.height, seed);
    in_.first.write(frame_.luma.data(), frame_.luma.size() * 2);
    in_.second.write(frame_.chroma.data(), frame_.chroma.size() * 2);
    out_.fill(kUntouched);
    return convert_again(interval);
}

int Stage::convert_again(int interval) {
    _HDR2SDR_config_params_t in = in_.params();
    _HDR2SDR_config_params_t out = out_.params();
    HDR10PLUS_DYNAMIC_INFO record = make_record(conversion_.light);
    HDR10PLUS_DYNAMIC_INFO* const sent = sends_record(conversion_.light) ? &record : nullptr;
    const unsigned nits = nits_of(conversion_.light);
    if (!conversion_.pool) return CL_HDR2SDR_ARM_convert(&in, &out, sent, nits, instance_->handle());
    const uint32_t static_info[] = {nits * 10000, 50, nits * 10000};
    return CL_HDR2SDR_ARM_convert1(&in, &out, sent, static_info, instance_->handle(), interval);
}

reference::Comparison Stage::compare(bool converted) const {
    reference::Comparison comparison;
    const auto expect_all = [&](const auto& samples, const auto& before, const char* component) {
        for (size_t i = 0; i < samples.size(); ++i)
            comparison.expect(reference::Span::exactly(before(i)), samples[i], component,
                              static_cast<int>(i) % size_.width, static_cast<int>(i) / size_.width);
    };
    const auto was_in = [](const std::vector<uint16_t>& plane) { return [&](size_t i) { return plane[i]; }; };
    const auto was_filled = [](size_t) { return kUntouched; };
    if (!converted || !in_place()) {
        expect_all(in_.first.read<uint16_t>(), was_in(frame_.luma), "input Y");
        expect_all(in_.second.read<uint16_t>(), was_in(frame_.chroma), "input chroma");
    }
    const bool unwritten =
        in_place() || (conversion_.mode == NORMAL && !conversion_.pool && out_.format == P010_LINEAR);
    if (!converted || unwritten) {
        expect_all(out_.first.read<uint8_t>(), was_filled, "byte of an output plane that stays");
        expect_all(out_.second.read<uint8_t>(), was_filled, "byte of an output plane that stays");
    }
    if (!converted) return comparison;

    constexpr uint16_t kUntouchedWord = kUntouched << 8 | kUntouched;
    if (conversion_.mode == HI_JACK) {
        const Planes& planes = in_place() ? in_ : out_;
        reference::P010 before = frame_;
        if (!in_place()) {
            std::fill(before.luma.begin(), before.luma.end(), kUntouchedWord);
            std::fill(before.chroma.begin(), before.chroma.end(), kUntouchedWord);
        }
        comparison.add(reference::compare_static(reference::table_for(nits_of(conversion_.light)), frame_, before,
                                                 planes.first.read<uint16_t>().data(),
                                                 planes.second.read<uint16_t>().data()));
        return comparison;
    }
    if (unwritten) return comparison;
    const reference::ToneMap map =
        reference::tone_map_of(reference::curve_for(make_record(conversion_.light), kDisplay));
    if (out_.format == RGBA) {
        comparison.add(reference::compare_rgba(frame_, map, out_.first.read<uint8_t>().data()));
    } else if (out_.format == NV12) {
        comparison.add(reference::compare_yuv<uint8_t>(reference::kToNv12, frame_, map,
                                                       out_.first.read<uint8_t>().data(),
                                                       out_.second.read<uint8_t>().data(), kUntouched));
    } else {
        comparison.add(reference::compare_yuv<uint16_t>(reference::kToP010, frame_, map,
                                                        out_.first.read<uint16_t>().data(),
                                                        out_.second.read<uint16_t>().data(), kUntouchedWord));
    }
    return comparison;
}

reference::Comparison Stage::compare_rgba_of(const reference::P010& frame) const {
    const reference::ToneMap map =
        reference::tone_map_of(reference::curve_for(make_record(conversion_.light), kDisplay));
    return reference::compare_rgba(frame, map, out_.first.read<uint8_t>().data());
}

} // namespace lumivert::check
