/// What is unusual about a clip, in words, and what to do about it.
#pragma once

#include <string>
#include <vector>

#include "light/clip_light.h"

namespace lumivert::tool {

struct Advice {
    std::string what, what_to_do;
};

/// `fixed_table`: mode auto converts the clip by a fixed table.
std::vector<Advice> advice_for(const ClipInfo& clip, const ClipLight& light,
                               const std::vector<Disagreement>& disagreements, bool fixed_table);

} // namespace lumivert::tool
