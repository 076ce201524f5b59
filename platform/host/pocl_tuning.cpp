#include "pocl_tuning.h"

#include <mutex>
#include <vector>

#include <dlfcn.h>

#include "driver.h"

namespace lumivert::platform {
namespace {

/// powr for the three constant exponents of the device program, as exp2(y * log2(x)), which relaxed math allows: inline
/// and without branches. PoCL calls a function for every powr, floor, rint and convert_int, and a loop with a call in
/// it is not vectorised; for the same reason vectors are taken apart. Any other exponent still gets PoCL's powr.
///
/// log2: the bits of x = 2^e * (1 + f), read as an integer, lie (e + f) * 2^23 above those of 1. What is left,
/// log2(1 + f) - f on [0, 1), is a minimax polynomial without a constant term, so that log2(1) is 0 exactly: 5 terms in
/// f to 2e-6 for 1/m2, which damps that to 2e-8; 7 terms to 3e-7 for 0.45; 8 terms to 5e-8 for 1/m1.
///
/// exp2: the argument in units of 2^-23; its integer part goes straight to the exponent, the rest to a polynomial
/// through (0, 1), so that whole powers of two are exact, 1.1e-7. With 1/m2 the result lies in [0.9, 1] and takes three
/// terms.
///
/// On [0, 1], where all bases lie, the relative error is at most (3 + y + |y log2(x)|) * 2^-23, with or without fused
/// multiply-add. 0 gives 0; with 0.45, all bases below the normal floats give about 2^-57.
constexpr char kRelaxedPowr[] = R"CLC(
static inline float __attribute__((always_inline)) powr_fraction(int bits) {
    return as_float((bits & 0x7fffff) | 0x3f800000) - 1.0f;
}
static inline float __attribute__((always_inline)) powr_linear(int bits) { return (float)(bits - 0x3f800000); }
static inline float __attribute__((always_inline)) powr_exp2(int t) {
    const float u = as_float((t & 0x7fffff) | 0x3f800000);
    const float q = (((((1.88542204e-3f * u - 4.54062130e-4f) * u + 3.87982652e-2f) * u + 0.107628040f) * u +
                      0.353890747f) * u + 0.498251587f);
    return as_float(as_int(q) + (t & ~0x7fffff));
}
static inline float __attribute__((always_inline)) powr_of_pq_code(float x) {
    const float f = powr_fraction(as_int(x)), s = 0x1p23f, y = 0.0126833135156559f / s;
    const float z = powr_linear(as_int(x)) +
                    f * (0.442553163f * s + f * (-0.718282104f * s + f * (0.458271503f * s + f * (-0.279539376f * s +
                    f * (0.123452537f * s + f * (-2.64577921e-2f * s))))));
    const float t = 1.0f + z * (0.693145335f * y + z * (0.240117297f * y * y + z * (5.36526591e-2f * y * y * y)));
    return x > 0.0f ? t : 0.0f;
}
static inline float __attribute__((always_inline)) powr_of_pq_ratio(float x) {
    const float f = powr_fraction(as_int(x)), y = 6.2773946360153259f, s = y * 0x1p23f;
    const float t = powr_linear(as_int(x)) * y +
                    f * (0.442689896f * s + f * (-0.721166134f * s + f * (0.478686303f * s + f * (-0.347311109f * s +
                    f * (0.241885737f * s + f * (-0.137545705f * s + f * (5.20737916e-2f * s +
                    f * (-9.31282528e-3f * s))))))));
    return powr_exp2((int)max(t, -127.0f * 0x1p23f));
}
static inline float __attribute__((always_inline)) powr_of_display(float x) {
    const float f = powr_fraction(as_int(x)), y = 0.45f, s = y * 0x1p23f;
    const float t = powr_linear(as_int(x)) * y +
                    f * (0.442667842f * s + f * (-0.720585644f * s + f * (0.473554283f * s + f * (-0.325904042f * s +
                    f * (0.194296837f * s + f * (-7.95592368e-2f * s + f * (1.55302668e-2f * s)))))));
    return powr_exp2((int)t);
}
static inline float __attribute__((overloadable, always_inline)) relaxed_powr(float x, float y) {
    return y == 0.0126833135156559f   ? powr_of_pq_code(x)
           : y == 6.2773946360153259f ? powr_of_pq_ratio(x)
           : y == 0.45f               ? powr_of_display(x)
                                      : powr(x, y);
}
static inline float3 __attribute__((overloadable, always_inline)) relaxed_powr(float3 x, float3 y) {
    return (float3)(relaxed_powr(x.x, y.x), relaxed_powr(x.y, y.y), relaxed_powr(x.z, y.z));
}
#undef powr
#define powr relaxed_powr
#line 1
)CLC";

/// Whether vectors can be loaded and stored in part, down to 16-bit lanes.
bool has_masks() {
#ifdef __x86_64__
    return __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
#else
    return false;
#endif
}

} // namespace

void tune_compiler(cl_device_id device) {
    if (!is_cpu(device)) return;
    // There are no options in OpenCL or PoCL for what follows, so the LLVM that PoCL has loaded is told directly; where
    // it cannot be found, or knows an option no more, everything runs as before.
    static std::once_flag told;
    std::call_once(told, [] {
        std::vector<const char*> arguments = {
            "pocl",
            // SLP pairs up the r, g and b of one work-item, and then LLVM finds no loop over work-items that it could
            // widen: twenty times slower in the tone-mapping kernel, three times in the static ones.
            "-vectorize-slp=false",
            // LLVM prefers 8 lanes even where the processor has 16 (AVX-512). Elsewhere two or four registers at a time
            // are as good as one.
            "-force-vector-width=16",
            // Vectors side by side, too: a power is a chain of 20 operations, each of which waits for the one before.
            // Four of 16 lanes halve the tone-mapping kernel's time.
            has_masks() ? "-force-vector-interleave=4" : "-force-vector-interleave=2",
        };
        // The last work-items of a row, up to 63, run under a mask instead of one by one. Without masks for 16-bit
        // samples LLVM would load and store those one by one in the whole row.
        if (has_masks()) arguments.push_back("-prefer-predicate-over-epilogue=predicate-else-scalar-epilogue");
        void* pocl = dlopen("libpocl.so.2", RTLD_NOLOAD | RTLD_NOW);
        if (!pocl) return;
        using Parse = void (*)(int, const char* const*, const char*);
        const auto parse = reinterpret_cast<Parse>(dlsym(pocl, "LLVMParseCommandLineOptions"));
        if (parse) parse(static_cast<int>(arguments.size()), arguments.data(), "");
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
