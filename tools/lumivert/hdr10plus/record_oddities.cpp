#include "hdr10plus/record_oddities.h"

#include "report.h"

namespace lumivert::tool {

std::vector<std::string> RecordOddities::lines() const {
    std::vector<std::string> lines;
    for (const auto& [line, where] : found_) {
        const auto& [first, count] = where;
        lines.push_back(line + ": " + counted(count, "frame") + ", the first " + std::to_string(first));
    }
    return lines;
}

} // namespace lumivert::tool
