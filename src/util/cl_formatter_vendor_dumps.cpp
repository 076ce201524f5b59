/// Dumps for inspection: a float buffer as text, the planes of a frame as raw bytes.
#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iostream>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "util/formatter.h"

namespace lumivert {
namespace {

/// Writes until all is out or the system refuses. Straight from the mapping through write(2): where the plane is
/// shorter than its mapping the kernel reports it, while touching it here would end the process.
void write_all(int file, const void* bytes, std::size_t count) {
    for (auto* next = static_cast<const char*>(bytes); count > 0;) {
        const ssize_t written = write(file, next, count);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        next += written;
        count -= static_cast<std::size_t>(written);
    }
}

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

    void write_to(int file, std::size_t count) const {
        if (m_bytes_ != MAP_FAILED) write_all(file, m_bytes_, std::min(count, m_size_));
    }

private:
    std::size_t m_size_;
    void* m_bytes_;
};

} // namespace

void Formatter::dump_ocl(cl_mem buffer, int width, int height) {
    const std::size_t bytes = std::size_t{4} * static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    cl_int error = CL_SUCCESS;
    // Stays mapped: a debugging aid that is used once or twice in a process.
    const auto* values = static_cast<const float*>(
        clEnqueueMapBuffer(mQueue, buffer, CL_TRUE, CL_MAP_READ, 0, bytes, 0, nullptr, nullptr, &error));
    if (error != CL_SUCCESS)
        std::cerr << "\tError " << error << " with clEnqueueMapBuffer"
                  << "\n";

    std::ofstream text(media_path("ocl.txt"));
    for (int i = 0; values != nullptr && i < width * std::min(height, 3); ++i) { // no further than is mapped
        text << values[i] << ", ";
        if (i == 3839 || i == 7679) text << "##################" << std::endl; // fixed marks, whatever the width
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
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (file >= 0) {
        log_path();
        const int samples = width * height;
        const auto pixels = static_cast<std::size_t>(samples);
        switch (static_cast<int>(format)) {
        case -1:
            // NOLINTNEXTLINE(performance-no-int-to-ptr): the record carries the address as a number
            write_all(file, reinterpret_cast<const void*>(static_cast<uintptr_t>(plane0->address)),
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
            chroma.write_to(file, static_cast<std::size_t>(samples / 2));
            break;
        }
        case RGBA:
            MappedPlane(*plane0).write_to(file, 4 * pixels);
            break;
        default:
            if (log_enabled(kErrorBit)) log_error("This never happens");
        }
        close(file);
    }
    if (log_enabled(kTraceBit)) log_debug("%s exit !", __func__);
}

} // namespace lumivert
