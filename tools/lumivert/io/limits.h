/// What the operating system lets this process use.
#pragma once

namespace lumivert::tool {

/// A note for error lines where the process runs under a tight limit, such as " (limited to 700 MB of address space and
/// 16 open files)"; empty otherwise. May be called from a signal handler.
const char* limits_note();

/// Throws unless this process may open as many files as OpenCL drivers and codecs need: short of descriptors, they fail
/// in ways of their own.
void require_descriptors();

} // namespace lumivert::tool
