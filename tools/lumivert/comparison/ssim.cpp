#include "comparison/ssim.h"

#include <cstdlib>
#include <string>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/pixdesc.h>
}

#include "error.h"

namespace lumivert::tool {
namespace {

constexpr char kWhat[] = "FFmpeg's ssim filter";

} // namespace

Ssim::Ssim(int width, int height, AVPixelFormat format) : graph_(avfilter_graph_alloc()) {
    const std::string layout = "width=" + std::to_string(width) + ":height=" + std::to_string(height) +
                               ":pix_fmt=" + av_get_pix_fmt_name(format) + ":time_base=1/25:pixel_aspect=1/1";
    const auto make = [&](AVFilterContext*& made, const char* filter, const char* name, const char* arguments) {
        check(avfilter_graph_create_filter(&made, avfilter_get_by_name(filter), name, arguments, nullptr, graph_),
              kWhat);
    };
    try {
        AVFilterContext* ssim = nullptr;
        if (avfilter_get_by_name("ssim") == nullptr) throw Error("this FFmpeg has no ssim filter");
        make(inputs_[0], "buffer", "a", layout.c_str());
        make(inputs_[1], "buffer", "b", layout.c_str());
        make(ssim, "ssim", "ssim", nullptr);
        make(output_, "buffersink", "out", nullptr);
        check(avfilter_link(inputs_[0], 0, ssim, 0), kWhat);
        check(avfilter_link(inputs_[1], 0, ssim, 1), kWhat);
        check(avfilter_link(ssim, 0, output_, 0), kWhat);
        check(avfilter_graph_config(graph_, nullptr), kWhat);
    } catch (...) {
        avfilter_graph_free(&graph_);
        throw;
    }
}

Ssim::~Ssim() {
    avfilter_graph_free(&graph_);
}

void Ssim::push(AVFilterContext* input, const AVFrame* frame) const {
    FramePtr copy;
    if (frame != nullptr) {
        copy.reset(av_frame_clone(frame));
        copy->pts = frames_;
    }
    check(av_buffersrc_add_frame(input, copy.get()), kWhat);
}

void Ssim::pull() {
    const FramePtr frame(av_frame_alloc());
    while (av_buffersink_get_frame(output_, frame.get()) >= 0) {
        const AVDictionaryEntry* found = av_dict_get(frame->metadata, "lavfi.ssim.All", nullptr, 0);
        values_.push_back(found != nullptr ? std::strtod(found->value, nullptr) : 0);
        av_frame_unref(frame.get());
    }
}

void Ssim::add(const AVFrame& a, const AVFrame& b) {
    push(inputs_[0], &a);
    push(inputs_[1], &b);
    ++frames_;
    pull();
}

const std::vector<double>& Ssim::finish() {
    push(inputs_[0], nullptr);
    push(inputs_[1], nullptr);
    pull();
    return values_;
}

} // namespace lumivert::tool
