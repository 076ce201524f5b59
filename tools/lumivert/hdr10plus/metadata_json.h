/// HDR10+ metadata in the JSON form that HDR10+ tools exchange: one "SceneInfo" object per frame in
/// presentation order, with the same integers as the stream.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "hdr10plus/record.h"

namespace lumivert::tool {

/// Records by frame number, from 0. Frames may be missing.
using RecordsByFrame = std::map<int64_t, Record>;

/// Unknown keys, other versions and missing indices are accepted. Values that do not fit into a record are errors.
/// `path` may be "-" for standard input.
RecordsByFrame read_metadata(const std::string& path);

/// The document for `records`, which must not be empty.
std::string write_metadata(const RecordsByFrame& records);

} // namespace lumivert::tool
