#include "rgba_stage.h"

#include <fstream>
#include <iterator>
#include <vector>

namespace lumivert::tool {

RgbaStage::RgbaStage(const Geometry& geometry, _Image_ColorFormat format, const std::string& program)
    : blocks_(static_cast<size_t>(geometry.pitch) / 4, static_cast<size_t>(geometry.height) / 2) {
    std::vector<cl::Device> devices;
    cl::Platform::getDefault().getDevices(CL_DEVICE_TYPE_GPU, &devices); // as the converter asks
    const cl::Device device = devices.front();
    const cl::Context context(device);
    queue_ = cl::CommandQueue(context, device);
    std::ifstream file(program, std::ios::binary);
    const std::vector<unsigned char> binary{std::istreambuf_iterator<char>(file), {}};
    const cl::Program built(context, {device}, {binary});
    built.build();
    kernel_ = cl::Kernel(built, format == NV12 ? "rgba8888_to_nv12" : "rgba8888_to_p010");

    const size_t pixels = static_cast<size_t>(geometry.pitch) * geometry.height;
    const size_t luma = pixels * info_of(format).row_bytes;
    cl_uint index = 0;
    for (const size_t size : {pixels * 4, luma, luma / 2}) {
        std::vector<uint8_t> grey(size, 0x80); // touches all the memory before anything is timed
        buffers_.emplace_back(context, grey.begin(), grey.end(), false);
        kernel_.setArg(index++, buffers_.back());
    }
    kernel_.setArg(index, cl_int{geometry.pitch});
}

void RgbaStage::run() {
    queue_.enqueueNDRangeKernel(kernel_, cl::NullRange, blocks_);
    queue_.finish();
}

} // namespace lumivert::tool
