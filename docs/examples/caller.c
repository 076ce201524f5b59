/// How a decoder component calls the library, in C11: three frames as a Codec2 component and three as an OpenMAX one.
///
///     mkdir -p /tmp/lumivert/vendor/media
///     cc -I include docs/examples/caller.c -L build -lLumivert -Wl,-rpath,build -o build/caller
///     ANDROID_DATA=/tmp/lumivert build/caller
///
/// On a workstation $ANDROID_DATA stands for /data. In a component the planes are
/// the codec's own dma-bufs; here each is a memfd with a grey picture in it.
#define _GNU_SOURCE // memfd_create

#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include "lumivert/converter.h"

enum { WIDTH = 64, HEIGHT = 32, FRAMES = 3 };

// ---- planes ---------------------------------------------------------------------------------------------------------

/// A plane in memory of its own. The library rounds sizes up to 128 bytes when it imports, so the memory reaches that
/// far. The descriptor is -1 on failure, which the library must never see: it ends the process over such a plane.
static _MULTIPLANE_t open_plane(size_t bytes) {
    _MULTIPLANE_t plane = {memfd_create("plane", MFD_CLOEXEC), 0, (int32_t)bytes};
    if (plane.handle >= 0 && ftruncate(plane.handle, (off_t)((bytes + 127) / 128 * 128)) != 0) {
        close(plane.handle);
        plane.handle = -1;
    }
    return plane;
}

/// Luma and half as much chroma, tightly packed, for whole blocks of 4 x 2 pixels.
static _HDR2SDR_config_params_t open_frame(_Image_ColorFormat format) {
    const size_t samples = (size_t)(WIDTH + 3) / 4 * 4 * ((HEIGHT + 1) / 2 * 2);
    const size_t luma_bytes = samples * (format == P010_LINEAR ? 2 : 1);
    return (_HDR2SDR_config_params_t){format, {open_plane(luma_bytes), open_plane(luma_bytes / 2)}};
}

static bool is_open(const _HDR2SDR_config_params_t* frame) {
    return frame->buffer[0].handle > 0 && frame->buffer[1].handle > 0;
}

/// The library never closes a descriptor, whatever it returned.
static void close_frame(const _HDR2SDR_config_params_t* frame) {
    for (int i = 0; i < 2; ++i) {
        if (frame->buffer[i].handle >= 0) close(frame->buffer[i].handle);
    }
}

/// Stands for the decoder: fills a plane with one 10-bit code.
static bool decode_grey(const _MULTIPLANE_t* plane, unsigned int code) {
    uint16_t* words = mmap(NULL, (size_t)plane->size, PROT_READ | PROT_WRITE, MAP_SHARED, plane->handle, 0);
    if (words == MAP_FAILED) return false;
    for (int i = 0; i < plane->size / 2; ++i)
        words[i] = (uint16_t)(code << 6);
    return munmap(words, (size_t)plane->size) == 0;
}

/// PQ luma code 400 is 27 cd/m2, chroma code 512 is neutral.
static bool decode_frame(const _HDR2SDR_config_params_t* frame) {
    return decode_grey(&frame->buffer[0], 400) && decode_grey(&frame->buffer[1], 512);
}

/// Stands for the display: prints the first bytes of luma and chroma.
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

/// One frame through buffers of a block pool: they may be gone with the frame.
static bool convert_block(void* converter) {
    // Mastering peak, second luminance and MaxCLL in 0.0001 cd/m2. A frame without HDR10+ metadata, as here, is mapped
    // by a default record chosen from them; a frame with metadata passes its record instead of null.
    static const uint32_t static_info[3] = {1000 * 10000, 50, 1000 * 10000};

    _HDR2SDR_config_params_t in = open_frame(P010_LINEAR);
    _HDR2SDR_config_params_t out = open_frame(NV12);
    bool shown = false;
    if (is_open(&in) && is_open(&out) && decode_frame(&in)) {
        // 0 is a refused frame; the log (tag "Lumivert") has the reason, and the planes are as they were.
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

/// Mode HI_JACK: a fixed table, in place. The buffers of a port are allocated once and come back frame after frame; the
/// library knows each by its descriptor's number, so they are closed after deinit and not before.
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
