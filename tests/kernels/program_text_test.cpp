#include "kernels/device.h"
#include "kernels/lookup_tables.h"
#include "lumivert/hdr10plus.h"

#include <map>

// The device program as text: its pieces, its kernels, its constants and the two tables.

namespace lumivert::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string whole_program() {
    std::string text;
    for (const char* piece : kProgramPieces)
        text += piece;
    return text;
}

/// Every match of the pattern's first group.
std::vector<std::string> find_all(const std::string& text, const char* pattern) {
    const std::regex regex(pattern);
    std::vector<std::string> found;
    for (std::sregex_iterator it(text.begin(), text.end(), regex), end; it != end; ++it)
        found.push_back((*it)[1]);
    return found;
}

TEST(ProgramText, PiecesEndWithANewline) {
    for (const char* piece : kProgramPieces)
        EXPECT_THAT(piece, ::testing::EndsWith("\n"));
}

TEST(ProgramText, KernelsAndParametersInOrder) {
    std::vector<std::string> signatures = find_all(whole_program(), R"(__kernel\s+void\s+(\w+\([^)]*\)))");
    for (std::string& signature : signatures)
        signature = std::regex_replace(signature, std::regex(R"(\s+)"), " ");
    EXPECT_THAT(signatures,
                ElementsAre("process_hdr_to_sdr_io_1000(__global ushort* io_y, __global ushort* io_uv)",
                            "process_hdr_to_sdr_1000_inout(__global ushort* inp_y, __global ushort* inp_uv, "
                            "__global ushort* out_y, __global ushort* out_uv)",
                            "process_hdr_to_sdr_io_4000(__global ushort* io_y, __global ushort* io_uv)",
                            "process_hdr_to_sdr_4000_inout(__global ushort* inp_y, __global ushort* inp_uv, "
                            "__global ushort* out_y, __global ushort* out_uv)",
                            "rgba8888_to_p010(__global uchar* in_rgba, __global ushort* p_y, __global ushort* p_uv, "
                            "const int _W)",
                            "rgba8888_to_nv12(__global uchar* in_rgba, __global uchar* p_y, __global uchar* p_uv, "
                            "int width)",
                            "rgba8888_to_nv21(__global uchar* in_rgba, __global uchar* p_y, __global uchar* p_uv, "
                            "int width)",
                            "p010_to_rgba8888(__global ushort* p_010_y, __global ushort* p_010_uv, "
                            "__global uchar* out_rgba, int width)",
                            "p010_to_rgba8888_process_10plus_clut(__global ushort* p_010_y, "
                            "__global ushort* p_010_uv, __global uchar* in_rgba, int width, int height, "
                            "__global uchar* out_rgba, const float normalize_x, const float knee_x, "
                            "__global float* dtm_lut)",
                            "process_10plus_clut(__global uchar* in_rgba, __global uchar* out_rgba, "
                            "const float normalize_x, const float knee_x, __global float* dtm_lut, const int _W)"));
}

TEST(ProgramText, PiecesAreCutWhereTheyBelong) {
    EXPECT_THAT(kProgramPieces[0], HasSubstr("} HDR10PLUS_TM_CURVE;"));
    EXPECT_THAT(kProgramPieces[1], ::testing::EndsWith("__kernel void\n"));
    EXPECT_STREQ(kProgramPieces[143], "__kernel void\n");
    for (const unsigned first : {2u, 49u, 96u, 144u}) {
        SCOPED_TRACE(first);
        EXPECT_THAT(kProgramPieces[first], ::testing::StartsWith("process_hdr_to_sdr_"));
        EXPECT_STREQ(kProgramPieces[first + 1], "{\n");
        EXPECT_THAT(kProgramPieces[first + 2], HasSubstr("constant ushort lookup[1024] = {"));
        EXPECT_STREQ(kProgramPieces[first + 46], first == 2 || first == 49 ? "}\n__kernel void\n" : "}\n");
        for (unsigned i = first + 3; i < first + 46; ++i) { // one statement or one comment
            EXPECT_TRUE(std::regex_match(kProgramPieces[i], std::regex(R"( +(//[^\n]*|[^;/]*( / [^;/]*)*;)\n)")))
                << kProgramPieces[i];
        }
    }
    EXPECT_THAT(find_all(kProgramPieces[191], R"(__kernel void (\w+))"), ::testing::SizeIs(6));
}

TEST(ProgramText, Constants) {
    const std::map<std::string, std::string> expected = {{"c1", "0.8359375f"},
                                                         {"c2", "18.8515625f"},
                                                         {"c3", "18.6875f"},
                                                         {"TMx", "0.3f"},
                                                         {"ratio0", "25.0f"},
                                                         {"NN", "3.0f"},
                                                         {"CGain", "1.2605042f"},
                                                         {"gamma22", "0.4545454f"},
                                                         {"factor", "0.0039215f"},
                                                         {"factor_luma", "0.0011415f"},
                                                         {"factor_chroma", "0.001116f"}};
    std::map<std::string, std::string> defined;
    const std::string text = kProgramPieces[1];
    const std::regex define("#define (\\w+) (\\S+)");
    for (std::sregex_iterator it(text.begin(), text.end(), define), end; it != end; ++it)
        defined[(*it)[1]] = (*it)[2];
    EXPECT_EQ(defined, expected);
}

TEST(ProgramText, CompilesWithoutWarnings) {
    Device("-cl-fast-relaxed-math -Werror");
}

// The helpers of the program's head, run on the device, and the record that both sides declare.
TEST(ProgramText, RecordAndHelpersOnTheDevice) {
    Device device("-cl-fast-relaxed-math", R"CL(
        __kernel void layout(__global uint* out) {
            HDR10PLUS_TM_CURVE c;
            out[0] = sizeof c;
            out[1] = (uchar*)&c.normalize_x - (uchar*)&c;
            out[2] = (uchar*)&c.f_knee_point_x - (uchar*)&c;
            out[3] = (uchar*)&c.f_knee_point_y - (uchar*)&c;
            out[4] = (uchar*)&c.num_bezier_curve_anchors - (uchar*)&c;
            out[5] = (uchar*)&c.f_bezier_curve_anchors - (uchar*)&c;
        }
        __kernel void helpers(__global ushort* words, __global uchar* bytes, __global uint* out) {
            vstore4(convert_uint4(short4_to_uchar4((short4)(-1, 0, 255, 256))), 0, out);
            vstore4(convert_uint4(short4_to_ushort10_4((short4)(-1, 1, 1023, 1024))), 1, out);
            if (get_global_id(0) == 6 && get_global_id(1) == 5) {
                out[8] = calc_ushort_ptr(words, 100, 3) - words;
                out[9] = calc_uchar_ptr(bytes, 100, 3) - bytes;
                out[10] = calc_ushort_ptr_modified(words, 100, 3) - words;
                out[11] = calc_uchar_ptr_modified(bytes, 100, 3) - bytes;
            }
        })CL");
    Plane<cl_uint> layout(6);
    device.run("layout", {1, 1}, layout);
    EXPECT_THAT(layout.copy(),
                ElementsAre(sizeof(HDR10PLUS_TM_CURVE), offsetof(HDR10PLUS_TM_CURVE, normalize_x),
                            offsetof(HDR10PLUS_TM_CURVE, f_knee_point_x), offsetof(HDR10PLUS_TM_CURVE, f_knee_point_y),
                            offsetof(HDR10PLUS_TM_CURVE, num_bezier_curve_anchors),
                            offsetof(HDR10PLUS_TM_CURVE, f_bezier_curve_anchors)));

    Plane<uint16_t> words(1);
    Plane<uint8_t> bytes(1);
    Plane<cl_uint> out(12);
    device.run("helpers", {8, 8}, words, bytes, out);
    EXPECT_THAT(out.copy(), ElementsAre(0, 0, 255, 255, 0, 1, 1023, 1023, 518, 518, 203, 203));
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
