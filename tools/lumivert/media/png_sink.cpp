#include "error.h"
#include "io/png.h"
#include "media/orientation.h"
#include "media/pixel_converter.h"
#include "media/sink.h"

namespace lumivert::tool {
namespace {

/// A file name with the frame number in place of "%d" or "%0Nd".
class NamePattern {
public:
    explicit NamePattern(const std::string& path) : before_(path) {
        const auto percent = path.find('%');
        if (percent == std::string::npos) return;
        const auto end = path.find_first_not_of("0123456789", percent + 1);
        const std::string digits = path.substr(percent + 1, end - percent - 1);
        const bool good = end != std::string::npos && path[end] == 'd' && digits.size() <= 2 &&
                          (digits.empty() || digits[0] == '0') && path.find('%', end) == std::string::npos;
        if (!good) throw Error(path + ": a frame number is written as %d or, with zeros, as %04d, once");
        numbered_ = true;
        before_ = path.substr(0, percent);
        after_ = path.substr(end + 1);
        digits_ = digits.empty() ? 0 : std::stoi(digits);
    }

    bool numbered() const { return numbered_; }
    std::string name(int64_t number) const {
        if (!numbered_) return before_;
        std::string text = std::to_string(number);
        if (text.size() < digits_) text.insert(0, digits_ - text.size(), '0');
        return before_ + text + after_;
    }

private:
    std::string before_, after_;
    bool numbered_ = false;
    size_t digits_ = 0;
};

class PngSink : public FrameSink {
public:
    explicit PngSink(const OutputSpec& spec)
        : pattern_(spec.path), rgb_(spec.format, spec.width, spec.height, AV_PIX_FMT_RGB24, spec.colour.matrix),
          orientation_(spec.clip.display_matrix) {}

    void write(const Picture& picture) override {
        if (single_)
            throw Error(pattern_.name(0) + ": holds one frame; number the files, as in out-%04d.png, or pick a frame "
                                           "with --frames");
        const AVFrame& frame = rgb_.convert(picture);
        FramePtr upright = orientation_.upright() ? FramePtr(av_frame_clone(&frame)) : orientation_.turn(frame);
        if (!upright) check(AVERROR(ENOMEM), "frame memory");
        if (pattern_.numbered())
            save(pattern_.name(picture.number), *upright);
        else
            single_ = std::move(upright);
    }
    void finish() override {
        if (single_) save(pattern_.name(0), *single_);
    }

private:
    void save(const std::string& path, const AVFrame& frame) const {
        write_png(path, frame.data[0], frame.width, frame.height, frame.linesize[0]);
    }

    NamePattern pattern_;
    PixelConverter rgb_;
    const Orientation orientation_;
    FramePtr single_; ///< the picture for a name without a number: written when no second one came
};

} // namespace

std::unique_ptr<FrameSink> open_png_sequence(const OutputSpec& spec) {
    return std::make_unique<PngSink>(spec);
}

} // namespace lumivert::tool
