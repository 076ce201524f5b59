/// smallest_frames OUTPUT [EXPECTED]: one small frame through every family, entry point and output format, written to
/// a file one sample after the other; with EXPECTED, the file of another OpenCL implementation, the two are compared.
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "support/host.h"

namespace {

constexpr uint32_t kWidth = 64;
constexpr uint32_t kHeight = 32;

struct Case {
    const char* name;
    _ALGO_t mode;
    bool pool; ///< else retained
    uint32_t nits;
    _Image_ColorFormat format;
    int tolerance; ///< in codes; one RGBA code that rounds differently becomes up to three of P010
};

constexpr Case kCases[] = {
    {"static 1000 pool", HI_JACK, true, 1000, P010_LINEAR, 1},
    {"static 4000 pool", HI_JACK, true, 4000, P010_LINEAR, 1},
    {"static 1000 in place", HI_JACK, false, 1000, P010_LINEAR, 1},
    {"static 4000 in place", HI_JACK, false, 4000, P010_LINEAR, 1},
    {"hdr10plus nv12", NORMAL, true, 1000, NV12, 2},
    {"hdr10plus p010", NORMAL, true, 1000, P010_LINEAR, 8},
    {"hdr10plus rgba", NORMAL, true, 1000, RGBA, 2},
    {"hdr10plus retained nv12", NORMAL, false, 1000, NV12, 2},
};

/// A line for the case, then its samples; planes of 16-bit words as their 10-bit codes.
std::string convert(const Case& c) {
    Frame in(P010_LINEAR, kWidth, kHeight);
    Frame out(c.format, kWidth, kHeight);
    fill_random(in, 7);
    void* instance = nullptr;
    if (CL_HDR2SDR_ARM_init(kWidth, kHeight, c.mode, &instance, c.pool ? 1 : 0) != 1) return "";
    _HDR2SDR_config_params_t i = in.params();
    _HDR2SDR_config_params_t o = out.params();
    HDR10PLUS_DYNAMIC_INFO info{};
    info.maxscl[0] = 20000;
    const uint32_t static_info[] = {c.nits * 10000, 50, 10000000};
    const int converted = c.pool ? CL_HDR2SDR_ARM_convert1(&i, &o, &info, static_info, instance, 0)
                                 : CL_HDR2SDR_ARM_convert(&i, &o, &info, c.nits, instance);
    CL_HDR2SDR_ARM_deinit(instance);
    if (converted != 1) return "";

    Frame& result = c.mode == HI_JACK && !c.pool ? in : out;
    std::ostringstream text;
    text << c.name << '\n';
    for (Plane* plane : {&result.luma, &result.chroma}) {
        if (c.format == RGBA && plane == &result.chroma) break;
        const bool words = c.format == P010_LINEAR;
        for (std::size_t s = 0; s < plane->size() / (words ? 2 : 1); ++s)
            text << (words ? plane->words()[s] >> 6 : plane->bytes()[s]) << '\n';
    }
    return text.str();
}

/// The largest difference between two lists of samples; -1 if they are of different cases or lengths.
int difference(const std::string& text, std::istream& expected) {
    std::istringstream seen(text);
    int largest = 0;
    std::string a;
    std::string b;
    for (bool name = true; std::getline(seen, a); name = false) {
        if (!std::getline(expected, b)) return -1;
        if (name && a != b) return -1;
        if (!name) largest = std::max(largest, std::abs(std::atoi(a.c_str()) - std::atoi(b.c_str())));
    }
    return largest;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) return EXIT_FAILURE;
    const DataFolder folder;
    std::string all;
    std::istringstream expected(argc > 2 ? read_file(argv[2]) : "");
    bool right = true;
    for (const Case& c : kCases) {
        const std::string text = convert(c);
        all += text;
        const int apart = text.empty() ? -1 : argc > 2 ? difference(text, expected) : 0;
        right = right && apart >= 0 && apart <= c.tolerance;
        std::printf("%s: %s\n", c.name, text.empty() ? "not converted" : ("apart by " + std::to_string(apart)).c_str());
    }
    write_file(argv[1], all);
    return right ? EXIT_SUCCESS : EXIT_FAILURE;
}
