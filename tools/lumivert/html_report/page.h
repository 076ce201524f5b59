/// The report as one HTML page that needs no other file.
#pragma once

#include <string>
#include <vector>

#include "html_report/advice.h"
#include "html_report/scenes.h"
#include "html_report/stills.h"

namespace lumivert::tool {

struct ReportContent {
    std::string path, size; ///< of the clip, as given on the command line; `size` of raw frames
    ClipInfo clip;
    ClipLight light;
    std::vector<Disagreement> disagreements;
    std::vector<Advice> advice;
    std::vector<Scene> scenes;
    std::vector<Outputs> outputs; ///< of the tone curve, frame by frame
    std::vector<Jump> jumps;
    std::vector<Still> stills;
    bool as_pq = false;       ///< the clip was accepted only so
    bool fixed_table = false; ///< what mode auto uses
    Record fallback = {};     ///< for frames before the first record
    size_t most_bytes = 0;    ///< for the page
};

/// Leaves stills out if the page would be too large; the page then says so.
std::string report_page(const ReportContent& content);

} // namespace lumivert::tool
