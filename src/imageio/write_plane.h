/// The sample writer behind the save functions, and how this module gives up.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace lumivert {

/// Writes `message` to the standard error stream and ends the process with status 1.
[[noreturn]] void fail(const std::string& message);

/// Writes a plane's samples, least significant byte first, in whole groups; bytes that do not fill a group are left
/// out. Samples have 1, 2 or 4 bytes in the machine's order; any other width ends the process as soon as there is a
/// group to write. Groups of no bytes write nothing.
void write_plane(std::ostream& out, unsigned bytes_per_sample, unsigned samples_per_group,
                 const std::vector<uint8_t>& plane);

} // namespace lumivert
