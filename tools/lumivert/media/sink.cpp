#include "media/sink.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "error.h"

namespace lumivert::tool {

const std::vector<WriterInfo>& writers() {
    static const std::vector<WriterInfo> table = {
        {"mp4", {NV12, RGBA, P010_LINEAR}, false, true, open_mp4, "H.264 (8 bits) or HEVC (10 bits) video"},
        {"mov", {NV12, RGBA, P010_LINEAR}, false, true, open_mov, "the same in QuickTime"},
        {"mkv", {NV12, RGBA, P010_LINEAR}, true, true, open_mkv, "the same in Matroska"},
        {"png", {NV12, RGBA, P010_LINEAR}, false, false, open_png_sequence, "one picture per frame: NAME-%04d.png"},
        {"nv12", {NV12}, true, false, open_packed, "raw frames, one after the other"},
        {"p010", {P010_LINEAR}, true, false, open_packed, "raw frames"},
        {"rgba", {RGBA}, true, false, open_packed, "raw frames"},
        {"yuv", {NV12, P010_LINEAR}, true, false, open_packed, "raw frames"},
        {"y4m", {NV12, P010_LINEAR}, true, false, open_y4m, "YUV4MPEG2, 8 or 10 bits"},
    };
    return table;
}

const WriterInfo* writer_for(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    for (const WriterInfo& writer : writers())
        if ("." + std::string(writer.name) == extension) return &writer;
    return nullptr;
}

const WriterInfo& find_writer(const std::string& name, const std::string& path) {
    if (const WriterInfo* writer = writer_for(name.empty() ? path : "as." + name)) return *writer;
    std::string known;
    for (const WriterInfo& writer : writers())
        known += (known.empty() ? "" : ", ") + std::string(writer.name);
    if (path == "-") throw Error("standard output needs --as, one of " + known);
    throw Error(path + ": no writer for this name; the extension, or --as, is one of " + known);
}

} // namespace lumivert::tool
