#include "media/raw_reader.h"

#include <cctype>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include "error.h"

namespace lumivert::tool {
namespace {

/// "P010" for AV_PIX_FMT_P010LE.
std::string format_name(AVPixelFormat format) {
    std::string name;
    for (const char* c = av_get_pix_fmt_name(format); *c != '\0'; ++c)
        name += static_cast<char>(std::toupper(*c));
    return name.substr(0, name.find("LE"));
}

} // namespace

RawReader::RawReader(const std::string& path, const RawLayout& layout)
    : path_(path == "-" ? "standard input" : path), layout_(layout),
      file_(path == "-" ? -1 : open(path.c_str(), O_RDONLY | O_CLOEXEC)), fd_(path == "-" ? STDIN_FILENO : file_.get()),
      frame_bytes_(av_image_get_buffer_size(layout.format, layout.width, layout.height, 1)) {
    struct stat found {};
    if (fd_ < 0 || fstat(fd_, &found) != 0) throw system_error(path_);
    if (S_ISDIR(found.st_mode)) throw Error(path_ + ": is a directory");
    if (!S_ISREG(found.st_mode)) return;
    if (found.st_size == 0) throw Error(path_ + ": is empty");
    if (found.st_size % frame_bytes_ != 0) refuse(found.st_size);
    frames_ = found.st_size / frame_bytes_;
}

bool RawReader::read(uint8_t* const* planes, const int* pitches) {
    const int64_t before = bytes_;
    for (int plane = 0; plane < av_pix_fmt_count_planes(layout_.format); ++plane)
        if (!read_plane(plane, planes[plane], pitches[plane])) {
            if (bytes_ != before || bytes_ == 0) refuse(bytes_);
            return false;
        }
    return true;
}

bool RawReader::read_plane(int plane, uint8_t* data, int pitch) {
    const auto row = static_cast<size_t>(av_image_get_linesize(layout_.format, layout_.width, plane));
    const int shift = plane == 0 ? 0 : av_pix_fmt_desc_get(layout_.format)->log2_chroma_h;
    const int rows = AV_CEIL_RSHIFT(layout_.height, shift);
    if (row == static_cast<size_t>(pitch)) return read_fully(data, rows * row);
    for (int y = 0; y < rows; ++y)
        if (!read_fully(data + static_cast<ptrdiff_t>(y) * pitch, row)) return false;
    return true;
}

/// False at the end of the data, with what was there counted in `bytes_`.
bool RawReader::read_fully(uint8_t* data, size_t size) {
    for (size_t done = 0; done < size;) {
        const ssize_t count = TEMP_FAILURE_RETRY(::read(fd_, data + done, size - done));
        if (count < 0) throw system_error(path_);
        if (count == 0) return false;
        done += static_cast<size_t>(count);
        bytes_ += count;
    }
    return true;
}

void RawReader::refuse(int64_t bytes) const {
    throw Error(path_ + ": " + std::to_string(bytes) + " bytes is not a whole number of " +
                std::to_string(layout_.width) + "x" + std::to_string(layout_.height) + " " +
                format_name(layout_.format) + " frames of " + std::to_string(frame_bytes_) + " bytes");
}

} // namespace lumivert::tool
