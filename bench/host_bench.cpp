/// What the host does for a frame: the curve and its gain table, all work outside OpenCL calls, and imports.
#include <cstdlib>
#include <memory>

#include <CL/cl_ext.h>
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <interpose.h>
#include <platform/plane_memory.h>

#include "lumivert/converter.h"

namespace {

/// While set, the four OpenCL calls of a frame in retained planes succeed at once, so that only the host's own work is
/// timed.
bool device_does_nothing = false;

} // namespace

// The dynamic linker finds these first, because they are in the program itself.
#define STAND_IN(name, parameters, arguments)                                                                          \
    cl_int name parameters {                                                                                           \
        static const auto next = next_definition<decltype(name)>(#name);                                               \
        return device_does_nothing ? CL_SUCCESS : next arguments;                                                      \
    }
STAND_IN(clSetKernelArg, (cl_kernel kernel, cl_uint index, size_t size, const void* value),
         (kernel, index, size, value))
STAND_IN(clEnqueueNDRangeKernel,
         (cl_command_queue queue, cl_kernel kernel, cl_uint dimensions, const size_t* offset, const size_t* global,
          const size_t* local, cl_uint waits, const cl_event* wait, cl_event* event),
         (queue, kernel, dimensions, offset, global, local, waits, wait, event))
STAND_IN(clEnqueueWriteBuffer,
         (cl_command_queue queue, cl_mem memory, cl_bool blocking, size_t offset, size_t size, const void* from,
          cl_uint waits, const cl_event* wait, cl_event* event),
         (queue, memory, blocking, offset, size, from, waits, wait, event))
STAND_IN(clFinish, (cl_command_queue queue), (queue))
#undef STAND_IN

namespace {

/// Metadata of an ordinary scene, with a curve of nine anchors or without one.
HDR10PLUS_DYNAMIC_INFO scene(bool with_curve) {
    HDR10PLUS_DYNAMIC_INFO info = {};
    info.display_max_luminance = 400;
    info.avg_maxrgb = 1000;
    info.num_maxrgb_percentiles = 9;
    constexpr uint8_t kPercentages[] = {1, 5, 10, 25, 50, 75, 90, 95, 99};
    for (int i = 0; i < 9; ++i) {
        info.maxrgb_percentages[i] = kPercentages[i];
        info.maxrgb_percentiles[i] = 1000 * (i + 1);
    }
    for (uint32_t& peak : info.maxscl)
        peak = 9500;
    if (with_curve) {
        info.tone_mapping_flag = 1;
        info.knee_point_x = 300;
        info.knee_point_y = 900;
        info.num_bezier_curve_anchors = 9;
        for (int i = 0; i < 9; ++i)
            info.bezier_curve_anchors[i] = static_cast<uint16_t>(400 + 60 * i);
    }
    return info;
}

void curve_and_table(benchmark::State& state, bool with_curve) {
    HDR10PLUS_DYNAMIC_INFO info = scene(with_curve);
    float gains[256];
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(info);
        HDR10PLUS_TM_CURVE curve = {};
        hdr10plus_meta_to_curve(&curve, &info, 250);
        hdr10plus_curve_kchoose_preapplied(&curve);
        hdr10plus_preappliedcurve_to_lut(gains, 256, &curve);
        benchmark::DoNotOptimize(gains);
    }
}

class Plane {
public:
    explicit Plane(int32_t size)
        : size_(size), memory_(lumivert::platform::PlaneSource::kSharedMemory, static_cast<size_t>(size)) {
        if (memory_.data() == nullptr) std::abort();
    }
    _MULTIPLANE_t descriptor() const { return {memory_.descriptor(), 0, size_}; }

private:
    int32_t size_;
    lumivert::platform::PlaneMemory memory_;
};

void retained_frame(benchmark::State& state, _ALGO_t mode) {
    constexpr int32_t kWidth = 1920, kHeight = 1080;
    const Plane in_luma(kWidth * kHeight * 2), in_chroma(kWidth * kHeight), luma(kWidth * kHeight),
        chroma(kWidth * kHeight / 2);
    _HDR2SDR_config_params_t in = {P010_LINEAR, {in_luma.descriptor(), in_chroma.descriptor()}};
    _HDR2SDR_config_params_t out = {mode == NORMAL ? NV12 : P010_LINEAR, {luma.descriptor(), chroma.descriptor()}};
    HDR10PLUS_DYNAMIC_INFO info = scene(true);
    void* instance = nullptr;
    if (CL_HDR2SDR_ARM_init(kWidth, kHeight, mode, &instance, 0) != 1)
        return state.SkipWithError("no OpenCL device, or no place for its program");
    const auto convert = [&] { return CL_HDR2SDR_ARM_convert(&in, &out, &info, 1000, instance); };
    convert(); // imports the planes
    device_does_nothing = true;
    while (state.KeepRunning())
        benchmark::DoNotOptimize(convert());
    device_does_nothing = false;
    CL_HDR2SDR_ARM_deinit(instance);
}

/// Imports one plane and releases it, as a block-pool frame does with each of its four. `recurring` is the usual case:
/// a codec's pool reuses the same few buffers.
void import(benchmark::State& state, bool recurring) {
    cl_platform_id platform = nullptr;
    cl_device_id device = nullptr;
    clGetPlatformIDs(1, &platform, nullptr);
    clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, nullptr);
    const cl_context context = clCreateContext(nullptr, 1, &device, nullptr, nullptr, nullptr);
    const auto size = static_cast<int32_t>(state.range(0));
    const cl_import_properties_arm properties[] = {CL_IMPORT_TYPE_ARM, CL_IMPORT_TYPE_DMA_BUF_ARM, 0};
    auto plane = std::make_unique<Plane>(size);
    while (state.KeepRunning()) {
        if (!recurring) {
            state.PauseTiming();
            plane = std::make_unique<Plane>(size);
            state.ResumeTiming();
        }
        int fd = plane->descriptor().handle;
        const cl_mem memory =
            clImportMemoryARM(context, CL_MEM_READ_WRITE, properties, &fd, static_cast<size_t>(size), nullptr);
        if (memory == nullptr) return state.SkipWithError("an import failed");
        clReleaseMemObject(memory);
    }
    clReleaseContext(context);
}

} // namespace

BENCHMARK_CAPTURE(curve_and_table, from_metadata, true);
BENCHMARK_CAPTURE(curve_and_table, generated, false);
BENCHMARK_CAPTURE(retained_frame, static, HI_JACK);
BENCHMARK_CAPTURE(retained_frame, hdr10plus_nv12, NORMAL);
BENCHMARK_CAPTURE(import, recurring, true)->Arg(int64_t{3840} * 2160 * 2);
BENCHMARK_CAPTURE(import, first, false)->Arg(int64_t{3840} * 2160 * 2);

int main(int argc, char** argv) {
    __android_log_set_minimum_priority(ANDROID_LOG_FATAL); // hides the lines of init and deinit
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
}
