/// Two series of pictures, frame by frame, brought to one form.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "comparison/delta_e.h"
#include "engine/environment.h"
#include "media/source.h"

namespace lumivert::tool {

/// What a side's samples are.
struct Kind {
    std::string name; ///< for people: a path, or a mode
    AVPixelFormat format;
    int width, height;
    AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
    AVColorRange range = AVCOL_RANGE_MPEG;
    std::optional<Encoding> encoding; ///< none: not tagged
    bool has_light = true;            ///< false for a transfer other than PQ and those of SDR
    int64_t frames = 0;               ///< 0: unknown
};

/// Gives both sides' next frames; a side that has ended gives null.
class Pairs {
public:
    virtual ~Pairs() = default;
    virtual const Kind& kind(int side) const = 0;
    virtual bool next(const AVFrame*& a, const AVFrame*& b) = 0;
    /// The frame in PQ that both sides were made from, where there is one.
    virtual const AVFrame* source() const { return nullptr; }
    virtual void report() const = 0;
};

/// Two files: clips, pictures or, with a layout, raw frames.
std::unique_ptr<Pairs> open_files(const std::string& a, const std::optional<RawLayout>& raw_a, const std::string& b,
                                  const std::optional<RawLayout>& raw_b);

/// One clip, converted in two ways: "auto", "static", "hdr10plus", "default" (hdr10plus without the clip's records) or
/// "none" (the source).
std::unique_ptr<Pairs> open_modes(std::unique_ptr<FrameSource> source, const std::string& mode_a,
                                  const std::string& mode_b, const std::string& device);

/// The form that both sides are compared in.
struct Form {
    enum Way { kSamples, kDeeper, kRgb, kLight } way;
    AVPixelFormat format;
    Encoding encoding;
    bool has_light;
    std::string text;
};

/// Decides it, and settles what is not tagged: samples of 8 bits and RGB are SDR, others are what the other
/// side is.
Form common_form(Kind& a, Kind& b);

/// Brings a side's frames to the form, a new frame each.
class Former {
public:
    Former(const Kind& from, const Form& form);
    FramePtr bring(const AVFrame& frame);

private:
    FramePtr scaled(const AVFrame& frame);

    const Kind from_;
    const Form form_;
    AVPixelFormat scaled_to_;
    ScalerPtr scaler_; ///< null where samples stay as they are
};

} // namespace lumivert::tool
