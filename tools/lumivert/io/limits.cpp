#include "io/limits.h"

#include <cstdio>

#include <sys/resource.h>

#include "error.h"

namespace lumivert::tool {
namespace {

constexpr rlim_t kFewFiles = 256; // the tool, its drivers and codecs use about 50

rlim_t limit_of(int resource) {
    rlimit limit = {};
    return getrlimit(resource, &limit) == 0 ? limit.rlim_cur : RLIM_INFINITY;
}

} // namespace

void require_descriptors() {
    constexpr rlim_t kNeeded = 32; // measured: PoCL's compiler and linker with a decoder and an encoder need 24
    const rlim_t files = limit_of(RLIMIT_NOFILE);
    if (files < kNeeded)
        throw Error("a conversion needs " + std::to_string(kNeeded) + " open files, but the limit here is " +
                    std::to_string(files) + " (see ulimit -n)");
}

const char* limits_note() {
    static char note[100] = "";
    const rlim_t memory = limit_of(RLIMIT_AS), files = limit_of(RLIMIT_NOFILE);
    char memory_text[50] = "", files_text[50] = "";
    if (memory != RLIM_INFINITY)
        std::snprintf(memory_text, sizeof memory_text, "%llu MB of address space",
                      static_cast<unsigned long long>(memory >> 20));
    if (files < kFewFiles)
        std::snprintf(files_text, sizeof files_text, "%llu open files", static_cast<unsigned long long>(files));
    const bool either = memory_text[0] != '\0' || files_text[0] != '\0';
    const bool both = memory_text[0] != '\0' && files_text[0] != '\0';
    std::snprintf(note, sizeof note, "%s%s%s%s%s", either ? " (limited to " : "", memory_text, both ? " and " : "",
                  files_text, either ? ")" : "");
    return note;
}

} // namespace lumivert::tool
