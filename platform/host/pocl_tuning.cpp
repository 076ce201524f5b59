#include "pocl_tuning.h"

#include "driver.h"

namespace lumivert::platform {
namespace {

bool is_cpu(cl_device_id device) {
    cl_device_type type = 0;
    DRIVER(clGetDeviceInfo)(device, CL_DEVICE_TYPE, sizeof(type), &type, nullptr);
    return type & CL_DEVICE_TYPE_CPU;
}

/// powr(x, y) as exp2(y * log2(x)), which relaxed math allows, inline and branch-free: PoCL calls a function that is
/// exact to the last bit and costs ten times as much, and calls again for floor, rint and convert_int.
///
/// log2: x = 2^e * (1 + f) with 1 + f in [sqrt(1/2), sqrt(2)); minimax polynomial, 5e-8 absolute.
/// exp2: rounded part into the exponent (clamped to the floats' range), minimax polynomial on [-1/2, 1/2], 8e-8
/// relative. Together 6e-7 relative. A base of 0 (or below the normal floats) gives 0.
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
    T q = ((((0.00132764722f * r + 0.00967554133f) * r + 0.0555071327f) * r + 0.240221197f) * r + 0.693146967f) * r + \
          1.00000007f; \
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

const char* prelude(cl_context context) {
    cl_device_id device = nullptr; // contexts of several devices are left alone
    if (DRIVER(clGetContextInfo)(context, CL_CONTEXT_DEVICES, sizeof(device), &device, nullptr) != CL_SUCCESS)
        return nullptr;
    return is_cpu(device) ? relaxed_powr : nullptr;
}

} // namespace lumivert::platform
