/// A folder whose compiled programs the library can trust.
///
/// The library keeps its compiled program in a file and loads whatever that file holds, and some drivers crash on a
/// damaged one. A killed process or a full disk leaves such files behind. On a workstation many processes share the
/// folder, so each file is compared with its digest before an init, and one process at a time does so.
#pragma once

#include <string>

#include <android-base/unique_fd.h>

#include "engine/environment.h"

namespace lumivert::tool {

class ProgramCache {
public:
    /// Points the library at the folder for this device, driver and build of the library, removes damaged
    /// programs, and locks the folder as long as this lives. `codec2` as in CL_HDR2SDR_ARM_init.
    ProgramCache(const Environment& environment, bool codec2);
    /// To be called after a successful init: stores the digest of the program it left, so that later runs trust it.
    /// Returns the program's file.
    std::string seal();

private:
    std::string folder_;
    android::base::unique_fd lock_;
};

} // namespace lumivert::tool
