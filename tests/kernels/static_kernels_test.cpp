#include "kernels/lookup_tables.h"
#include "kernels/oracle.h"

// The four static tone-mapping kernels against a computation per sample in double precision.

namespace lumivert::test {
namespace {

struct StaticKernel {
    const char* name;
    bool in_place;
    unsigned nits;
};
const StaticKernel kStaticKernels[] = {{"process_hdr_to_sdr_io_1000", true, 1000},
                                       {"process_hdr_to_sdr_1000_inout", false, 1000},
                                       {"process_hdr_to_sdr_io_4000", true, 4000},
                                       {"process_hdr_to_sdr_4000_inout", false, 4000}};

void check(Device& device, const StaticKernel& kernel, int width, int height, const Picture& picture) {
    const std::vector<int> table = kernel.nits == 1000 ? table_1000() : table_4000();
    const P010 in(width, height, picture);
    Plane<uint16_t> y(in.y.size(), in.y), uv(in.uv.size(), in.uv), out_y(y.size(), 0x1111), out_uv(uv.size(), 0x1111);
    const std::array<size_t, 2> blocks = {size_t(width) / 2, size_t(height) / 2};
    if (kernel.in_place) {
        device.run(kernel.name, blocks, y, uv);
    } else {
        device.run(kernel.name, blocks, y, uv, out_y, out_uv);
        EXPECT_EQ(y.copy(), in.y) << "input changed";
        EXPECT_EQ(uv.copy(), in.uv) << "input changed";
    }
    Plane<uint16_t>&luma = kernel.in_place ? y : out_y, &chroma = kernel.in_place ? uv : out_uv;

    const std::string what = std::string(kernel.name) + ", " + in.name;
    expect_static(table, in.y.data(), in.uv.data(), width, height, luma.begin(), chroma.begin(), what);
    if (height % 2 != 0) { // an odd last row stays as it was
        for (size_t i = size_t(height - 1) * width; i < luma.size(); ++i)
            EXPECT_EQ(luma[i], kernel.in_place ? in.y[i] : 0x1111) << what;
    }
}

TEST(StaticKernels, AgreeWithTheOracle) {
    Device device;
    for (const StaticKernel& kernel : kStaticKernels) {
        for (const Picture& picture : pictures(1023, true)) {
            for (const auto& [width, height] : {std::pair{2, 2}, {6, 4}, {10, 5}, {130, 34}, {256, 130}}) {
                check(device, kernel, width, height, picture);
            }
        }
    }
}

// Under every luma code a neutral chroma pair stays what it is, to the code.
TEST(StaticKernels, NeutralStaysNeutral) {
    Device device;
    Plane<uint16_t> y(4096), uv(2048, 512 << 6);
    for (size_t i = 0; i < y.size(); ++i)
        y[i] = static_cast<uint16_t>(i % 2048 / 2 << 6);
    device.run("process_hdr_to_sdr_io_1000", {1024, 1}, y, uv);
    EXPECT_THAT(uv.copy(), ::testing::Each(512 << 6));
}

} // namespace
} // namespace lumivert::test
