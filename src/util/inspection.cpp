#include "util/inspection.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sys/mman.h>

#include "platform/paths.h"

using android::base::unique_fd;

namespace lumivert {
namespace {

/// A whole plane, mapped while this lives.
class MappedPlane {
public:
    explicit MappedPlane(const _MULTIPLANE_t& plane)
        : m_size_(static_cast<std::size_t>(plane.size)),
          m_bytes_(mmap(nullptr, m_size_, PROT_READ | PROT_WRITE, MAP_SHARED, plane.handle, 0)) {}
    ~MappedPlane() {
        if (m_bytes_ != MAP_FAILED) munmap(m_bytes_, m_size_);
    }
    MappedPlane(const MappedPlane&) = delete;
    MappedPlane& operator=(const MappedPlane&) = delete;

    /// Writes the first `count` bytes, or the whole plane if it is smaller. The mapping is passed to write(2) and not
    /// read here: where it is longer than the buffer behind it, write(2) fails, but reading would end the process.
    void write_to(int file, std::size_t count) const {
        if (m_bytes_ != MAP_FAILED) android::base::WriteFully(file, m_bytes_, std::min(count, m_size_));
    }

private:
    std::size_t m_size_;
    void* m_bytes_;
};

/// `width` x `height`; 0 if either is negative. Limited so that a 32-bit size can hold four bytes per pixel.
std::size_t pixel_count(int width, int height) {
    if (width < 0 || height < 0) return 0;
    const auto pixels = static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
    return static_cast<std::size_t>(std::min<uint64_t>(pixels, SIZE_MAX / 4));
}

} // namespace

// ---- traces -------------------------------------------------------------------------------------------------------

void trace_planes(const _HDR2SDR_config_params_t& params, const char* name) {
    if (!log_enabled(kTraceBit)) return;
    log_debug("%s y handle is %d size is %d", name, params.buffer[0].handle, params.buffer[0].size);
    log_debug("%s uv handle is %d size is %d", name, params.buffer[1].handle, params.buffer[1].size);
}

void trace_map(const char* name, const std::shared_ptr<ImportedBuffers>& map) {
    if (map->empty()) return;
    if (log_enabled(kTraceBit)) {
        log_debug("%s size() is %d and this is the list", name, static_cast<int>(map->size()));
    }
    list_entries(map);
}

void list_entries(const std::shared_ptr<ImportedBuffers>& map) {
    for (const auto& [key, mem] : *map) {
        if (log_enabled(kRegistryBit)) {
            log_debug("print out exported_memory handle is %d size is %d cl_mem %p", key.get_handle(),
                      static_cast<int>(key.get_size()), static_cast<void*>(mem));
        }
    }
}

void trace_metadata(const HDR10PLUS_DYNAMIC_INFO& info) {
    if (!log_enabled(kTraceBit)) return;
    static constexpr const char* kFunction = "print_debug_hdr10plus_metadata"; // the name in the log
    const auto print = [](const char* field, unsigned int value) {
        log_debug("%s %s is %d", kFunction, field, static_cast<int>(value));
    };
    const auto print_all = [](const char* field, const auto& values) {
        int index = 0;
        for (const auto value : values) {
            log_debug("%s %s[%d] is %d", kFunction, field, index++, static_cast<int>(value));
        }
    };
    log_debug("%s country_code is %d ", kFunction, static_cast<int>(info.country_code));
    print("provider_code", info.provider_code);
    print("provider_oriented_code", info.provider_oriented_code);
    print("application_identifier", info.application_identifier);
    print("application_version", info.application_version);
    print("display_max_luminance", info.display_max_luminance);
    print_all("maxscl", info.maxscl);
    print("avg_maxrgb", info.avg_maxrgb);
    print("num_maxrgb_percentiles[3]",
          info.num_maxrgb_percentiles); // the index means nothing, but log readers expect it
    print_all("maxrgb_percentages", info.maxrgb_percentages);
    print_all("maxrgb_percentiles", info.maxrgb_percentiles);
    print("tone_mapping_flag", info.tone_mapping_flag);
    print("knee_point_x", info.knee_point_x);
    print("knee_point_y", info.knee_point_y);
    print("num_bezier_curve_anchors", info.num_bezier_curve_anchors);
    print_all("bezier_curve_anchors", info.bezier_curve_anchors);
}

// ---- dumps --------------------------------------------------------------------------------------------------------

void dump_planes(Formatter& formatter, const _HDR2SDR_config_params_t& params, _Image_ColorFormat format,
                 const char* file_name) {
    if (dump_request == 0) return;
    formatter.filewrite(format, static_cast<int>(formatter.mWidth), static_cast<int>(formatter.mHeight),
                        &params.buffer[0], &params.buffer[1], std::make_unique<std::string>(file_name));
}

void dump_rgba(Formatter& formatter, const _HDR2SDR_config_params_t& out) {
    if (out.color_format == RGBA) return dump_planes(formatter, out, RGBA, "rgba_out.yuv");
    if (dump_request == 0 || !formatter.frame_fits()) return;
    std::FILE* file = std::fopen(platform::resolve_path("/sdcard/DCIM/Camera/rgba_out.yuv").c_str(), "wb");
    if (file == nullptr) return;
    std::fwrite(formatter.mWorkHost1, 4, std::size_t{formatter.mWidth} * formatter.mHeight, file);
    std::fclose(file);
}

void dump_nv12(Formatter& formatter, _HDR2SDR_config_params_t out) {
    const int samples = static_cast<int>(formatter.mWidth * formatter.mHeight);
    out.buffer[0] = {out.buffer[0].handle, 0, samples};
    out.buffer[1] = {out.buffer[1].handle, 0, samples / 2};
    dump_planes(formatter, out, NV12, "final_nv12.yuv");
}

void Formatter::dump_ocl(cl_mem buffer, int width, int height) {
    const std::size_t bytes = 4 * pixel_count(width, height);
    cl_int error = CL_SUCCESS;
    // Not unmapped: this debugging aid is used once or twice in a process.
    const auto* values = static_cast<const float*>(
        clEnqueueMapBuffer(mQueue, buffer, CL_TRUE, CL_MAP_READ, 0, bytes, 0, nullptr, nullptr, &error));
    if (error != CL_SUCCESS)
        std::cerr << "\tError " << error << " with clEnqueueMapBuffer"
                  << "\n";

    std::ofstream text(media_path("ocl.txt"));
    const std::size_t count = values == nullptr ? 0 : pixel_count(width, std::min(height, 3));
    for (std::size_t i = 0; i < count; ++i) {
        text << values[i] << ", ";
        if (i == 3839 || i == 7679) text << "##################" << std::endl; // fixed positions, whatever the width
    }
    text << "\n";
    text.close();
    std::cerr << "success-dump : ocl \n";
}

void Formatter::filewrite(_Image_ColorFormat format, int width, int height, const _MULTIPLANE_t* plane0,
                          const _MULTIPLANE_t* plane1, const std::unique_ptr<std::string>& file_name) {
    log_error("%s entry !", __func__);
    const std::string path = media_path(*file_name);
    const auto log_path = [&] {
        if (log_enabled(kTraceBit)) log_debug("%s file name is %s", "filewrite", path.c_str());
    };
    log_path();
    const unique_fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    if (file >= 0) {
        log_path();
        const std::size_t pixels = pixel_count(width, height);
        switch (static_cast<int>(format)) {
        case -1:
            // NOLINTNEXTLINE(performance-no-int-to-ptr): the record holds the address as a number
            android::base::WriteFully(file, reinterpret_cast<const void*>(static_cast<uintptr_t>(plane0->address)),
                                      static_cast<std::size_t>(std::max(plane0->size, 0)));
            break;
        case P010_LINEAR: {
            const MappedPlane luma(*plane0);
            const MappedPlane chroma(*plane1);
            luma.write_to(file, 2 * pixels);
            chroma.write_to(file, pixels);
            break;
        }
        case NV12: {
            const MappedPlane luma(*plane0);
            const MappedPlane chroma(*plane1);
            luma.write_to(file, pixels);
            chroma.write_to(file, pixels / 2);
            break;
        }
        case RGBA:
            MappedPlane(*plane0).write_to(file, 4 * pixels);
            break;
        default:
            if (log_enabled(kErrorBit)) log_error("This never happens");
        }
    }
    if (log_enabled(kTraceBit)) log_debug("%s exit !", __func__);
}

} // namespace lumivert
