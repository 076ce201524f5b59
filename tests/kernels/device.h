/// The device program on whatever OpenCL device there is, and planes that notice writes outside their bounds.
#pragma once

#include <CL/cl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace lumivert::test {

/// Samples between two guard zones, aligned as the converter aligns its buffers.
template <class T>
class Plane {
public:
    explicit Plane(size_t count, T fill = {})
        : bytes_((count * sizeof(T) + kAlignment - 1) / kAlignment * kAlignment), count_(count),
          memory_(static_cast<uint8_t*>(std::aligned_alloc(kAlignment, bytes_ + 2 * kGuard)), &std::free) {
        std::memset(memory_.get(), kGuardByte, bytes_ + 2 * kGuard);
        for (T& sample : *this)
            sample = fill;
    }
    Plane(size_t count, const std::vector<T>& samples) : Plane(count) {
        std::copy(samples.begin(), samples.end(), begin());
    }

    T* begin() { return reinterpret_cast<T*>(memory_.get() + kGuard); }
    T* end() { return begin() + count_; }
    size_t size() const { return count_; }
    T& operator[](size_t i) { return begin()[i]; }
    std::vector<T> copy() { return {begin(), end()}; }

    bool guards_intact() {
        const auto untouched = [](const uint8_t* from, const uint8_t* to) {
            return std::all_of(from, to, [](uint8_t byte) { return byte == kGuardByte; });
        };
        const uint8_t* const first = reinterpret_cast<uint8_t*>(begin());
        const uint8_t* const last = reinterpret_cast<uint8_t*>(end());
        return untouched(memory_.get(), first) && untouched(last, memory_.get() + bytes_ + 2 * kGuard);
    }

private:
    static constexpr size_t kAlignment = 128, kGuard = 16384;
    static constexpr uint8_t kGuardByte = 0xa5;
    size_t bytes_, count_;
    std::unique_ptr<uint8_t, decltype(&std::free)> memory_;
};

class Device {
public:
    /// Builds the program, followed by `more` source; fails the test with the build log if it does not build.
    explicit Device(const char* options = "-cl-fast-relaxed-math", const char* more = "");
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    /// Runs a kernel over planes and scalars in parameter order and waits for it.
    template <class... Arguments>
    void run(const char* name, std::array<size_t, 2> global_size, Arguments&&... arguments) {
        int error = 0;
        const cl_kernel kernel = clCreateKernel(program_, name, &error);
        ASSERT_EQ(error, 0) << name;
        std::vector<std::pair<cl_mem, size_t>> buffers;
        cl_uint index = 0;
        (set(kernel, index++, arguments, buffers), ...);
        EXPECT_EQ(clEnqueueNDRangeKernel(queue_, kernel, 2, nullptr, global_size.data(), nullptr, 0, nullptr, nullptr),
                  0);
        for (const auto& [buffer, size] : buffers)
            fetch_and_release(buffer, size);
        clReleaseKernel(kernel);
        (expect_guards(name, arguments), ...);
    }

private:
    template <class T>
    void set(cl_kernel kernel, cl_uint index, Plane<T>& plane, std::vector<std::pair<cl_mem, size_t>>& buffers) {
        const size_t size = plane.size() * sizeof(T);
        const cl_mem buffer =
            clCreateBuffer(context_, CL_MEM_READ_WRITE | CL_MEM_USE_HOST_PTR, size, plane.begin(), nullptr);
        buffers.emplace_back(buffer, size);
        EXPECT_EQ(clSetKernelArg(kernel, index, sizeof(cl_mem), &buffer), 0) << "argument " << index;
    }
    template <class T>
    void set(cl_kernel kernel, cl_uint index, const T& scalar, std::vector<std::pair<cl_mem, size_t>>&) {
        EXPECT_EQ(clSetKernelArg(kernel, index, sizeof scalar, &scalar), 0) << "argument " << index;
    }
    template <class T>
    static void expect_guards(const char* kernel, Plane<T>& plane) {
        EXPECT_TRUE(plane.guards_intact()) << kernel << " wrote outside a plane";
    }
    template <class T>
    static void expect_guards(const char*, const T&) {}
    void fetch_and_release(cl_mem buffer, size_t size);

    cl_context context_ = nullptr;
    cl_command_queue queue_ = nullptr;
    cl_program program_ = nullptr;
};

} // namespace lumivert::test
