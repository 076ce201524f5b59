/// Writing samples for the save functions, and ending the process on failure.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace lumivert {

/// Writes `message` to the standard error stream and ends the process with status 1.
[[noreturn]] void fail(const std::string& message);

/// Writes a plane's samples, least significant byte first, in whole groups of `samples_per_group`; bytes that do not
/// fill a group are not written. `plane` holds samples of `bytes_per_sample` bytes in the machine's byte order: 1, 2 or
/// 4; any other number ends the process if there is a group to write. Writes nothing if a group has no bytes.
void write_plane(std::ostream& out, unsigned bytes_per_sample, unsigned samples_per_group,
                 const std::vector<uint8_t>& plane);

} // namespace lumivert
