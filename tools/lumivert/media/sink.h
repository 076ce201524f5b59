/// Where converted frames go, chosen by the output's extension.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "frames/picture.h"
#include "media/clip_reader.h"

namespace lumivert::tool {

/// What the samples mean, for the tags of a video file. Chosen in conversion/plan.cpp. Y'CbCr is always limited range.
struct ColourTags {
    AVColorPrimaries primaries;
    AVColorTransferCharacteristic transfer;
    AVColorSpace matrix;
};

/// What a writer needs to know before the first frame.
struct OutputSpec {
    std::string path; ///< "-" for standard output
    _Image_ColorFormat format;
    ColourTags colour;
    int width, height;
    ClipInfo clip;             ///< its times, aspect, rotation and other tracks are kept
    bool cut = false;          ///< a part of the clip: its first frame becomes time 0
    double seconds = 0;        ///< how long that part is at most; 0: to the end
    std::string codec, preset; ///< video files: empty for the default
    int quality = 16;          ///< video files: constant rate factor
};

class FrameSink {
public:
    virtual ~FrameSink() = default;
    virtual void write(const Picture& picture) = 0;
    /// Completes the output and gives it its name. Without this call no output is left.
    virtual void finish() = 0;
    /// Tracks of the clip that the output cannot hold, for a line to the user; empty: none.
    virtual std::string left_out() const { return ""; }
};

struct WriterInfo {
    const char* name;                        ///< also the extension
    std::vector<_Image_ColorFormat> formats; ///< that it takes, the preferred one first
    bool streams;                            ///< can write to a pipe
    bool video_file;                         ///< can hold sound and other tracks
    std::unique_ptr<FrameSink> (*open)(const OutputSpec& spec);
    const char* about;
};

const std::vector<WriterInfo>& writers();

/// The writer for a path's extension, in capitals or not; null if there is none.
const WriterInfo* writer_for(const std::string& path);

/// The writer of that name or, if the name is empty, of the path's extension. Throws if there is none.
const WriterInfo& find_writer(const std::string& name, const std::string& path);

std::unique_ptr<FrameSink> open_packed(const OutputSpec& spec);
std::unique_ptr<FrameSink> open_y4m(const OutputSpec& spec);
std::unique_ptr<FrameSink> open_png_sequence(const OutputSpec& spec);
std::unique_ptr<FrameSink> open_mp4(const OutputSpec& spec);
std::unique_ptr<FrameSink> open_mov(const OutputSpec& spec);
std::unique_ptr<FrameSink> open_mkv(const OutputSpec& spec);

} // namespace lumivert::tool
