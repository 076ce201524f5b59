/// The table of cases. Each runs in a process of its own and calls only the library's four entry points.
#pragma once

#include <string>
#include <vector>

#include "facts.h"
#include "lumivert/converter.h"
#include "planes.h"

namespace lumivert::check {

/// What a conversion is told of the light: the master's peak in mode HI_JACK, the record in mode NORMAL.
enum class Light {
    kMaster0,
    kMaster1000,
    kMaster1001,
    kMaster4000,
    kMaster4001,
    kGradedForThisDisplay, ///< the record's own curve as it is
    kGradedForBrighter,    ///< mixed with a generated curve
    kGradedForDimmer,      ///< mixed with the identity
    kNoCurve,              ///< a generated curve
    kNoCurveDarkScene,
    kNoCurveBrightScene,  ///< on a display not far below the scene
    kNoCurveBrightMaster, ///< on a display far below the scene
    kDimScene,            ///< below the display's peak: the identity
    kFewAnchors,          ///< two, which count for nothing
    kManyAnchors,         ///< fifteen
    kNoRecord1000,
    kNoRecord4000,
};

/// A path and what goes through it.
struct Conversion {
    const char* name;
    _ALGO_t mode;
    bool pool; ///< CL_HDR2SDR_ARM_convert1, else CL_HDR2SDR_ARM_convert
    _Image_ColorFormat output;
    Light light;
};

struct Size {
    int width, height;
};

/// What a case finds out goes into its facts: "ok" (1 or 0), "detail" where it is not ok, and figures.
struct Case {
    enum class Group { kFrames, kLife, kSpeed };
    using Run = void (*)(const Case&, PlaneSource, Facts&);

    std::string name;
    Group group;
    Run run;
    Conversion conversion;
    Size size;
    int repeats;
};

/// All cases, or those that an interpreter or an emulator gets through.
std::vector<Case> all_cases(bool quick);

} // namespace lumivert::check
