/// A folder in which the library may trust what it finds.
///
/// The library keeps its compiled program in a file and loads whatever that file holds; some drivers crash on a
/// damaged one. A killed process or a full disk leaves such files behind, so on a workstation, where many processes
/// share the folder, each is compared with a digest first, and one process at a time goes through this.
#pragma once

#include <string>

#include "engine/opencl.h"

namespace lumivert::tool {

class ProgramCache {
public:
    /// Points the library at the folder for this device, driver and build of the library, removes what cannot be
    /// trusted, and holds the folder's lock. `codec2` as in CL_HDR2SDR_ARM_init.
    ProgramCache(const Device& device, bool codec2);
    /// Lets the lock go.
    ~ProgramCache();
    ProgramCache(const ProgramCache&) = delete;
    ProgramCache& operator=(const ProgramCache&) = delete;

    /// Vouches for the program that a successful init has left.
    void seal();

private:
    std::string folder_;
    int lock_ = -1;
};

/// The compiled program of the converter that this process made last.
std::string cached_program();

/// Where compiled programs are kept: $XDG_CACHE_HOME/lumivert or ~/.cache/lumivert; or, where that cannot be written or
/// is full, a folder that goes with this process. To be called before anything of OpenCL: drivers keep files there too.
const std::string& cache_folder();

} // namespace lumivert::tool
