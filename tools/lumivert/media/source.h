/// Where `convert` takes its frames from: raw P010, or a clip.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "frames/planes.h"
#include "media/clip_reader.h"

namespace lumivert::tool {

struct SourceFrame {
    int64_t number = 0, pts = 0;
    std::optional<Record> record;
};

constexpr int kFramesToLookAhead = 16; ///< in which `has_records` looks for HDR10+

class FrameSource {
public:
    virtual ~FrameSource() = default;
    virtual const ClipInfo& info() const = 0;
    /// Fills the picture part of `p010` with the next frame; false at the end.
    virtual bool read(const Planes& p010, const Geometry& geometry, SourceFrame& out) = 0;
    /// Passes over the next frame, and what other tracks hold before it; false at the end. `out` gets what is known of
    /// the frame.
    virtual bool skip(const Geometry& geometry, SourceFrame& out) = 0;
    /// When the next frame is shown, in seconds after the clip's start. At the end any later time.
    virtual double time_of_next() = 0;
    /// Whether HDR10+ shows up in the first frames.
    virtual bool has_records() { return false; }
    /// Whether the clip carries HDR10+ that its decoder drops.
    virtual bool loses_records() const { return false; }
    /// Warns about what was damaged or missing, once all is read.
    virtual void report() const {}
};

/// Frames of `width` x `height`, tightly packed, `path` "-" for standard input. A file that is not a whole number of
/// frames is refused before the first one.
std::unique_ptr<FrameSource> open_raw(const std::string& path, int width, int height, AVRational frame_rate);

/// Frames of any clip, brought to P010. `as_pq` accepts clips that are not tagged PQ or have 8 bits. `keep_others`
/// keeps the packets of other tracks for a muxer, which must take or drop them.
std::unique_ptr<FrameSource> open_clip(const std::string& path, bool as_pq, bool keep_others);

} // namespace lumivert::tool
