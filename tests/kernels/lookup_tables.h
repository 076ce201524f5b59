/// The program text taken apart: what the tests read back out of the pieces.
#pragma once

#include "kernels/program_text.h"

#include <regex>
#include <string>
#include <vector>

namespace lumivert::test {

/// The 1024 values of the table that a static kernel's third piece declares.
inline std::vector<int> lookup_table(unsigned piece) {
    const std::string text = kProgramPieces[piece];
    const std::string list = text.substr(text.find('{'), text.find('}') - text.find('{'));
    const std::regex number("[0-9]+");
    std::vector<int> values;
    for (std::sregex_iterator it(list.begin(), list.end(), number), end; it != end; ++it) {
        values.push_back(std::stoi(it->str()));
    }
    return values;
}

inline std::vector<int> table_1000() {
    return lookup_table(4);
}
inline std::vector<int> table_4000() {
    return lookup_table(98);
}

} // namespace lumivert::test
