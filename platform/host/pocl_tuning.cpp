#include "pocl_tuning.h"

#include <iterator>
#include <mutex>

#include "driver.h"

namespace lumivert::platform {
namespace {

/// powr(x, y) as exp2(y * log2(x)), which relaxed math allows, inline and branch-free. PoCL calls a function for every
/// powr, exact to the last bit, and one for every floor, rint and convert_int: none of them vectorises. Vectors are
/// taken apart, as a vector in the loop over work-items would keep it from being widened.
///
/// log2: x = 2^e * (1 + f) with 1 + f in [sqrt(1/2), sqrt(2)); minimax polynomial, 5e-8 absolute.
/// exp2: the rounded part goes to the exponent (clamped to the range of floats), the rest r to a minimax polynomial on
/// [-1/2, 1/2], 2e-9 relative. r is taken from e and f apart: their sum has no bits left for it. Together 5e-7 relative
/// and, for results near 1, the nearest float but for a few: the PQ curve magnifies errors there a hundred times.
/// A base of 0 (or below the normal floats) gives 0.
constexpr char kRelaxedPowr[] = R"CLC(
static inline float __attribute__((overloadable, always_inline)) relaxed_powr(float x, float y) {
    int e = (as_int(x) - 0x3f3504f3) >> 23;
    float f = as_float(as_int(x) - (e << 23)) - 1.0f;
    float p = ((((((-0.14599060f * f + 0.23674604f) * f - 0.24992366f) * f + 0.28672734f) * f - 0.36010383f) * f +
                0.48093847f) * f - 0.72135665f) * f + 1.44269479f;
    float yp = y * f * p;
    float t = min(max(y * (float)e + yp, -127.0f), 128.0f);
    int n = (int)(t + 127.5f);
    float r = (y * (float)e - (float)(n - 127)) + yp;
    float q = (((((0.000153458122f * r + 0.00133999312f) * r + 0.00961848895f) * r + 0.0555032878f) * r +
                0.240226469f) * r + 0.693147206f) * r + 1.0f;
    return x >= 0x1p-126f ? q * as_float(n << 23) : 0.0f;
}
static inline float3 __attribute__((overloadable, always_inline)) relaxed_powr(float3 x, float3 y) {
    return (float3)(relaxed_powr(x.x, y.x), relaxed_powr(x.y, y.y), relaxed_powr(x.z, y.z));
}
static inline float4 __attribute__((overloadable, always_inline)) relaxed_powr(float4 x, float4 y) {
    return (float4)(relaxed_powr(x.xyz, y.xyz), relaxed_powr(x.w, y.w));
}
#undef powr
#define powr relaxed_powr
#line 1
)CLC";

} // namespace

void tune_compiler(cl_device_id device) {
    if (!is_cpu(device)) return;
    // There are no options in OpenCL or PoCL for what follows, so the LLVM that PoCL has loaded is told directly; where
    // it cannot be found, or knows an option no more, everything runs as before.
    static std::once_flag told;
    std::call_once(told, [] {
        const char* const arguments[] = {
            "pocl",
            // SLP pairs up the r, g and b of one work-item, and then LLVM finds no loop over work-items that it could
            // widen: ten times slower in the tone-mapping kernel, twice in the static ones.
            "-vectorize-slp=false",
            // LLVM prefers 8 lanes even where the processor has 16 (AVX-512): 1.6 times slower in the tone-mapping
            // kernel. Elsewhere two or four registers at a time are as good as one.
            "-force-vector-width=16",
        };
        void* pocl = dlopen("libpocl.so.2", RTLD_NOLOAD | RTLD_NOW);
        if (!pocl) return;
        using Parse = void (*)(int, const char* const*, const char*);
        const auto parse = reinterpret_cast<Parse>(dlsym(pocl, "LLVMParseCommandLineOptions"));
        if (parse) parse(std::size(arguments), arguments, "");
        dlclose(pocl);
    });
}

const char* prelude(cl_context context) {
    cl_device_id device = nullptr; // contexts of several devices are left alone
    if (DRIVER(clGetContextInfo)(context, CL_CONTEXT_DEVICES, sizeof(cl_device_id), &device, nullptr) != CL_SUCCESS)
        return nullptr;
    return is_cpu(device) ? kRelaxedPowr : nullptr;
}

size_t row_of_work_group(cl_command_queue queue, cl_uint dimensions, const size_t* global) {
    cl_device_id device = nullptr;
    size_t largest = 1;
    DRIVER(clGetCommandQueueInfo)(queue, CL_QUEUE_DEVICE, sizeof(cl_device_id), &device, nullptr);
    DRIVER(clGetDeviceInfo)(device, CL_DEVICE_MAX_WORK_GROUP_SIZE, sizeof(largest), &largest, nullptr);
    if (dimensions != 2 || !global || !is_cpu(device)) return 0;
    // PoCL's own choice splits odd widths into a few columns, too short to vectorise: two to seven times slower. A
    // whole row, or the largest even part of one that the device takes, is as good as its choice for good widths. Where
    // only tiny parts divide the row, the choice stays PoCL's.
    constexpr size_t kWorthwhile = 64;
    for (size_t parts = (global[0] + largest - 1) / largest; parts && global[0] / parts >= kWorthwhile; ++parts)
        if (global[0] % parts == 0) return global[0] / parts;
    return 0;
}

} // namespace lumivert::platform
