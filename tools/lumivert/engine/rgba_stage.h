/// The converter's second stage on its own: RGBA to NV12 or P010, by the program that a converter has left in its
/// cache.
#pragma once

#include <CL/cl.h>

#include "frames/picture.h"

namespace lumivert::tool {

class RgbaStage {
public:
    /// A converter of mode HDR10+ must have been made before in this process: its program is what runs.
    RgbaStage(const Geometry& geometry, _Image_ColorFormat format);
    ~RgbaStage();
    RgbaStage(const RgbaStage&) = delete;
    RgbaStage& operator=(const RgbaStage&) = delete;

    /// Converts one frame of whatever the buffer holds, and waits for it.
    void run();

private:
    const Geometry geometry_;
    cl_context context_ = nullptr;
    cl_command_queue queue_ = nullptr;
    cl_program program_ = nullptr;
    cl_kernel kernel_ = nullptr;
    cl_mem buffers_[3] = {}; ///< RGBA, luma, chroma
};

} // namespace lumivert::tool
