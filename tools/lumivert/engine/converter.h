/// A converter instance, used as a codec component uses it.
#pragma once

#include <cstdint>
#include <string>

#include "engine/environment.h"
#include "frames/planes.h"
#include "hdr10plus/record.h"

namespace lumivert::tool {

enum class Mode { kStaticTable, kHdr10plus };

/// Which entry point converts. It decides how planes reach the GPU.
enum class Entry {
    kPool,     ///< CL_HDR2SDR_ARM_convert1: planes are imported for each frame
    kRetained, ///< CL_HDR2SDR_ARM_convert: imports are kept; the static table converts in place
};

struct Luminances {
    double mastering_peak = 0; ///< cd/m2; 0: unknown
    double max_cll = 0;
};

class Converter {
public:
    Converter(const Geometry& geometry, Mode mode, Entry entry, const Environment& environment);
    ~Converter();
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    /// Whether the result is written into the input planes.
    bool in_place() const { return mode_ == Mode::kStaticTable && entry_ == Entry::kRetained; }

    /// Converts `in` to `out`, or in place if `in_place()`. Without a record, the default for the luminances is used.
    /// Returns false if `interval` skips the frame. Throws when the library reports an error.
    bool convert(const Planes& in, const Planes& out, const Record* record, const Luminances& luminances,
                 int interval = 0);

    /// Where its planes should come from: dma-bufs where the driver imports them itself.
    platform::PlaneSource plane_source() const { return plane_source_; }

    double init_ms() const { return init_ms_; }
    /// The file with the compiled program.
    const std::string& program() const { return program_; }

private:
    Mode mode_;
    Entry entry_;
    platform::PlaneSource plane_source_;
    void* instance_ = nullptr;
    double init_ms_ = 0;
    std::string program_;
};

} // namespace lumivert::tool
