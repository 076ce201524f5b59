#include "kernels/device.h"
#include "kernels/lookup_tables.h"
#include "kernels/oracle.h"

// The four static tone-mapping kernels against a computation per sample in double precision.

namespace lumivert::test {
namespace {

void check(Device& device, const std::string& kernel, const std::vector<int>& table, const P010& in) {
    constexpr uint16_t kUntouched = 0x1111;
    const bool in_place = kernel.find("_io_") != std::string::npos;
    Plane<uint16_t> y(in.y), uv(in.uv), out_y(y.size(), kUntouched), out_uv(uv.size(), kUntouched);
    const std::array<size_t, 2> blocks = {size_t(in.width) / 2, size_t(in.height) / 2};
    if (in_place) {
        device.run(kernel.c_str(), blocks, y, uv);
    } else {
        device.run(kernel.c_str(), blocks, y, uv, out_y, out_uv);
        EXPECT_EQ(y.copy(), in.y) << "input changed";
        EXPECT_EQ(uv.copy(), in.uv) << "input changed";
    }
    Plane<uint16_t>&luma = in_place ? y : out_y, &chroma = in_place ? uv : out_uv;

    const std::string what = kernel + ", " + in.name;
    expect_static(table, in.y.data(), in.uv.data(), in.width, in.height, luma.begin(), chroma.begin(), what);
    for (size_t i = in.height / 2 * 2 * in.width; i < luma.size(); ++i) // an odd last row stays as it was
        EXPECT_EQ(luma.begin()[i], in_place ? in.y[i] : kUntouched) << what;
}

TEST(StaticKernels, AgreeWithTheOracle) {
    Device device;
    for (const Picture& picture : pictures(1023, true)) {
        for (const auto& [width, height] : {std::pair{2, 2}, {6, 4}, {10, 5}, {130, 34}, {256, 130}}) {
            const P010 in(width, height, picture);
            for (const char* kernel : {"process_hdr_to_sdr_io_1000", "process_hdr_to_sdr_1000_inout"})
                check(device, kernel, table_1000(), in);
            for (const char* kernel : {"process_hdr_to_sdr_io_4000", "process_hdr_to_sdr_4000_inout"})
                check(device, kernel, table_4000(), in);
        }
    }
}

} // namespace
} // namespace lumivert::test
