#include "comparison/pairs.h"

#include <algorithm>

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "engine/pipeline.h"
#include "error.h"
#include "hdr10plus/record_track.h"
#include "media/pixel_converter.h"

namespace lumivert::tool {
namespace {

/// The planar format with the same samples, so that packed and planar files compare.
AVPixelFormat planar(AVPixelFormat format) {
    switch (format) {
    case AV_PIX_FMT_P010LE:
        return AV_PIX_FMT_YUV420P10LE;
    case AV_PIX_FMT_NV12:
    case AV_PIX_FMT_YUVJ420P:
        return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
        return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P:
        return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_RGBA:
    case AV_PIX_FMT_RGB24:
    case AV_PIX_FMT_RGB0:
    case AV_PIX_FMT_BGRA:
        return AV_PIX_FMT_GBRP;
    case AV_PIX_FMT_RGB48BE:
    case AV_PIX_FMT_RGBA64BE:
        return AV_PIX_FMT_GBRP16LE;
    default:
        return format;
    }
}

const AVPixFmtDescriptor& descriptor(AVPixelFormat format) {
    return *av_pix_fmt_desc_get(format);
}

bool is_rgb(AVPixelFormat format) {
    return (descriptor(format).flags & AV_PIX_FMT_FLAG_RGB) != 0;
}

int depth(AVPixelFormat format) {
    return descriptor(format).comp[0].depth;
}

Kind kind_of(const ClipReader& reader) {
    const ClipInfo& clip = reader.info();
    Kind kind;
    kind.name = reader.path();
    kind.format = av_get_pix_fmt(clip.pixel_format.c_str());
    kind.width = clip.width;
    kind.height = clip.height;
    kind.matrix = clip.matrix;
    kind.frames = clip.frames;
    const bool full = clip.range == AVCOL_RANGE_JPEG || clip.pixel_format.rfind("yuvj", 0) == 0;
    kind.range = full ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    if (clip.transfer == AVCOL_TRC_SMPTE2084)
        kind.encoding = Encoding::kPq;
    else if (clip.transfer != AVCOL_TRC_UNSPECIFIED)
        kind.encoding = Encoding::kSdr;
    kind.has_light = clip.transfer != AVCOL_TRC_ARIB_STD_B67;
    return kind;
}

class Files : public Pairs {
public:
    Files(const std::string& a, const std::optional<RawLayout>& raw_a, const std::string& b,
          const std::optional<RawLayout>& raw_b)
        : readers_{ClipReader(a, raw_a), ClipReader(b, raw_b)}, kinds_{kind_of(readers_[0]), kind_of(readers_[1])} {}

    const Kind& kind(int side) const override { return kinds_[side]; }
    bool next(const AVFrame*& a, const AVFrame*& b) override {
        a = next_of(0);
        b = next_of(1);
        return a != nullptr || b != nullptr;
    }
    void report() const override {
        for (const ClipReader& reader : readers_)
            reader.report();
    }

private:
    const AVFrame* next_of(int side) {
        if (ended_[side]) return nullptr;
        ended_[side] = !readers_[side].next(frames_[side]);
        return ended_[side] ? nullptr : frames_[side].frame.get();
    }

    ClipReader readers_[2];
    Kind kinds_[2];
    ClipFrame frames_[2];
    bool ended_[2] = {};
};

/// A frame that shows what lies in planes.
class Window {
public:
    Window(const Planes& planes, const Geometry& geometry) : frame_(av_frame_alloc()) {
        const int pitch = geometry.pitch * info_of(planes.format).row_bytes;
        frame_->format = av_format(planes.format);
        frame_->width = geometry.width;
        frame_->height = geometry.height;
        frame_->data[0] = planes.first.data();
        frame_->data[1] = planes.second.data();
        frame_->linesize[0] = frame_->linesize[1] = pitch;
        frame_->color_range = AVCOL_RANGE_MPEG;
    }
    const AVFrame* frame() const { return frame_.get(); }

private:
    FramePtr frame_;
};

/// One of the ways to convert.
struct Way {
    Kind kind;
    bool uses_records = true;
    std::unique_ptr<Converter> converter; ///< null for the source itself
    std::unique_ptr<Planes> planes;
    std::unique_ptr<Window> window;
};

class Modes : public Pairs {
public:
    Modes(std::unique_ptr<FrameSource> source, const std::string& a, const std::string& b, const std::string& device)
        : source_(std::move(source)), geometry_(source_->info().width, source_->info().height),
          planes_(P010_LINEAR, geometry_), window_(planes_, geometry_) {
        luminances_ = luminances_of(source_->info().static_metadata);
        if (a != "none" || b != "none") environment_.emplace(device);
        make(ways_[0], a);
        make(ways_[1], b);
    }

    const Kind& kind(int side) const override { return ways_[side].kind; }
    const AVFrame* source() const override { return window_.frame(); }
    void report() const override { source_->report(); }

    bool next(const AVFrame*& a, const AVFrame*& b) override {
        a = b = nullptr;
        SourceFrame frame;
        if (!source_->read(planes_, geometry_, frame)) return false;
        track_.advance(frame.number, frame.record);
        for (Way& way : ways_)
            if (way.converter) {
                const Record* record = way.uses_records && track_.current() ? &*track_.current() : nullptr;
                way.converter->convert(planes_, *way.planes, record, luminances_);
            }
        a = shown(ways_[0]);
        b = shown(ways_[1]);
        return true;
    }

private:
    const AVFrame* shown(const Way& way) const { return way.window ? way.window->frame() : window_.frame(); }

    void make(Way& way, const std::string& name) {
        std::string mode = name;
        if (name == "auto") mode = source_->has_records() ? "hdr10plus" : "static";
        way.kind.name = mode == name ? name : name + " (" + mode + ")";
        way.kind.width = geometry_.width;
        way.kind.height = geometry_.height;
        way.kind.frames = source_->info().frames;
        way.kind.format = AV_PIX_FMT_P010LE;
        way.kind.encoding = mode == "none" ? Encoding::kPq : Encoding::kSdr;
        way.kind.matrix = mode == "none" ? AVCOL_SPC_BT2020_NCL : AVCOL_SPC_BT709;
        if (mode == "none") return;
        way.uses_records = mode == "hdr10plus";
        const bool table = mode == "static";
        if (!table) way.kind.format = AV_PIX_FMT_NV12;
        way.planes = std::make_unique<Planes>(table ? P010_LINEAR : NV12, geometry_);
        way.window = std::make_unique<Window>(*way.planes, geometry_);
        way.converter = std::make_unique<Converter>(geometry_, table ? Mode::kStaticTable : Mode::kHdr10plus,
                                                    Entry::kPool, *environment_);
    }

    std::unique_ptr<FrameSource> source_;
    const Geometry geometry_;
    Planes planes_;
    Window window_;
    std::optional<Environment> environment_;
    Luminances luminances_;
    RecordTrack track_;
    Way ways_[2];
};

const char* colours_of(Encoding encoding) {
    return encoding == Encoding::kPq ? "PQ BT.2020" : "SDR BT.709";
}

} // namespace

std::unique_ptr<Pairs> open_files(const std::string& a, const std::optional<RawLayout>& raw_a, const std::string& b,
                                  const std::optional<RawLayout>& raw_b) {
    return std::make_unique<Files>(a, raw_a, b, raw_b);
}

std::unique_ptr<Pairs> open_modes(std::unique_ptr<FrameSource> source, const std::string& mode_a,
                                  const std::string& mode_b, const std::string& device) {
    return std::make_unique<Modes>(std::move(source), mode_a, mode_b, device);
}

Form common_form(Kind& a, Kind& b) {
    const auto settle = [](Kind& kind, const Kind& other) {
        if (kind.encoding) return;
        const bool eight_bits = depth(kind.format) <= 8 || is_rgb(kind.format);
        kind.encoding = eight_bits ? Encoding::kSdr : other.encoding.value_or(Encoding::kSdr);
    };
    settle(a, b);
    settle(b, a);
    for (Kind* kind : {&a, &b})
        if (kind->matrix == AVCOL_SPC_UNSPECIFIED)
            kind->matrix = kind->encoding == Encoding::kPq ? AVCOL_SPC_BT2020_NCL : AVCOL_SPC_BT709;

    const AVPixelFormat from_a = planar(a.format), from_b = planar(b.format);
    const bool rgb = is_rgb(from_a), same_colours = a.encoding == b.encoding && a.has_light == b.has_light;
    const std::string range = a.range == AVCOL_RANGE_JPEG ? "full range" : "limited range";
    if (from_a == from_b && (a.encoding == b.encoding) && (rgb || (a.range == b.range && a.matrix == b.matrix)))
        return {Form::kSamples, from_a, *a.encoding, a.has_light && b.has_light, descriptor(from_a).name};
    if (!a.has_light || !b.has_light)
        throw Error("HLG has no common form with other samples here: " + (a.has_light ? b.name : a.name));
    const auto &one = descriptor(from_a), &other = descriptor(from_b);
    if (same_colours && !rgb && !is_rgb(from_b) && a.matrix == b.matrix && a.range == b.range &&
        one.nb_components == other.nb_components && one.log2_chroma_w == other.log2_chroma_w &&
        one.log2_chroma_h == other.log2_chroma_h) {
        const AVPixelFormat deeper = depth(from_a) > depth(from_b) ? from_a : from_b;
        return {Form::kDeeper, deeper, *a.encoding, true,
                std::string(descriptor(deeper).name) + ", " + colours_of(*a.encoding) + ", " + range +
                    "; the side of fewer bits scaled up"};
    }
    if (same_colours)
        return {Form::kRgb, AV_PIX_FMT_GBRP10LE, *a.encoding, true,
                std::string("RGB of 10 bits, ") + colours_of(*a.encoding)};
    return {Form::kLight, AV_PIX_FMT_GBRP10LE, Encoding::kPq, true,
            "RGB of 10 bits, PQ BT.2020, with SDR as the light of a 250 cd/m2 display"};
}

Former::Former(const Kind& from, const Form& form)
    : from_(from), form_(form), scaled_to_(form.way == Form::kLight ? planar(from.format) : form.format) {
    if (scaled_to_ == from.format) return;
    const bool colours = form.way == Form::kRgb;
    const int flags = colours ? SWS_BILINEAR | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP : SWS_POINT;
    scaler_.reset(sws_getContext(from.width, from.height, from.format, from.width, from.height, scaled_to_, flags,
                                 nullptr, nullptr, nullptr));
    if (!scaler_)
        throw Error(from.name + ": FFmpeg cannot take its " + descriptor(from.format).name + " samples apart");
    const int* weights = sws_getCoefficients(static_cast<int>(from.matrix)); // numbered alike
    const int full = from.range == AVCOL_RANGE_JPEG ? 1 : 0;
    sws_setColorspaceDetails(scaler_.get(), weights, full, weights, full, 0, 1 << 16, 1 << 16);
}

FramePtr Former::scaled(const AVFrame& frame) {
    FramePtr out;
    if (!scaler_) {
        out.reset(av_frame_alloc());
        check(av_frame_ref(out.get(), &frame), from_.name);
    } else {
        out = new_frame(scaled_to_, frame.width, frame.height);
        check(sws_scale(scaler_.get(), frame.data, frame.linesize, 0, frame.height, out->data, out->linesize),
              from_.name);
    }
    out->colorspace = from_.matrix;
    out->color_range = from_.range;
    return out;
}

FramePtr Former::bring(const AVFrame& frame) {
    FramePtr planes = scaled(frame);
    if (form_.way != Form::kLight) return planes;
    FramePtr out = new_frame(form_.format, frame.width, frame.height);
    to_pq(*planes, *from_.encoding, *out);
    return out;
}

} // namespace lumivert::tool
