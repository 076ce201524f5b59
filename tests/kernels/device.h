/// The device program on whatever OpenCL device there is, and planes that notice writes outside their bounds.
#pragma once

#include <algorithm>
#include <array>
#include <functional>
#include <string>
#include <vector>

#include <CL/cl.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kernels/program_text.h"

namespace lumivert::test {

/// Samples between two guard zones.
template <typename T>
class Plane {
public:
    explicit Plane(const std::vector<T>& samples) : memory_(samples.size() + 2 * kGuard, kUntouched) {
        std::copy(samples.begin(), samples.end(), begin());
    }
    explicit Plane(size_t count, T fill = {}) : Plane(std::vector<T>(count, fill)) {}

    T* begin() { return memory_.data() + kGuard; }
    size_t size() const { return memory_.size() - 2 * kGuard; }
    std::vector<T> copy() { return {begin(), begin() + size()}; }

    bool guards_intact() const {
        const auto untouched = [](T sample) { return sample == kUntouched; };
        return std::all_of(memory_.begin(), memory_.begin() + kGuard, untouched) &&
               std::all_of(memory_.end() - kGuard, memory_.end(), untouched);
    }

private:
    static constexpr int kGuard = 16384;
    static constexpr T kUntouched = 0xa5;
    std::vector<T> memory_;
};

class Device {
public:
    /// Builds the program, followed by `more` source; fails the test with the build log if it does not build.
    explicit Device(const char* options = "-cl-fast-relaxed-math", const char* more = "") {
        cl_platform_id platform = nullptr;
        cl_device_id device = nullptr;
        EXPECT_EQ(clGetPlatformIDs(1, &platform, nullptr), 0);
        EXPECT_EQ(clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, 1, &device, nullptr), 0);
        context_ = clCreateContext(nullptr, 1, &device, nullptr, nullptr, nullptr);
        queue_ = clCreateCommandQueue(context_, device, 0, nullptr);

        std::vector<const char*> pieces(kProgramPieces, kProgramPieces + kProgramPieceCount);
        pieces.push_back(more);
        program_ = clCreateProgramWithSource(context_, kProgramPieceCount + 1, pieces.data(), nullptr, nullptr);
        const int error = clBuildProgram(program_, 0, nullptr, options, nullptr, nullptr);
        std::string log(16384, '\0');
        clGetProgramBuildInfo(program_, device, CL_PROGRAM_BUILD_LOG, log.size(), log.data(), nullptr);
        EXPECT_EQ(error, 0) << log.c_str();
    }
    ~Device() {
        clReleaseProgram(program_);
        clReleaseCommandQueue(queue_);
        clReleaseContext(context_);
        // PoCL looks for libraries that may be missing. The C library keeps the message for the thread, where
        // LeakSanitizer is told not to look, until it has been asked for twice.
        dlerror();
        dlerror();
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    /// Runs a kernel over planes and scalars in parameter order and waits for it.
    template <typename... Arguments>
    void run(const char* name, std::array<size_t, 2> global_size, Arguments&&... arguments) {
        int error = 0;
        const cl_kernel kernel = clCreateKernel(program_, name, &error);
        ASSERT_EQ(error, 0) << name;
        std::vector<Bound> planes;
        cl_uint index = 0;
        (set(kernel, index++, arguments, planes), ...);
        EXPECT_EQ(clEnqueueNDRangeKernel(queue_, kernel, 2, nullptr, global_size.data(), nullptr, 0, nullptr, nullptr),
                  0);
        for (const auto& [buffer, size, guards_intact] : planes) {
            void* const mapped =
                clEnqueueMapBuffer(queue_, buffer, CL_TRUE, CL_MAP_READ, 0, size, 0, nullptr, nullptr, nullptr);
            clEnqueueUnmapMemObject(queue_, buffer, mapped, 0, nullptr, nullptr);
            clFinish(queue_);
            clReleaseMemObject(buffer);
            EXPECT_TRUE(guards_intact()) << name << " wrote outside a plane";
        }
        clReleaseKernel(kernel);
    }

private:
    struct Bound {
        cl_mem buffer;
        size_t size;
        std::function<bool()> guards_intact;
    };

    template <typename T>
    void set(cl_kernel kernel, cl_uint index, Plane<T>& plane, std::vector<Bound>& planes) {
        const size_t size = plane.size() * sizeof(T);
        const cl_mem buffer =
            clCreateBuffer(context_, CL_MEM_READ_WRITE | CL_MEM_USE_HOST_PTR, size, plane.begin(), nullptr);
        planes.push_back({buffer, size, [&plane] { return plane.guards_intact(); }});
        EXPECT_EQ(clSetKernelArg(kernel, index, sizeof(cl_mem), &buffer), 0) << "argument " << index;
    }
    template <typename T>
    void set(cl_kernel kernel, cl_uint index, const T& scalar, std::vector<Bound>&) {
        EXPECT_EQ(clSetKernelArg(kernel, index, sizeof scalar, &scalar), 0) << "argument " << index;
    }

    cl_context context_ = nullptr;
    cl_command_queue queue_ = nullptr;
    cl_program program_ = nullptr;
};

} // namespace lumivert::test
