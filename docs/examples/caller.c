/// How a decoder component calls the library, in C11: three frames as a Codec2 component, three as an OpenMAX
/// component.
///
///     mkdir -p /tmp/lumivert/vendor/media
///     cc -I include docs/examples/caller.c -L build -lLumivert -Wl,-rpath,build -o build/caller
///     ANDROID_DATA=/tmp/lumivert build/caller
///
/// On a workstation $ANDROID_DATA takes the place of /data. In a component, the planes are the codec's dma-bufs; here
/// each is a piece of shared memory with a grey picture in it.
#define _GNU_SOURCE // syscall

#include <linux/memfd.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "lumivert/converter.h"

enum { WIDTH = 64, HEIGHT = 32, FRAMES = 3 };

// ---- planes ---------------------------------------------------------------------------------------------------------

/// Anonymous shared memory. The system call is there since Linux 3.17, the C function since Android 11 (API level 30).
static int open_memory(void) {
    return (int)syscall(SYS_memfd_create, "plane", MFD_CLOEXEC);
}

/// A plane in memory of its own. The library rounds plane sizes up to a multiple of 128 bytes when it imports them, so
/// the memory must be that large. On failure the descriptor is -1; never pass that to the library, which would end the
/// process.
static _MULTIPLANE_t open_plane(size_t bytes) {
    _MULTIPLANE_t plane = {open_memory(), 0, (int32_t)bytes};
    if (plane.handle >= 0 && ftruncate(plane.handle, (off_t)((bytes + 127) / 128 * 128)) != 0) {
        close(plane.handle);
        plane.handle = -1;
    }
    return plane;
}

/// A luma plane and a chroma plane of half its size, tightly packed, large enough for whole blocks of 4 x 2 pixels.
static _HDR2SDR_config_params_t open_frame(_Image_ColorFormat format) {
    const size_t samples = (size_t)(WIDTH + 3) / 4 * 4 * ((HEIGHT + 1) / 2 * 2);
    const size_t luma_bytes = samples * (format == P010_LINEAR ? 2 : 1);
    return (_HDR2SDR_config_params_t){format, {open_plane(luma_bytes), open_plane(luma_bytes / 2)}};
}

static bool is_open(const _HDR2SDR_config_params_t* frame) {
    return frame->buffer[0].handle > 0 && frame->buffer[1].handle > 0;
}

/// Descriptors are always the caller's to close.
static void close_frame(const _HDR2SDR_config_params_t* frame) {
    for (int i = 0; i < 2; ++i) {
        if (frame->buffer[i].handle >= 0) close(frame->buffer[i].handle);
    }
}

/// In place of the decoder: fills a plane with one 10-bit code.
static bool decode_grey(const _MULTIPLANE_t* plane, unsigned int code) {
    uint16_t* words = mmap(NULL, (size_t)plane->size, PROT_READ | PROT_WRITE, MAP_SHARED, plane->handle, 0);
    if (words == MAP_FAILED) return false;
    for (int i = 0; i < plane->size / 2; ++i)
        words[i] = (uint16_t)(code << 6);
    return munmap(words, (size_t)plane->size) == 0;
}

/// PQ luma code 400 is 27 cd/m2 (SMPTE ST 2084, limited range); chroma code 512 is neutral.
static bool decode_frame(const _HDR2SDR_config_params_t* frame) {
    return decode_grey(&frame->buffer[0], 400) && decode_grey(&frame->buffer[1], 512);
}

/// In place of the display: prints the first samples of luma and chroma.
static bool show_frame(const char* who, const _HDR2SDR_config_params_t* frame) {
    uint8_t luma[2];
    uint8_t chroma[4];
    if (pread(frame->buffer[0].handle, luma, sizeof(luma), 0) != sizeof(luma)) return false;
    if (pread(frame->buffer[1].handle, chroma, sizeof(chroma), 0) != sizeof(chroma)) return false;
    if (frame->color_format == P010_LINEAR) {
        printf("%s: luma %d, chroma %d %d\n", who, (luma[0] | luma[1] << 8) >> 6, (chroma[0] | chroma[1] << 8) >> 6,
               (chroma[2] | chroma[3] << 8) >> 6);
    } else {
        printf("%s: luma %d, chroma %d %d\n", who, luma[0], chroma[0], chroma[1]);
    }
    return true;
}

// ---- Codec2 ---------------------------------------------------------------------------------------------------------

/// One frame in buffers of a block pool, which may be closed as soon as the frame is converted.
static bool convert_block(void* converter) {
    // Mastering peak, minimum luminance and MaxCLL in units of 0.0001 cd/m2. This frame has no HDR10+ metadata, so the
    // library uses a default record chosen by these values. Pass a frame's own record instead of null if it has one.
    static const uint32_t static_info[3] = {1000 * 10000, 50, 1000 * 10000};

    _HDR2SDR_config_params_t in = open_frame(P010_LINEAR);
    _HDR2SDR_config_params_t out = open_frame(NV12);
    bool shown = false;
    if (is_open(&in) && is_open(&out) && decode_frame(&in)) {
        // 0: the frame was refused. The log (tag "Lumivert") has the reason; the planes are unchanged.
        if (CL_HDR2SDR_ARM_convert1(&in, &out, NULL, static_info, converter, 0) == 1) {
            shown = show_frame("codec2", &out);
        }
    }
    close_frame(&in);
    close_frame(&out);
    return shown;
}

/// Mode NORMAL: a tone curve from each frame's metadata, NV12 out.
static bool run_codec2(void) {
    void* converter = NULL;
    if (CL_HDR2SDR_ARM_init(WIDTH, HEIGHT, NORMAL, &converter, 1) != 1) return false; // nothing to deinit
    bool converted = true;
    for (int i = 0; i < FRAMES && converted; ++i)
        converted = convert_block(converter);
    CL_HDR2SDR_ARM_deinit(converter);
    return converted;
}

// ---- OpenMAX --------------------------------------------------------------------------------------------------------

/// Mode HI_JACK: a fixed table, in place. A port's buffers are allocated once and used for frame after frame. The
/// library recognises each by the number of its descriptor, so close them only after deinit.
static bool run_openmax(void) {
    const uint32_t mastering_peak = 1000; // whole cd/m2 here

    void* converter = NULL;
    if (CL_HDR2SDR_ARM_init(WIDTH, HEIGHT, HI_JACK, &converter, 0) != 1) return false;
    _HDR2SDR_config_params_t frame = open_frame(P010_LINEAR);
    bool converted = is_open(&frame);
    for (int i = 0; i < FRAMES && converted; ++i) {
        converted = decode_frame(&frame) &&
                    CL_HDR2SDR_ARM_convert(&frame, &frame, NULL, mastering_peak, converter) == 1 &&
                    show_frame("openmax", &frame);
    }
    CL_HDR2SDR_ARM_deinit(converter);
    close_frame(&frame);
    return converted;
}

int main(void) {
    if (!run_codec2() || !run_openmax()) {
        fprintf(stderr, "not converted; see the log, tag \"Lumivert\"\n");
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
