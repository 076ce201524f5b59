/// Raw frames: no header, tightly packed rows, plane after plane.
#pragma once

#include <string>

#include <android-base/unique_fd.h>

#include "media/ffmpeg.h"

namespace lumivert::tool {

/// What must be known about raw frames, because the file does not say it.
struct RawLayout {
    int width, height;
    AVPixelFormat format;
};

class RawReader {
public:
    /// `path` may be "-" for standard input. Throws if a file is empty or is not a whole number of frames.
    RawReader(const std::string& path, const RawLayout& layout);

    const std::string& path() const { return path_; }
    const RawLayout& layout() const { return layout_; }
    /// How many there are; 0 if that is not known.
    int64_t frames() const { return frames_; }

    /// Reads the next frame into planes whose rows are `pitches` bytes apart. False at the end. Throws if the data ends
    /// inside a frame.
    bool read(uint8_t* const* planes, const int* pitches);

private:
    bool read_plane(int plane, uint8_t* data, int pitch);
    bool read_fully(uint8_t* data, size_t size);
    [[noreturn]] void refuse(int64_t bytes) const;

    std::string path_;
    RawLayout layout_;
    android::base::unique_fd file_;
    int fd_; ///< of the file, or standard input
    int64_t frame_bytes_, frames_ = 0, bytes_ = 0;
};

} // namespace lumivert::tool
