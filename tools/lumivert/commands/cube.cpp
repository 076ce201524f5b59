#include "commands/cube.h"

#include <filesystem>
#include <optional>

#include "commands/options.h"
#include "engine/lattice.h"
#include "engine/pipeline.h"
#include "error.h"
#include "hdr10plus/record_track.h"
#include "io/cube_file.h"
#include "io/output_file.h"
#include "report.h"

namespace lumivert::tool {
namespace {

/// How the frame is converted.
struct Conversion {
    Mode mode = Mode::kHdr10plus;
    std::optional<Record> record;
    Luminances luminances;
};

Conversion of_metadata(const std::string& input, int64_t frame) {
    const RecordsByFrame list = read_metadata(input);
    if (frame > list.rbegin()->first)
        throw Error(input + ": has no frame " + std::to_string(frame) + ", the last is " +
                    std::to_string(list.rbegin()->first));
    Conversion conversion;
    RecordTrack track(list);
    for (int64_t i = 0; i <= frame; ++i)
        track.advance(i, std::nullopt);
    conversion.record = track.current();
    return conversion;
}

Conversion of_clip(const CurveInput& input, int64_t frame) {
    const auto source = input.open();
    const ClipInfo& clip = source->info();
    Conversion conversion;
    conversion.mode = input.takes_fixed_table(*source) ? Mode::kStaticTable : Mode::kHdr10plus;
    conversion.luminances = luminances_of(clip.static_metadata);
    const Geometry geometry(clip.width, clip.height);
    RecordTrack track;
    SourceFrame found;
    for (int64_t i = 0; i <= frame; ++i) {
        if (!source->skip(geometry, found))
            throw Error(input.path + ": has no frame " + std::to_string(frame) + ", only " + counted(i, "frame"));
        track.advance(i, found.record);
    }
    source->report();
    conversion.record = track.current();
    return conversion;
}

} // namespace

bool CurveInput::is_metadata() const {
    return std::filesystem::path(path).extension() == ".json";
}

std::unique_ptr<FrameSource> CurveInput::open() const {
    return open_source(path, size, 25, as_pq);
}

bool CurveInput::takes_fixed_table(FrameSource& source) const {
    return mode == "static" || (mode == "auto" && !source.has_records());
}

void write_cube(const CurveInput& input, int64_t frame, int size, const std::string& device,
                const std::string& output) {
    check_writable(output);
    const Conversion conversion = input.is_metadata() ? of_metadata(input.path, frame) : of_clip(input, frame);
    const Environment environment(device);
    const Look look = sample_look(size, conversion.mode, conversion.record ? &*conversion.record : nullptr,
                                  conversion.luminances, environment);
    const std::string name = std::filesystem::path(input.path).filename().string();
    const char* way = conversion.mode == Mode::kStaticTable ? "by the fixed table" : "by its HDR10+ tone curve";
    write_document(
        output, cube_text(name + ", frame " + std::to_string(frame) + ", HDR to SDR",
                          {"In: R'G'B' in PQ, BT.2020, full scale 0 to 1 (10000 cd/m2).",
                           "Out: R'G'B' in BT.709, full scale 0 to 1 (clip what is beyond), " + std::string(way) + ".",
                           "Made by running the converter on a lattice; it holds for this frame's record only."},
                          size, look.values));
}

} // namespace lumivert::tool
