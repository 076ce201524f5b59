// Constants and helpers of the whole program.
//
// The constants name the values of the formulas; of them the kernels use `factor` only. The rest stays, and so do the
// four-lane clamps although the kernels clamp eight lanes at a time: the head of the program is fixed on purpose. The
// address helpers count in elements of the pointer's type: `step_x` per work-item in y, `step_y` per work-item in x.

#define c1 0.8359375f
#define c2 18.8515625f
#define c3 18.6875f
#define TMx 0.3f
#define ratio0 25.0f
#define gamma22 0.4545454f
#define NN 3.0f
#define CGain 1.2605042f
#define factor 0.0039215f
#define factor_luma 0.0011415f
#define factor_chroma 0.001116f

static inline uchar4 short4_to_uchar4(short4 v)
{
    return convert_uchar4(clamp(v, (short4)(0), (short4)(255)));
}

static inline ushort4 short4_to_ushort10_4(short4 v)
{
    return convert_ushort4(clamp(v, (short4)(0), (short4)(1023)));
}

static inline __global ushort* calc_ushort_ptr(__global ushort* ptr, uint step_x, uint step_y)
{
    return ptr + get_global_id(1) * step_x + get_global_id(0) * step_y;
}

static inline __global uchar* calc_uchar_ptr(__global uchar* ptr, uint step_x, uint step_y)
{
    return ptr + get_global_id(1) * step_x + get_global_id(0) * step_y;
}

// For launches of one work-item per pixel: the address of the 4x2 block that holds the work-item's pixel.
static inline __global ushort* calc_ushort_ptr_modified(__global ushort* ptr, uint step_x, uint step_y)
{
    return ptr + get_global_id(1) / 2 * step_x + get_global_id(0) / 4 * step_y;
}

static inline __global uchar* calc_uchar_ptr_modified(__global uchar* ptr, uint step_x, uint step_y)
{
    return ptr + get_global_id(1) / 2 * step_x + get_global_id(0) / 4 * step_y;
}
