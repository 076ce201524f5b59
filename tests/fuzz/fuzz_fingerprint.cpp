/// Any text as a build fingerprint: the build identifier is what a regular expression finds in it.
#include <regex>

#include "fuzz/fuzz.h"
#include "util/formatter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string fingerprint = fuzz::text(data, size);
    const std::string found = lumivert::Formatter::getAPSoftwareVersion(fingerprint);
    if (size > 1000) return 0; // std::regex takes stack for every byte
    static const std::regex identifier("([^\\/]+)(?=:user|:eng)");
    std::smatch match;
    const bool matches = std::regex_search(fingerprint, match, identifier);
    fuzz::require(found == (matches ? match.str() : ""), "the build identifier");
    return 0;
}
