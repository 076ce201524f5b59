#include "pocl_tuning.h"

#include "driver.h"

namespace lumivert::platform {
namespace {

bool is_cpu(cl_device_id device) {
    cl_device_type type = 0;
    DRIVER(clGetDeviceInfo)(device, CL_DEVICE_TYPE, sizeof(type), &type, nullptr);
    return type & CL_DEVICE_TYPE_CPU;
}

/// powr(x, y) as exp2(y * log2(x)), which relaxed math allows, inline and branch-free. PoCL calls a function for every
/// powr, exact to the last bit, and one for every floor, rint and convert_int: none of them vectorises.
///
/// log2: x = 2^e * (1 + f) with 1 + f in [sqrt(1/2), sqrt(2)); minimax polynomial, 5e-8 absolute.
/// exp2: the rounded part goes to the exponent (clamped to the range of floats), the rest r to a minimax polynomial on
/// [-1/2, 1/2], 2e-9 relative. r is taken from e and f apart: their sum has no bits left for it. Together 5e-7 relative
/// and, for results near 1, the nearest float but for a few: the PQ curve magnifies errors there a hundred times.
/// A base of 0 (or below the normal floats) gives 0.
constexpr char relaxed_powr[] = R"CLC(
#define RELAXED_POWR(T, I, AS_T, AS_I, TO_T, TO_I) \
static inline T __attribute__((overloadable, always_inline)) relaxed_powr(T x, T y) { \
    I e = (AS_I(x) - 0x3f3504f3) >> 23; \
    T f = AS_T(AS_I(x) - (e << 23)) - 1.0f; \
    T p = ((((((-0.14599060f * f + 0.23674604f) * f - 0.24992366f) * f + 0.28672734f) * f - 0.36010383f) * f + \
            0.48093847f) * f - 0.72135665f) * f + 1.44269479f; \
    T yp = y * f * p; \
    T t = min(max(y * TO_T(e) + yp, -127.0f), 128.0f); \
    I n = TO_I(t + 127.5f); \
    T r = (y * TO_T(e) - TO_T(n - 127)) + yp; \
    T q = (((((0.000153458122f * r + 0.00133999312f) * r + 0.00961848895f) * r + 0.0555032878f) * r + 0.240226469f) * r + \
           0.693147206f) * r + 1.0f; \
    return x >= 0x1p-126f ? q * AS_T(n << 23) : (T)(0.0f); \
}
#define TO_FLOAT(x) ((float)(x))
#define TO_INT(x) ((int)(x))
#define TO_FLOAT3(x) __builtin_convertvector(x, float3)
#define TO_INT3(x) __builtin_convertvector(x, int3)
#define TO_FLOAT4(x) __builtin_convertvector(x, float4)
#define TO_INT4(x) __builtin_convertvector(x, int4)
RELAXED_POWR(float, int, as_float, as_int, TO_FLOAT, TO_INT)
RELAXED_POWR(float3, int3, as_float3, as_int3, TO_FLOAT3, TO_INT3)
RELAXED_POWR(float4, int4, as_float4, as_int4, TO_FLOAT4, TO_INT4)
#undef powr
#define powr relaxed_powr
#line 1
)CLC";

} // namespace

void tune_compiler(cl_device_id device) {
    if (!is_cpu(device)) return;
    // LLVM's SLP vectoriser pairs up the r, g and b of one work-item, after which its loop vectoriser finds no loop
    // over work-items that it could widen. Without SLP the tone-mapping kernel runs six times as fast and the static
    // ones twice. There is no option for it in OpenCL or PoCL, so the LLVM that PoCL has loaded is told directly;
    // where it cannot be found, or knows the option no more, everything runs as before.
    static const bool once = [] {
        void* pocl = dlopen("libpocl.so.2", RTLD_NOLOAD | RTLD_NOW);
        if (!pocl) return false;
        using Parse = void (*)(int, const char* const*, const char*);
        const auto parse = reinterpret_cast<Parse>(dlsym(pocl, "LLVMParseCommandLineOptions"));
        const char* const arguments[] = {"pocl", "-vectorize-slp=false"};
        if (parse) parse(2, arguments, "");
        dlclose(pocl);
        return true;
    }();
    (void)once;
}

const char* prelude(cl_context context) {
    cl_device_id device = nullptr; // contexts of several devices are left alone
    if (DRIVER(clGetContextInfo)(context, CL_CONTEXT_DEVICES, sizeof(device), &device, nullptr) != CL_SUCCESS)
        return nullptr;
    return is_cpu(device) ? relaxed_powr : nullptr;
}

size_t row_of_work_group(cl_command_queue queue, cl_uint dimensions, const size_t* global) {
    cl_device_id device = nullptr;
    size_t largest = 1;
    DRIVER(clGetCommandQueueInfo)(queue, CL_QUEUE_DEVICE, sizeof(device), &device, nullptr);
    DRIVER(clGetDeviceInfo)(device, CL_DEVICE_MAX_WORK_GROUP_SIZE, sizeof(largest), &largest, nullptr);
    if (dimensions != 2 || !global || !is_cpu(device)) return 0;
    // PoCL's own choice splits odd widths into a few columns, too short to vectorise: two to seven times slower. A
    // whole row, or the largest even part of one that the device takes, is as good as its choice for good widths. Where
    // only tiny parts divide the row, the choice stays PoCL's.
    constexpr size_t worthwhile = 64;
    for (size_t parts = (global[0] + largest - 1) / largest; parts && global[0] / parts >= worthwhile; ++parts)
        if (global[0] % parts == 0) return global[0] / parts;
    return 0;
}

} // namespace lumivert::platform
