/// Any text as a build fingerprint: the build identifier is what a plain search for it finds.
#include "fuzz/fuzz.h"
#include "util/formatter.h"

namespace {

/// The first part between slashes in which ":user" or ":eng" follows something, up to the last of these.
std::string expected_identifier(const std::string& fingerprint) {
    for (size_t start = 0; start <= fingerprint.size();) {
        const size_t end = std::min(fingerprint.find('/', start), fingerprint.size());
        const std::string part = fingerprint.substr(start, end - start);
        size_t length = 0;
        for (const char* mark : {":user", ":eng"}) {
            const size_t last = part.rfind(mark);
            if (last != std::string::npos) length = std::max(length, last);
        }
        if (length > 0) return part.substr(0, length);
        start = end + 1;
    }
    return "";
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string fingerprint = fuzz::text(data, size);
    fuzz::require(lumivert::Formatter::getAPSoftwareVersion(fingerprint) == expected_identifier(fingerprint),
                  "the build identifier");
    return 0;
}
