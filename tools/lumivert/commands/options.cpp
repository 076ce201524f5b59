#include "commands/options.h"

#include <filesystem>
#include <regex>

extern "C" {
#include <libavutil/parseutils.h>
}

#include "error.h"

namespace lumivert::tool {
Size parse_size(const std::string& text) {
    static const std::regex form("([0-9]{1,9})x([0-9]{1,9})");
    std::smatch parts;
    if (!std::regex_match(text, parts, form)) throw Error("--size " + text + ": a size is written as 1920x1080");
    const Size size = {std::stoi(parts[1]), std::stoi(parts[2])};
    for (int side : {size.width, size.height}) {
        if (side == 0 || side % 2 != 0)
            throw Error("--size " + text + ": 4:2:0 frames have even sizes above 0, not " + std::to_string(side));
        if (side > kLargestSide) throw Error("--size " + text + ": sides are at most " + std::to_string(kLargestSide));
    }
    return size;
}

FrameRange parse_frames(const std::string& text) {
    FrameRange range;
    if (text.empty()) return range;
    static const std::regex form("([0-9]{1,15})(-([0-9]{1,15})?)?");
    std::smatch parts;
    if (!std::regex_match(text, parts, form))
        throw Error("--frames " + text + ": frames are written as 10-19, 10- or 10, counted from 0");
    range.first = std::stoll(parts[1]);
    if (!parts[2].matched) range.last = range.first;
    if (parts[3].matched) range.last = std::stoll(parts[3]);
    if (range.last < range.first) throw Error("--frames " + text + ": the last frame comes before the first");
    return range;
}

std::unique_ptr<FrameSource> open_source(const std::string& input, const std::string& size, double rate, bool as_pq) {
    if (!size.empty()) {
        const Size raw = parse_size(size);
        return open_raw(input, raw.width, raw.height, av_d2q(rate, 100100));
    }
    const std::string extension = std::filesystem::path(input).extension().string();
    if (extension == ".p010" || extension == ".yuv" || extension == ".raw")
        throw Error(input + ": raw P010 needs its size, such as --size 1920x1080");
    return open_clip(input, as_pq);
}

double parse_time(const std::string& option, const std::string& text) {
    int64_t microseconds = 0;
    if (av_parse_time(&microseconds, text.c_str(), 1) < 0 || microseconds < 0)
        throw Error(option + " " + text + ": a time is written as 00:01:10, or as seconds such as 70.5");
    return static_cast<double>(microseconds) / 1e6;
}

Part parse_part(const std::string& frames, const std::string& from, const std::string& to) {
    Part part;
    part.frames = parse_frames(frames);
    if (!frames.empty() && !(from.empty() && to.empty()))
        throw Error("--frames picks by number, --from and --to by time: take one of them");
    if (!from.empty()) part.from = parse_time("--from", from);
    if (!to.empty()) part.to = parse_time("--to", to);
    if (part.to <= part.from) throw Error("--to " + to + ": does not come after --from");
    return part;
}

} // namespace lumivert::tool
