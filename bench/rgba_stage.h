/// The converter's second stage on its own: RGBA to NV12 or P010, by the program that a converter has compiled.
#pragma once

#include <string>
#include <vector>

#include <CL/opencl.hpp>

#include "frames/picture.h"

namespace lumivert::tool {

class RgbaStage {
public:
    /// `program` is the file of a converter of mode HDR10+, made for the same device.
    RgbaStage(const Geometry& geometry, _Image_ColorFormat format, const std::string& program);

    /// Converts one frame of whatever the buffer holds, and waits for it.
    void run();

private:
    const cl::NDRange blocks_;
    cl::CommandQueue queue_;
    std::vector<cl::Buffer> buffers_; ///< RGBA, luma, chroma
    cl::Kernel kernel_;
};

} // namespace lumivert::tool
