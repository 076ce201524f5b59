/// Owns one of FFmpeg's muxers.
#pragma once

#include "media/ffmpeg.h"

namespace lumivert::tool {

/// Closes the output as well.
struct FreeMuxer {
    void operator()(AVFormatContext* muxer) const {
        if (muxer->pb != nullptr) avio_closep(&muxer->pb);
        avformat_free_context(muxer);
    }
};

using MuxerPtr = std::unique_ptr<AVFormatContext, FreeMuxer>;

} // namespace lumivert::tool
