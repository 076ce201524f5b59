// The colour kernels. RGBA is bytes R, G, B, A, rows of W pixels; alpha is ignored on input and 255 on output. P010
// planes are 16-bit words with the 10-bit code in the upper bits; chroma planes interleave Cb, Cr (NV21 Cr, Cb), rows
// of W elements. W is both the width and the pitch.
//
// Kernel                                 Global size     One work-item
// rgba8888_to_p010, _to_nv12, _to_nv21   (W / 4, H / 2)  a block of 4 pixels by 2 rows with its two chroma pairs
// p010_to_rgba8888                       (W / 4, H / 2)  such a block
// p010_to_rgba8888_process_10plus_clut   (W, H)          one pixel; its PQ form stays in in_rgba
// process_10plus_clut                    (W, H)          one pixel
//
// The block kernels leave what lies beyond the last whole block alone. The fused kernel (the last but one) writes
// every pixel and nothing else; of the chroma plane it reads the pairs of whole 2x2 blocks, even where W or H is odd.

__kernel void rgba8888_to_p010(__global uchar* in_rgba, __global ushort* p_y, __global ushort* p_uv, const int _W)
{
    const int8 rgba = load_rgba_block(calc_uchar_ptr(in_rgba, 8 * _W, 16), _W);
    const int8 y = limit_to(weigh(rgba, 0.2126f * 4.0f, 0.7152f * 4.0f, 0.0722f * 4.0f) + 64, 1023);
    const int8 u = limit_to(weigh(rgba, -0.1146f * 4.0f, -0.3854f * 4.0f, 0.5000f * 4.0f) + 512, 1023);
    const int8 v = limit_to(weigh(rgba, 0.5000f * 4.0f, -0.4542f * 4.0f, -0.0458f * 4.0f) + 512, 1023);
    const ushort8 rows = convert_ushort8(y);
    p_y = calc_ushort_ptr(p_y, 2 * _W, 4);
    store_p010(rows.lo, p_y);
    store_p010(rows.hi, p_y + _W);
    store_p010(chroma_means(u, v), calc_ushort_ptr(p_uv, _W, 4));
}

__kernel void rgba8888_to_nv12(__global uchar* in_rgba, __global uchar* p_y, __global uchar* p_uv, int width)
{
    const yuv_block block = rgba_to_yuv8(calc_uchar_ptr(in_rgba, 8 * width, 16), width, 16);
    store_yuv8(block.y, chroma_means(block.u, block.v), calc_uchar_ptr(p_y, 2 * width, 4),
               calc_uchar_ptr(p_uv, width, 4), width);
}

// No luma offset in a block's first row, on purpose; 16 in its second.
__kernel void rgba8888_to_nv21(__global uchar* in_rgba, __global uchar* p_y, __global uchar* p_uv, int width)
{
    const yuv_block block = rgba_to_yuv8(calc_uchar_ptr(in_rgba, 8 * width, 16), width, 0);
    store_yuv8(block.y, chroma_means(block.v, block.u), calc_uchar_ptr(p_y, 2 * width, 4),
               calc_uchar_ptr(p_uv, width, 4), width);
}

// Black stays at code 64, 16 in RGBA: no luma offset is taken off here.
__kernel void p010_to_rgba8888(__global ushort* p_010_y, __global ushort* p_010_uv, __global uchar* out_rgba, int width)
{
    __global const ushort* const luma = calc_ushort_ptr(p_010_y, 2 * width, 4);
    __global const ushort* const chroma = calc_ushort_ptr(p_010_uv, width, 4);
    __global uint* const pixels = (__global uint*)calc_uchar_ptr(out_rgba, 8 * width, 16);
    for (uint column = 0; column < 4; ++column) {
        const uint pair = load_chroma_pair(chroma + (column & 2));
        pixels[column] = p010_to_pixel(luma[column], pair, 0);
        pixels[width + column] = p010_to_pixel(luma[width + column], pair, 0);
    }
}

// The stages above and below in one launch, each work-item for its own pixel alone.
__kernel void p010_to_rgba8888_process_10plus_clut(__global ushort* p_010_y, __global ushort* p_010_uv,
                                                   __global uchar* in_rgba, int width, int height,
                                                   __global uchar* out_rgba, const float normalize_x,
                                                   const float knee_x, __global float* dtm_lut)
{
    const size_t x = get_global_id(0), y = get_global_id(1);
    const size_t at = y * width + x;
    const uint pair = load_chroma_pair(calc_ushort_ptr_modified(p_010_uv, width, 4) + (x & 2));
    const uint pixel = p010_to_pixel(p_010_y[at], pair, 64);
    ((__global uint*)in_rgba)[at] = pixel;
    ((__global uint*)out_rgba)[at] = tone_map(pixel, normalize_x, knee_x, dtm_lut);
}

__kernel void process_10plus_clut(__global uchar* in_rgba, __global uchar* out_rgba, const float normalize_x,
                                  const float knee_x, __global float* dtm_lut, const int _W)
{
    const size_t pixel = get_global_id(1) * _W + get_global_id(0);
    ((__global uint*)out_rgba)[pixel] =
        tone_map(((__global const uint*)in_rgba)[pixel], normalize_x, knee_x, dtm_lut);
}
