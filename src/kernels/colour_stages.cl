// The pixel arithmetic that the colour kernels share: RGBA block to YUV, P010 block to RGBA, and the HDR10+ tone map of
// one pixel. A pixel in a register is a 32-bit word R | G << 8 | B << 16 | A << 24, as it lies in memory. A block is
// 4 pixels by 2 rows. Planes may start their rows at any element (W need not be a multiple of 4).

// ---- RGBA to YUV: two rows at a time as vectors of eight, row 0 in the lower half ----

typedef struct {
    int8 y, u, v;
} yuv_block;

static inline float8 by_row(float row0, float row1)
{
    return (float8)((float4)(row0), (float4)(row1));
}

static inline int8 load_rgba_block(__global const uchar* rgba, int width)
{
    __global const uint* const row0 = (__global const uint*)rgba;
    return as_int8((uint8)(vload4(0, row0), vload4(0, row0 + width)));
}

// The weighted sum of a block's channels, truncated toward zero.
// Fast: channels come out of whole words by shift and mask instead of by byte shuffles.
static inline int8 weigh(int8 rgba, float8 r, float8 g, float8 b)
{
    return convert_int8(r * convert_float8(rgba & 255) + g * convert_float8(rgba >> 8 & 255) +
                        b * convert_float8(rgba >> 16 & 255));
}

// The limits are vectors as some implementations misread scalar ones.
static inline int8 limit_to(int8 v, int largest)
{
    return clamp(v, (int8)(0), (int8)(largest));
}

// BT.709 at 8 bits. The chroma weights have five digits in row 0 and four in row 1; on purpose, as any change here
// shows in the output. Luma keeps its full swing (no 219/255).
static inline yuv_block rgba_to_yuv8(__global const uchar* in_rgba, int width, int luma_offset_row0)
{
    const int8 rgba = load_rgba_block(in_rgba, width);
    const int8 luma_offset = (int8)((int4)(luma_offset_row0), (int4)(16));
    yuv_block block;
    block.y = limit_to(weigh(rgba, 0.2126f, 0.7152f, 0.0722f) + luma_offset, 255);
    block.u = limit_to(weigh(rgba, by_row(-0.11457f, -0.1146f), by_row(-0.38543f, -0.3854f), 0.5000f) + 128, 255);
    block.v = limit_to(weigh(rgba, 0.5000f, by_row(-0.45415f, -0.4542f), by_row(-0.04585f, -0.0458f)) + 128, 255);
    return block;
}

// The chroma of the block's two 2x2 halves, truncated means: (a left, b left, a right, b right).
// Fast: both components ride in one 32-bit word, so one set of additions serves them.
static inline ushort4 chroma_means(int8 a, int8 b)
{
    const uint8 both = as_uint8(a | b << 16);
    const uint4 columns = both.lo + both.hi;
    return as_ushort4(columns.even + columns.odd) / (ushort)4;
}

// Fast: one store for four samples at any address; vstore4 means the same and becomes four stores on CPU devices.
typedef struct __attribute__((packed)) {
    uchar4 v;
} unaligned_uchar4;

typedef struct __attribute__((packed)) {
    ushort4 v;
} unaligned_ushort4;

static inline void store_uchar4(uchar4 v, __global uchar* p)
{
    ((__global unaligned_uchar4*)p)->v = v;
}

static inline void store_p010(ushort4 codes, __global ushort* p)
{
    ((__global unaligned_ushort4*)p)->v = codes << (ushort)6;
}

static inline void store_yuv8(int8 y, ushort4 chroma, __global uchar* p_y, __global uchar* p_uv, int width)
{
    const uchar8 rows = convert_uchar8(y);
    store_uchar4(rows.lo, p_y);
    store_uchar4(rows.hi, p_y + width);
    store_uchar4(convert_uchar4(chroma), p_uv);
}

// ---- P010 to RGBA and the tone map: scalars only ----
// Fast: small vectors would keep a CPU device's compiler from vectorising across work-items, which is several times
// faster. Only the powers take a vector: as library calls they cost the same for three lanes as for one.

// Fast: one load for a chroma pair at any address.
typedef struct __attribute__((packed)) {
    uint v;
} unaligned_uint;

static inline uint load_chroma_pair(__global const ushort* p_uv)
{
    return ((__global const unaligned_uint*)p_uv)->v;
}

// R, G or B of one pixel: 10-bit luma plus its chroma term, to 8 bits.
static inline uint channel_of(float luma, float chroma)
{
    return (int)clamp((luma + chroma) * 0.25f, 0.0f, 255.0f);
}

// One pixel from its luma word and its chroma pair (Cb in the lower half), BT.2020 without range expansion. `black` is
// the luma code that becomes 0.
static inline uint p010_to_pixel(ushort word, uint pair, int black)
{
    const float luma = (word >> 6) - black;
    const float cb = (int)(pair >> 6 & 1023) - 512;
    const float cr = (int)(pair >> 22) - 512;
    return channel_of(luma, 1.47460f * cr) | channel_of(luma, -0.16455f * cb - 0.57135f * cr) << 8 |
           channel_of(luma, 1.88140f * cb) << 16 | 0xff000000u;
}

// ST 2084 EOTF between its two powers.
static inline float pq_ratio(float t)
{
    return max(t - 0.8359375f, 0.0f) / (18.8515625f - 18.6875f * t);
}

static inline uint display_code(float c)
{
    return (int)(clamp(c, 0.0f, 1.0f) * 255.0f);
}

// PQ-coded BT.2020 pixel in, gamma-coded BT.709 pixel out. `dtm_lut` holds 256 gains, entry k for k / 254.
static inline uint tone_map(uint pixel, float normalize_x, float knee_x, __global const float* dtm_lut)
{
    const float3 pq = (float3)((int)(pixel & 255) * factor, (int)(pixel >> 8 & 255) * factor,
                               (int)(pixel >> 16 & 255) * factor);
    const float3 t = powr(pq, (float3)(0.0126833135156559f));
    const float3 light = powr((float3)(pq_ratio(t.x), pq_ratio(t.y), pq_ratio(t.z)), (float3)(6.2773946360153259f));
    const float nR = min(light.x * normalize_x, 1.0f);
    const float nG = min(light.y * normalize_x, 1.0f);
    const float nB = min(light.z * normalize_x, 1.0f);

    // BT.2020 to DCI-P3
    const float R1 = clamp(1.34357822000f * nR - 0.2821796830f * nG - 0.0613986254f * nB, 0.0f, 1.0f);
    const float G1 = clamp(-0.06529748440f * nR + 1.0757881400f * nG - 0.0104904491f * nB, 0.0f, 1.0f);
    const float B1 = clamp(0.00282178819f * nR - 0.0195985250f * nG + 1.0167768000f * nB, 0.0f, 1.0f);

    // One gain for all three channels keeps the hue. The fraction weights the lower entry and its complement the upper
    // one, the reverse of the usual interpolation: on purpose. The index alone is limited, so that a knee above 1 (from
    // metadata out of its range) cannot read past the table.
    const float m = max(knee_x, max(max(R1, G1), B1));
    const float f = m * 254.0f;
    const int k = (int)f;
    const float w = f - k;
    const int entry = clamp(k, 0, 254);
    const float ratio = w * dtm_lut[entry] + (1.0f - w) * dtm_lut[entry + 1];
    const float R2 = R1 * ratio;
    const float G2 = G1 * ratio;
    const float B2 = B1 * ratio;

    // DCI-P3 to BT.709
    const float R3 = clamp(1.2249401800f * R2 - 0.2249401810f * G2, 0.0f, 1.0f);
    const float G3 = clamp(-0.0420569777f * R2 + 1.0420568000f * G2 - 7.45058060e-09f * B2, 0.0f, 1.0f);
    const float B3 = clamp(-0.0196375493f * R2 - 0.0786359608f * G2 + 1.098273400f * B2, 0.0f, 1.0f);

    // Gamma2.2
    const float3 c = powr((float3)(R3, G3, B3), (float3)(0.45f));
    return display_code(c.x) | display_code(c.y) << 8 | display_code(c.z) << 16 | 0xff000000u;
}
