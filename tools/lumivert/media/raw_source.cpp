#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "error.h"
#include "media/source.h"

namespace lumivert::tool {
namespace {

class RawSource : public FrameSource {
public:
    RawSource(const std::string& path, int width, int height, AVRational frame_rate)
        : path_(path == "-" ? "standard input" : path),
          fd_(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)),
          frame_bytes_(frame_bytes(P010_LINEAR, width, height)) {
        if (fd_ < 0) throw system_error(path_);
        struct stat found {};
        if (fstat(fd_, &found) != 0) throw system_error(path_);
        if (S_ISDIR(found.st_mode)) throw Error(path_ + ": is a directory");
        info_.container = "raw";
        info_.codec = "rawvideo";
        info_.pixel_format = "p010le";
        info_.width = width;
        info_.height = height;
        info_.depth = 10;
        info_.transfer = AVCOL_TRC_SMPTE2084;
        info_.frame_rate = frame_rate;
        info_.time_base = av_inv_q(frame_rate);
        if (!S_ISREG(found.st_mode)) return;
        info_.frames = found.st_size / static_cast<int64_t>(frame_bytes_);
        if (found.st_size == 0) throw Error(path_ + ": is empty");
        if (found.st_size % frame_bytes_ != 0) refuse(found.st_size);
    }
    ~RawSource() override {
        if (fd_ != STDIN_FILENO) close(fd_);
    }

    const ClipInfo& info() const override { return info_; }

    bool read(const Planes& p010, const Geometry& geometry, SourceFrame& out) override {
        out.number = out.pts = number_;
        const size_t before = bytes_;
        for (int plane = 0; plane < 2; ++plane)
            if (!read_plane((plane == 0 ? p010.first : p010.second).data(), plane_rows(plane, geometry.height),
                            geometry)) {
                if (bytes_ != before || bytes_ == 0) refuse(static_cast<int64_t>(bytes_));
                return false;
            }
        ++number_;
        return true;
    }

    bool skip(const Geometry& geometry, SourceFrame& out) override {
        if (!scratch_) scratch_ = std::make_unique<Planes>(P010_LINEAR, geometry);
        return read(*scratch_, geometry, out);
    }

private:
    bool read_plane(uint8_t* data, int rows, const Geometry& geometry) {
        const size_t row = static_cast<size_t>(geometry.width) * 2, pitch = static_cast<size_t>(geometry.pitch) * 2;
        if (row == pitch) return read_fully(data, rows * row);
        for (int y = 0; y < rows; ++y)
            if (!read_fully(data + y * pitch, row)) return false;
        return true;
    }

    /// False at the end of the data, with what was there counted in `bytes_`.
    bool read_fully(uint8_t* data, size_t size) {
        for (size_t done = 0; done < size;) {
            const ssize_t count = ::read(fd_, data + done, size - done);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) throw system_error(path_);
            if (count == 0) return false;
            done += static_cast<size_t>(count);
            bytes_ += static_cast<size_t>(count);
        }
        return true;
    }

    [[noreturn]] void refuse(int64_t bytes) const {
        throw Error(path_ + ": " + std::to_string(bytes) + " bytes is not a whole number of " +
                    std::to_string(info_.width) + "x" + std::to_string(info_.height) + " P010 frames of " +
                    std::to_string(frame_bytes_) + " bytes");
    }

    std::string path_;
    int fd_;
    size_t frame_bytes_, bytes_ = 0;
    int64_t number_ = 0;
    ClipInfo info_;
    std::unique_ptr<Planes> scratch_;
};

} // namespace

std::unique_ptr<FrameSource> open_raw(const std::string& path, int width, int height, AVRational frame_rate) {
    return std::make_unique<RawSource>(path, width, height, frame_rate);
}

} // namespace lumivert::tool
