#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <regex>
#include <set>

#include "kernels/device.h"
#include "kernels/lookup_tables.h"
#include "lumivert/hdr10plus.h"

// The device program as text: its pieces and the two tables. The assembly itself checks the kernels' names and order.

namespace lumivert::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(ProgramText, PiecesAreCutWhereTheyBelong) {
    for (const char* piece : kProgramPieces)
        EXPECT_THAT(piece, EndsWith("\n"));
    EXPECT_THAT(kProgramPieces[0], HasSubstr("} HDR10PLUS_TM_CURVE;"));
    EXPECT_THAT(kProgramPieces[1], EndsWith("__kernel void\n"));
    EXPECT_STREQ(kProgramPieces[143], "__kernel void\n");
    EXPECT_THAT(kProgramPieces[191], StartsWith("__kernel void rgba8888_to_p010("));
    const std::regex statement_or_comment(R"( +(//[^\n]*|[^;/]*( / [^;/]*)*;)\n)");
    for (const unsigned first : {2U, 49U, 96U, 144U}) {
        EXPECT_THAT(kProgramPieces[first], StartsWith("process_hdr_to_sdr_"));
        EXPECT_STREQ(kProgramPieces[first + 1], "{\n");
        EXPECT_THAT(kProgramPieces[first + 2],
                    HasSubstr("constant ushort lookup[1024] __attribute__((aligned(4))) = {"));
        for (unsigned i = first + 3; i < first + 46; ++i)
            EXPECT_TRUE(std::regex_match(kProgramPieces[i], statement_or_comment)) << kProgramPieces[i];
        EXPECT_STREQ(kProgramPieces[first + 46], first < 96 ? "}\n__kernel void\n" : "}\n");
    }
}

// Compilers differ in what they take beyond the language they are asked for, so each at hand has its say; this test
// also runs on other OpenCL implementations. Newer attributes pass in some that should refuse them.
TEST(ProgramText, IsOpenClC12ToEveryCompiler) {
    const Device device("-cl-std=CL1.2 -cl-fast-relaxed-math -Werror");

    std::string text;
    for (const char* piece : kProgramPieces)
        text += piece;
    for (const char* clang : {"clang", "clang-13", "clang-14", "clang-15", "clang-16", "clang-17", "clang-18",
                              "clang-19", "clang-20", "clang-21"}) {
        const std::string at_hand = std::string("command -v ") + clang + " >/dev/null";
        if (std::system(at_hand.c_str()) != 0) continue;
        const std::string compile = std::string(clang) + " -x cl -cl-std=CL1.2 -Xclang -finclude-default-header "
                                                         "-fsyntax-only -Wall -Wextra -Wpedantic -Wno-unused -Werror "
                                                         "-Wno-unused-parameter -";
        FILE* const compiler = popen(compile.c_str(), "w");
        ASSERT_NE(compiler, nullptr);
        EXPECT_EQ(std::fwrite(text.data(), 1, text.size(), compiler), text.size()) << clang;
        EXPECT_EQ(pclose(compiler), 0) << clang;
    }

    const std::regex attribute(R"(__attribute__\s*\(\(\s*(\w+))");
    const std::set<std::string> in_version_1_2 = {
        "aligned", "endian", "packed", "reqd_work_group_size", "vec_type_hint", "work_group_size_hint"};
    for (std::sregex_iterator found(text.begin(), text.end(), attribute), end; found != end; ++found)
        EXPECT_EQ(in_version_1_2.count((*found)[1]), 1U) << (*found)[1];
}

// Without a warning, too. What no kernel uses is tried by one of the test's own: the record and the four-lane clamps.
TEST(ProgramText, RecordAndClampsOnTheDevice) {
    Device device("-cl-fast-relaxed-math -Werror", R"CL(
        __kernel void probe(__global uchar* record, __global int* lanes) {
            __global HDR10PLUS_TM_CURVE* c = (__global HDR10PLUS_TM_CURVE*)record;
            c->f_bezier_curve_anchors[c->num_bezier_curve_anchors] =
                c->normalize_x + 10 * c->f_knee_point_x + 100 * c->f_knee_point_y;
            vstore4(convert_int4(short4_to_uchar4((short4)(-1, 1, 255, 256))), 0, lanes);
            vstore4(convert_int4(short4_to_ushort10_4((short4)(-1, 1, 1023, 1024))), 1, lanes);
        })CL");
    Plane<uint8_t> record(sizeof(HDR10PLUS_TM_CURVE));
    auto& curve = *reinterpret_cast<HDR10PLUS_TM_CURVE*>(record.begin());
    curve = {1, 2, 3, 14, {}};
    Plane<cl_int> lanes(8);
    device.run("probe", {1, 1}, record, lanes);
    EXPECT_EQ(curve.f_bezier_curve_anchors[14], 321);
    EXPECT_THAT(lanes.copy(), ElementsAre(0, 1, 255, 255, 0, 1, 1023, 1023));
}

TEST(StaticTables, RiseThroughTheKnownPoints) {
    const int inputs[] = {0, 75, 76, 128, 200, 256, 282, 300, 400, 500, 512, 600, 700, 800, 1023};
    const struct {
        std::vector<int> values, outputs;
        int saturation; ///< first input that gives the highest output
        int largest_step;
    } tables[] = {
        {table_1000(), {63, 63, 64, 66, 81, 115, 143, 159, 283, 468, 493, 693, 902, 939, 939}, 722, 3},
        {table_4000(), {63, 63, 64, 66, 81, 115, 144, 166, 262, 395, 415, 577, 762, 895, 939}, 854, 2},
    };
    for (const auto& [values, outputs, saturation, largest_step] : tables) {
        ASSERT_EQ(values.size(), 1024U);
        for (size_t i = 0; i < outputs.size(); ++i)
            EXPECT_EQ(values[inputs[i]], outputs[i]) << inputs[i];
        EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
        EXPECT_EQ(std::lower_bound(values.begin(), values.end(), 939) - values.begin(), saturation);
        std::vector<int> steps(1024);
        std::adjacent_difference(values.begin(), values.end(), steps.begin());
        EXPECT_EQ(*std::max_element(steps.begin() + 1, steps.end()), largest_step);
    }
    EXPECT_TRUE(std::equal(&tables[0].values[0], &tables[0].values[282], &tables[1].values[0]))
        << "one shadow for both";
    // From there on the tables differ, up to the second one's saturation: they cross in one step.
    for (size_t i = 282; i < 854; ++i) {
        const int ahead = tables[0].values[i] - tables[1].values[i];
        EXPECT_TRUE(i < 345 ? ahead < 0 : ahead > 0) << i;
    }
    EXPECT_THAT(std::vector<int>(&tables[0].values[344], &tables[0].values[346]), ElementsAre(208, 210));
    EXPECT_THAT(std::vector<int>(&tables[1].values[344], &tables[1].values[346]), ElementsAre(209, 209));
}

} // namespace
} // namespace lumivert::test
