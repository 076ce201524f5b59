#include "kernels/device.h"
#include "kernels/lookup_tables.h"
#include "lumivert/hdr10plus.h"

// The device program as text: its pieces, its kernels, its constants and the two tables.

namespace lumivert::test {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using ::testing::StartsWith;

/// Every match of the pattern's first group.
std::vector<std::string> find_all(const std::string& text, const char* pattern) {
    const std::regex regex(pattern);
    std::vector<std::string> found;
    for (std::sregex_iterator it(text.begin(), text.end(), regex), end; it != end; ++it)
        found.push_back((*it)[1]);
    return found;
}

TEST(ProgramText, KernelsAndParametersInOrder) {
    std::string text;
    for (const char* piece : kProgramPieces) {
        EXPECT_THAT(piece, EndsWith("\n"));
        text += piece;
    }
    text = std::regex_replace(text, std::regex("__global |\n"), "");
    text = std::regex_replace(text, std::regex(" +"), " ");
    EXPECT_THAT(
        find_all(text, R"(__kernel void ?(\w+\([^)]*\)))"),
        ElementsAre("process_hdr_to_sdr_io_1000(ushort* io_y, ushort* io_uv)",
                    "process_hdr_to_sdr_1000_inout(ushort* inp_y, ushort* inp_uv, ushort* out_y, ushort* out_uv)",
                    "process_hdr_to_sdr_io_4000(ushort* io_y, ushort* io_uv)",
                    "process_hdr_to_sdr_4000_inout(ushort* inp_y, ushort* inp_uv, ushort* out_y, ushort* out_uv)",
                    "rgba8888_to_p010(uchar* in_rgba, ushort* p_y, ushort* p_uv, const int _W)",
                    "rgba8888_to_nv12(uchar* in_rgba, uchar* p_y, uchar* p_uv, int width)",
                    "rgba8888_to_nv21(uchar* in_rgba, uchar* p_y, uchar* p_uv, int width)",
                    "p010_to_rgba8888(ushort* p_010_y, ushort* p_010_uv, uchar* out_rgba, int width)",
                    "p010_to_rgba8888_process_10plus_clut(ushort* p_010_y, ushort* p_010_uv, uchar* in_rgba, "
                    "int width, int height, uchar* out_rgba, const float normalize_x, const float knee_x, "
                    "float* dtm_lut)",
                    "process_10plus_clut(uchar* in_rgba, uchar* out_rgba, const float normalize_x, "
                    "const float knee_x, float* dtm_lut, const int _W)"));
}

TEST(ProgramText, PiecesAreCutWhereTheyBelong) {
    EXPECT_THAT(kProgramPieces[0], HasSubstr("} HDR10PLUS_TM_CURVE;"));
    EXPECT_THAT(kProgramPieces[1], EndsWith("__kernel void\n"));
    EXPECT_STREQ(kProgramPieces[143], "__kernel void\n");
    for (const unsigned first : {2u, 49u, 96u, 144u}) {
        SCOPED_TRACE(first);
        EXPECT_THAT(kProgramPieces[first], StartsWith("process_hdr_to_sdr_"));
        EXPECT_STREQ(kProgramPieces[first + 1], "{\n");
        EXPECT_THAT(kProgramPieces[first + 2], HasSubstr("constant ushort lookup[1024] = {"));
        EXPECT_STREQ(kProgramPieces[first + 46], first == 2 || first == 49 ? "}\n__kernel void\n" : "}\n");
        const std::regex statement_or_comment(R"( +(//[^\n]*|[^;/]*( / [^;/]*)*;)\n)");
        for (unsigned i = first + 3; i < first + 46; ++i) {
            EXPECT_TRUE(std::regex_match(kProgramPieces[i], statement_or_comment)) << kProgramPieces[i];
        }
    }
    EXPECT_THAT(find_all(kProgramPieces[191], R"(__kernel void (\w+))"), SizeIs(6));
}

TEST(ProgramText, Constants) {
    EXPECT_THAT(find_all(kProgramPieces[1], "#define (.*)\n"),
                ElementsAre("c1 0.8359375f", "c2 18.8515625f", "c3 18.6875f", "TMx 0.3f", "ratio0 25.0f",
                            "gamma22 0.4545454f", "NN 3.0f", "CGain 1.2605042f", "factor 0.0039215f",
                            "factor_luma 0.0011415f", "factor_chroma 0.001116f"));
}

// Without a warning, too. What no kernel uses is tried by one of the test's own: the record and the four-lane clamps.
TEST(ProgramText, RecordAndClampsOnTheDevice) {
    Device device("-cl-fast-relaxed-math -Werror", R"CL(
        __kernel void probe(__global int* layout, __global int* lanes) {
            HDR10PLUS_TM_CURVE c;
            layout[0] = sizeof c;
            layout[1] = (uchar*)&c.normalize_x - (uchar*)&c;
            layout[2] = (uchar*)&c.f_knee_point_x - (uchar*)&c;
            layout[3] = (uchar*)&c.f_knee_point_y - (uchar*)&c;
            layout[4] = (uchar*)&c.num_bezier_curve_anchors - (uchar*)&c;
            layout[5] = sizeof c.num_bezier_curve_anchors;
            layout[6] = (uchar*)&c.f_bezier_curve_anchors - (uchar*)&c;
            vstore4(convert_int4(short4_to_uchar4((short4)(-1, 1, 255, 256))), 0, lanes);
            vstore4(convert_int4(short4_to_ushort10_4((short4)(-1, 1, 1023, 1024))), 1, lanes);
        })CL");
    Plane<cl_int> layout(7), lanes(8);
    device.run("probe", {1, 1}, layout, lanes);
    using Curve = HDR10PLUS_TM_CURVE;
    EXPECT_THAT(layout.copy(), ElementsAre(sizeof(Curve), offsetof(Curve, normalize_x), offsetof(Curve, f_knee_point_x),
                                           offsetof(Curve, f_knee_point_y), offsetof(Curve, num_bezier_curve_anchors),
                                           1, offsetof(Curve, f_bezier_curve_anchors)));
    EXPECT_THAT(lanes.copy(), ElementsAre(0, 1, 255, 255, 0, 1, 1023, 1023));
}

// ---- the two tables ----

struct Table {
    const char* name;
    std::vector<int> values;
    int saturation;   ///< first input code that gives the highest output
    int largest_step; ///< between neighbouring entries
};

std::vector<Table> tables() {
    return {{"1000", table_1000(), 722, 3}, {"4000", table_4000(), 854, 2}};
}

TEST(StaticTables, RiseFromBlackToSaturation) {
    for (const auto& [name, values, saturation, largest_step] : tables()) {
        SCOPED_TRACE(name);
        ASSERT_EQ(values.size(), 1024u);
        int largest = 0;
        for (int i = 1; i < 1024; ++i) {
            EXPECT_GE(values[i], values[i - 1]) << i;
            largest = std::max(largest, values[i] - values[i - 1]);
        }
        EXPECT_EQ(largest, largest_step);
        EXPECT_EQ(values.front(), 63);
        EXPECT_EQ(std::upper_bound(values.begin(), values.end(), 63) - values.begin(), 76) << "first rise";
        EXPECT_EQ(std::lower_bound(values.begin(), values.end(), 939) - values.begin(), saturation);
        EXPECT_EQ(values.back(), 939);
    }
}

TEST(StaticTables, GoThroughTheKnownPoints) {
    struct Row {
        int input, nits_1000, nits_4000;
    };
    const std::vector<int> nits_1000 = table_1000(), nits_4000 = table_4000();
    for (const auto& [input, low, high] : {Row{75, 63, 63},
                                           {76, 64, 64},
                                           {128, 66, 66},
                                           {200, 81, 81},
                                           {256, 115, 115},
                                           {282, 143, 144},
                                           {300, 159, 166},
                                           {400, 283, 262},
                                           {500, 468, 395},
                                           {512, 493, 415},
                                           {600, 693, 577},
                                           {700, 902, 762},
                                           {722, 939, -1},
                                           {800, 939, 895},
                                           {854, 939, 939},
                                           {1023, 939, 939}}) {
        EXPECT_EQ(nits_1000[input], low) << input;
        if (high >= 0) {
            EXPECT_EQ(nits_4000[input], high) << input;
        }
    }
}

// One shadow for both; above it the 4000 cd/m2 table is the brighter one until they cross once, then the darker one.
TEST(StaticTables, PartOnceAndCrossOnce) {
    const std::vector<int> nits_1000 = table_1000(), nits_4000 = table_4000();
    EXPECT_TRUE(std::equal(nits_1000.begin(), nits_1000.begin() + 282, nits_4000.begin()));
    int crossings = 0, side = -1;
    for (int i = 282; i < 854; ++i) {
        const int difference = nits_1000[i] - nits_4000[i];
        if (difference == 0) {
            EXPECT_TRUE(nits_1000[i - 5] < nits_4000[i - 5] && nits_1000[i + 5] > nits_4000[i + 5]) << "tie at " << i;
        } else if ((difference > 0) != (side > 0)) {
            EXPECT_TRUE(i > 300 && i < 400) << i;
            side = -side;
            ++crossings;
        }
    }
    EXPECT_EQ(crossings, 1);
}

TEST(StaticTables, BothKernelsOfATableAgree) {
    EXPECT_EQ(lookup_table(51), table_1000());
    EXPECT_EQ(lookup_table(146), table_4000());
}

} // namespace
} // namespace lumivert::test
