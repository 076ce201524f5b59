/// What makes no sense in the records of a clip.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "hdr10plus/record.h"

namespace lumivert::tool {

class RecordOddities {
public:
    void add(int64_t frame, const Record& record) {
        for (const std::string& line : complaints(record))
            ++found_.try_emplace(line, frame, 0).first->second.second;
    }

    /// "a knee point above 4095: 3 frames, the first 12", a line for each kind.
    std::vector<std::string> lines() const;

private:
    std::map<std::string, std::pair<int64_t, int64_t>> found_; ///< first frame and number of frames
};

} // namespace lumivert::tool
