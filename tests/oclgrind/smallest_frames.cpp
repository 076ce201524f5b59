/// smallest_frames OUTPUT [EXPECTED]: one small frame through every family, entry point and output format, written to
/// a file of 16-bit samples; with EXPECTED, the file of another OpenCL implementation, the two are compared.
#include <cstdio>
#include <cstdlib>
#include <cstring>

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

/// The samples of a converted frame, 10-bit codes or bytes; none if it was not converted.
std::vector<uint16_t> convert(const Case& c) {
    Frame in(P010_LINEAR, kWidth, kHeight);
    Frame out(c.format, kWidth, kHeight);
    fill_random(in, 7);
    HDR10PLUS_DYNAMIC_INFO info{};
    info.maxscl[0] = 20000;
    const Instance instance(kWidth, kHeight, c.mode, c.pool);
    const int converted =
        c.pool ? instance.convert1(in, out, &info, c.nits * 10000) : instance.convert(in, out, &info, c.nits);
    if (converted != 1) return {};

    std::vector<uint16_t> samples;
    Frame& result = c.mode == HI_JACK && !c.pool ? in : out;
    for (Plane* plane : {&result.luma, &result.chroma}) {
        if (c.format == P010_LINEAR) {
            for (std::size_t i = 0; i < plane->size() / 2; ++i)
                samples.push_back(plane->words()[i] >> 6);
        } else {
            samples.insert(samples.end(), plane->bytes(), plane->bytes() + plane->size());
        }
    }
    return samples;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) return EXIT_FAILURE;
    const DataFolder folder;
    const std::string expected = argc > 2 ? read_file(argv[2]) : "";
    std::string all;
    bool right = true;
    for (const Case& c : kCases) {
        std::vector<uint16_t> samples = convert(c);
        right = right && !samples.empty();
        const std::size_t bytes = samples.size() * sizeof(uint16_t);
        int apart = 0;
        if (argc > 2 && all.size() + bytes <= expected.size()) {
            std::vector<uint16_t> others(samples.size());
            std::memcpy(others.data(), &expected[all.size()], bytes);
            for (std::size_t i = 0; i < samples.size(); ++i)
                apart = std::max(apart, std::abs(samples[i] - others[i]));
        }
        all.append(reinterpret_cast<const char*>(samples.data()), bytes);
        right = right && apart <= c.tolerance;
        std::printf("%s: %zu samples, apart by %d\n", c.name, samples.size(), apart);
    }
    write_file(argv[1], all);
    return right && (argc < 3 || all.size() == expected.size()) ? EXIT_SUCCESS : EXIT_FAILURE;
}
