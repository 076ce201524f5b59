/// The program text taken apart: what the tests read back out of the pieces.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "kernels/program_text.h"

namespace lumivert::test {

/// The 1024 values of the table that a static kernel's third piece declares.
inline std::vector<int> lookup_table(unsigned piece) {
    const std::string text = kProgramPieces[piece];
    std::istringstream list(text.substr(text.find('{') + 1));
    std::vector<int> values;
    for (int value; list >> value; list.ignore(1, ','))
        values.push_back(value);
    return values;
}

inline std::vector<int> table_1000() {
    return lookup_table(4);
}
inline std::vector<int> table_4000() {
    return lookup_table(98);
}

} // namespace lumivert::test
