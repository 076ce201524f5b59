#include "commands/options.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <optional>
#include <string_view>

extern "C" {
#include <libavutil/parseutils.h>
}

#include "error.h"

namespace lumivert::tool {
namespace {

/// Takes a decimal number of at most `most` off the front of `text`; nothing if there is none.
std::optional<int64_t> take_number(std::string_view& text, int64_t most) {
    int64_t value = 0;
    if (text.empty() || text[0] == '-') return std::nullopt;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || value > most) return std::nullopt;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return value;
}

bool take(std::string_view& text, char c) {
    const bool found = !text.empty() && text[0] == c;
    if (found) text.remove_prefix(1);
    return found;
}

/// Planes of 4:2:0, which every reader of a source fills, hold even sizes.
void check_size(const std::string& name, const ClipInfo& clip) {
    const std::string size = name + ": " + std::to_string(clip.width) + "x" + std::to_string(clip.height);
    if (clip.width % 2 != 0 || clip.height % 2 != 0) throw Error(size + ": odd sizes cannot be converted");
    if (std::max(clip.width, clip.height) > kLargestSide)
        throw Error(size + ": sides are at most " + std::to_string(kLargestSide));
}

} // namespace

Size parse_size(const std::string& text) {
    constexpr int64_t kMost = 999'999'999;
    std::string_view rest = text;
    const auto width = take_number(rest, kMost);
    const bool cross = take(rest, 'x');
    const auto height = take_number(rest, kMost);
    if (!width || !cross || !height || !rest.empty())
        throw Error("--size " + text + ": a size is written as 1920x1080");
    const Size size = {static_cast<int>(*width), static_cast<int>(*height)};
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
    constexpr int64_t kMost = 999'999'999'999'999;
    std::string_view rest = text;
    const auto first = take_number(rest, kMost);
    const bool dash = take(rest, '-');
    const auto last = dash ? take_number(rest, kMost) : first;
    if (!first || !rest.empty())
        throw Error("--frames " + text + ": frames are written as 10-19, 10- or 10, counted from 0");
    range.first = *first;
    if (last) range.last = *last;
    if (range.last < range.first) throw Error("--frames " + text + ": the last frame comes before the first");
    return range;
}

std::unique_ptr<FrameSource> open_source(const std::string& input, const std::string& size, double rate, bool as_pq,
                                         bool keep_others) {
    if (!size.empty()) {
        const Size raw = parse_size(size);
        return open_raw(input, raw.width, raw.height, av_d2q(rate, 100100));
    }
    const std::string extension = std::filesystem::path(input).extension().string();
    if (extension == ".p010" || extension == ".yuv" || extension == ".raw")
        throw Error(input + ": raw P010 needs its size, such as --size 1920x1080");
    auto clip = open_clip(input, as_pq, keep_others);
    check_size(input, clip->info());
    return clip;
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
