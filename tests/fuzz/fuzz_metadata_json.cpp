/// Any bytes as an HDR10+ JSON file: refused with the tool's own error, or read into records that are within their
/// bounds and that come back the same after writing.
#include "error.h"
#include "fuzz/fuzz.h"
#include "hdr10plus/metadata_json.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace lumivert::tool;
    const fuzz::MemoryFile file(fuzz::Input(data, size).rest());
    RecordsByFrame records;
    try {
        records = read_metadata(file.path());
    } catch (const Error&) {
        return 0;
    }
    for (const auto& [frame, record] : records) {
        fuzz::require(frame >= 0, "frames count from 0");
        fuzz::require(record.num_maxrgb_percentiles <= max_points, "distribution within the record");
        fuzz::require(record.num_bezier_curve_anchors <= max_points, "anchors within the record");
    }
    const fuzz::MemoryFile copy(write_metadata(records));
    fuzz::require(read_metadata(copy.path()) == records, "what was written reads back");
    return 0;
}
