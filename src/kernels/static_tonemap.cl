// HDR P010 to SDR P010 through a fixed luma table, chroma rescaled by the mapped luma. One body for four kernels: what
// stands here is process_hdr_to_sdr_1000_inout; the assembly derives the other three by exchanging the table (4000) and
// the pointers (io_y and io_uv for input and output alike: in place).
//
// Planes       inp_y, out_y: P010 luma, 16-bit words with the 10-bit code in the upper bits
//              inp_uv, out_uv: P010 chroma, pairs Cb, Cr; each plane a buffer of its own, rows of W words, W even
// Global size  (W / 2, H / 2): the planes' geometry comes from the launch alone, so they are tightly packed
// Work-item    one 2x2 luma block and its chroma pair; nothing is shared, so in place needs no barrier
//
// The body is cut into pieces line by line: one statement or one comment to a line.

__kernel void process_hdr_to_sdr_1000_inout(__global ushort* inp_y, __global ushort* inp_uv,
                                            __global ushort* out_y, __global ushort* out_uv)
{
    constant ushort lookup[1024] __attribute__((aligned(4))) = {
#include "lookup_1000.inc"
    };
    const size_t iwUV = get_global_id(0);
    const size_t ihUV = get_global_id(1);
    const size_t sUV = get_global_size(0);
    const size_t hUV = get_global_size(1);
    // Plane sizes in samples. Chroma is a buffer of its own, so its offset behind the luma plane is never added.
    const size_t sY = 2 * sUV;
    const size_t hY = 2 * hUV;
    const size_t offset_UV = sY * hY;

    // The two left samples of the luma block.
    const size_t iwY = 2 * iwUV;
    const size_t ihY = 2 * ihUV;
    const size_t idxY00 = ihY * sY + iwY;
    const size_t idxY10 = idxY00 + sY;
    // Fast: two codes to a 32-bit word halve the loads and stores, and 64-bit indices let compilers see plain strides.
    __global const uint* const inY0 = (__global const uint*)(inp_y + idxY00);
    __global const uint* const inY1 = (__global const uint*)(inp_y + idxY10);
    __global uint* const outY0 = (__global uint*)(out_y + idxY00);
    __global uint* const outY1 = (__global uint*)(out_y + idxY10);
    const uint iY0 = *inY0;
    const uint iY1 = *inY1;
    // Fast: CPU devices gather 32-bit words, here two entries, for 16 work-items at once, but not 16-bit words.
    constant const uint* const pairs = (constant const uint*)lookup;
    const uint oY00 = pairs[iY0 >> 7 & 511] >> (iY0 >> 2 & 16) & 0xffff;
    const uint oY01 = pairs[iY0 >> 23] >> (iY0 >> 18 & 16) & 0xffff;
    const uint oY10 = pairs[iY1 >> 7 & 511] >> (iY1 >> 2 & 16) & 0xffff;
    const uint oY11 = pairs[iY1 >> 23] >> (iY1 >> 18 & 16) & 0xffff;
    *outY0 = oY01 << 22 | oY00 << 6;
    *outY1 = oY11 << 22 | oY10 << 6;

    // Chroma follows the top-left sample alone, not the mean of the four: on purpose, it costs nothing.
    const size_t idxUV = 2 * (ihUV * sUV + iwUV);
    const uint iUV = *(__global const uint*)(inp_uv + idxUV);
    const int iU = iUV >> 6 & 1023;
    const int iV = iUV >> 22;
    // Limited to full range: 128 and 224 are the centre and the span of 8-bit chroma.
    const float fiY = oY00 / 1024.0f;
    const float fiU = (iU / 1024.0f * 256.0f - 128.0f) / 224.0f;
    const float fiV = (iV / 1024.0f * 256.0f - 128.0f) / 224.0f;
    // Chroma enhance; Cr gains more than Cb, on purpose.
    const float fmU = clamp(fiU * fiY * 4.5f, -0.5f, 0.5f);
    const float fmV = clamp(fiV * fiY * 8.0f, -0.5f, 0.5f);
    // Full to limited range: 64 to 960 around 512, truncated.
    const uint oU = (int)(896.0f * fmU + 512.0f);
    const uint oV = (int)(896.0f * fmV + 512.0f);
    *(__global uint*)(out_uv + idxUV) = oV << 22 | oU << 6;
}
