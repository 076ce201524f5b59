/// Any bytes as an HDR10+ JSON file: refused with the tool's own error, or read into records that are within their
/// bounds and that come back the same after writing.
#include <sys/mman.h>
#include <unistd.h>

#include "error.h"
#include "fuzz/fuzz.h"
#include "hdr10plus/metadata_json.h"

namespace {

using namespace lumivert::tool;

RecordsByFrame read_back(const std::string& json) {
    static const int file = memfd_create("fuzz", MFD_CLOEXEC);
    fuzz::require(ftruncate(file, 0) == 0 && pwrite(file, json.data(), json.size(), 0) == ssize_t(json.size()),
                  "the file holds its bytes");
    return read_metadata("/proc/self/fd/" + std::to_string(file));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RecordsByFrame records;
    try {
        records = read_back(fuzz::text(data, size));
    } catch (const Error&) {
        return 0;
    }
    for (const auto& [frame, record] : records) {
        fuzz::require(frame >= 0, "frames count from 0");
        fuzz::require(record.num_maxrgb_percentiles <= kMaxPoints, "distribution within the record");
        fuzz::require(record.num_bezier_curve_anchors <= kMaxPoints, "anchors within the record");
    }
    fuzz::require(read_back(write_metadata(records)) == records, "what was written reads back");
    return 0;
}
