/// What the fuzz targets share. Each target is one LLVMFuzzerTestOneInput, libFuzzer's interface; a broken property
/// ends the process, which libFuzzer takes for a find.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

inline void require(bool holds, const char* property) {
    if (holds) return;
    std::fprintf(stderr, "broken: %s\n", property);
    std::abort();
}

inline std::string text(const uint8_t* data, size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

} // namespace fuzz
