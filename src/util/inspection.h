/// What a person who debugs sees of a conversion: traces in the log, frames dumped to files.
///
/// Traces need the bits of `debug_level` that their lines name; dumps need `dump_request`. Without those the functions
/// here do nothing. `Formatter::filewrite` and `Formatter::dump_ocl` are implemented beside them.
#pragma once

#include <memory>

#include "lumivert/converter.h"
#include "util/formatter.h"

namespace lumivert {

// ---- traces -------------------------------------------------------------------------------------------------------

/// Descriptor and size of both planes of a frame. `name` is the record's, "In_params" or "Out_params".
void trace_planes(const _HDR2SDR_config_params_t& params, const char* name);

/// All entries of a registry map under the map's name; nothing for an empty map.
void trace_map(const char* name, const std::shared_ptr<ImportedBuffers>& map);

/// Every field of a frame's HDR10+ record, array entries past the valid count included.
void trace_metadata(const HDR10PLUS_DYNAMIC_INFO& info);

// ---- dumps --------------------------------------------------------------------------------------------------------

/// Appends both planes of a frame to a file in the media folder.
void dump_planes(Formatter& formatter, const _HDR2SDR_config_params_t& params, _Image_ColorFormat format,
                 const char* file_name);

/// Dumps the tone-mapped RGBA picture. For RGBA output that is the caller's plane, appended to rgba_out.yuv in the
/// media folder. For other formats it is the memory of the second work buffer, written to the camera folder, even after
/// an earlier RGBA frame has made `target_rgba_buffer` name a caller's plane.
void dump_rgba(Formatter& formatter, const _HDR2SDR_config_params_t& out);

/// Dumps NV12 output. The planes' sizes follow from the instance's frame size; the caller's are not looked at.
void dump_nv12(Formatter& formatter, _HDR2SDR_config_params_t out);

} // namespace lumivert
