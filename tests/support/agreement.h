/// A comparison with the reference as a test's outcome.
#pragma once

#include <gtest/gtest.h>

#include "reference/frames.h"

namespace lumivert::test {

inline testing::AssertionResult agrees(const reference::Comparison& comparison) {
    if (comparison.samples == 0) return testing::AssertionFailure() << "nothing was compared";
    if (comparison.wrong == 0) return testing::AssertionSuccess();
    const reference::Comparison::Sample& worst = comparison.worst;
    return testing::AssertionFailure() << comparison.wrong << " of " << comparison.samples
                                       << " samples are wrong, worst " << worst.component << " at (" << worst.x << ", "
                                       << worst.y << "): " << worst.value << ", not " << worst.expected.low << ".."
                                       << worst.expected.high;
}

} // namespace lumivert::test
