#include "io/cube_file.h"

#include <algorithm>
#include <cstdio>

namespace lumivert::tool {

std::string cube_text(const std::string& title, const std::vector<std::string>& remarks, int size,
                      const std::vector<std::array<float, 3>>& values) {
    std::string quoted = title;
    std::replace(quoted.begin(), quoted.end(), '"', '\'');
    std::replace(quoted.begin(), quoted.end(), '\n', ' ');
    std::string text = "TITLE \"" + quoted + "\"\n";
    for (const std::string& remark : remarks)
        text += "# " + remark + "\n";
    text += "LUT_3D_SIZE " + std::to_string(size) + "\nDOMAIN_MIN 0 0 0\nDOMAIN_MAX 1 1 1\n";
    char line[64];
    for (const auto& value : values) {
        std::snprintf(line, sizeof line, "%.6f %.6f %.6f\n", value[0], value[1], value[2]);
        text += line;
    }
    return text;
}

} // namespace lumivert::tool
