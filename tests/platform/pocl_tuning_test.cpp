// The text put before programs on CPU devices: as good a powr as relaxed math needs, and nothing else changed.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>

#include "opencl_test.h"

class PoclTuning : public OpenClTest {
protected:
    /// A kernel for each exponent of the device program (1/m2 and 1/m1 of SMPTE ST 2084, and the display's encoding)
    /// and for another one. They take the three channels of a pixel at a time, as the program does.
    void SetUp() override {
        OpenClTest::SetUp();
        program_ = build(R"CL(
            #define POWER(name, exponent) kernel void name(global float* v) { size_t i = 3 * get_global_id(0); \
                vstore3(powr((float3)(v[i], v[i + 1], v[i + 2]), (float3)(exponent)), 0, v + i); }
            POWER(pq_code, 0.0126833135156559f)
            POWER(pq_ratio, 6.2773946360153259f)
            POWER(display, 0.45f)
            POWER(another, 2.5f))CL",
                         "-cl-fast-relaxed-math");
    }

    void TearDown() override {
        clReleaseProgram(program_);
        OpenClTest::TearDown();
    }

    std::vector<float> powers(const char* name, std::vector<float> bases) {
        const size_t count = bases.size(), items = (count + 2) / 3;
        bases.resize(3 * items, 1.0F);
        cl_kernel kernel = clCreateKernel(program_, name, nullptr);
        const size_t bytes = bases.size() * sizeof(float);
        cl_mem buffer = clCreateBuffer(context, CL_MEM_COPY_HOST_PTR, bytes, bases.data(), nullptr);
        clSetKernelArg(kernel, 0, sizeof(cl_mem), &buffer);
        EXPECT_EQ(clEnqueueNDRangeKernel(queue, kernel, 1, nullptr, &items, nullptr, 0, nullptr, nullptr), CL_SUCCESS);
        clEnqueueReadBuffer(queue, buffer, CL_TRUE, 0, bytes, bases.data(), 0, nullptr, nullptr);
        clReleaseMemObject(buffer);
        clReleaseKernel(kernel);
        bases.resize(count);
        return bases;
    }

    /// Expects powers of normal bases in (0, 1] to be as good as exp2(y * log2(x)) gets in single precision: each of
    /// the steps adds to the error, the product in proportion to its size. This holds without fused multiply-add.
    void expect_powers(const char* name, float exponent, const std::vector<float>& bases) {
        const std::vector<float> result = powers(name, bases);
        for (size_t i = 0; i < bases.size(); ++i) {
            const double y = exponent, exact = std::pow(static_cast<double>(bases[i]), y);
            const double bound = (3 + y + std::abs(std::log2(exact))) * 0x1p-23;
            ASSERT_NEAR(result[i] / exact, 1, bound) << bases[i] << " to " << exponent;
        }
    }

    /// Every `step`th float from `first` to 1, and 1.
    void expect_powers_up_to_1(const char* name, float exponent, float first, uint32_t step) {
        uint32_t bits = 0, one = 0;
        const float last = 1;
        std::memcpy(&bits, &first, sizeof(bits));
        std::memcpy(&one, &last, sizeof(one));
        constexpr size_t kAtATime = 3 << 18;
        std::vector<float> bases = {last};
        while (!bases.empty()) {
            expect_powers(name, exponent, bases);
            if (HasFatalFailure()) return;
            bases.resize(bits > one ? 0 : std::min<size_t>(kAtATime, (one - bits) / step + 1));
            for (float& base : bases) {
                std::memcpy(&base, &bits, sizeof(base));
                bits += step;
            }
        }
    }

    /// From the smallest base that a pixel of PQ code 1 gives. The code's own power has no more than 256 bases.
    void expect_powers_of_pixels(uint32_t step) {
        std::vector<float> codes;
        for (int code = 1; code < 256; ++code)
            codes.push_back(static_cast<float>(code) * 0.0039215F);
        expect_powers("pq_code", 0.0126833135156559F, codes);
        expect_powers_up_to_1("pq_ratio", 6.2773946360153259F, 0.06F, step);
        expect_powers_up_to_1("display", 0.45F, FLT_MIN, step);
    }

private:
    cl_program program_ = nullptr;
};

TEST_F(PoclTuning, PowrIsCloseToThePower) {
    expect_powers_of_pixels(4999); // a prime: all low bits occur
}

// Every base that a pixel can reach: a minute.
TEST_F(PoclTuning, DISABLED_PowrIsCloseToThePowerEverywhere) {
    expect_powers_of_pixels(1);
}

TEST_F(PoclTuning, PowersOfBlackAndWhite) {
    for (const char* name : {"pq_code", "pq_ratio", "display"}) {
        const std::vector<float> ends = powers(name, {0.0F, 1.0F});
        EXPECT_NEAR(ends[0], 0, 1e-17) << name;
        EXPECT_EQ(ends[1], 1) << name;
    }
}

TEST_F(PoclTuning, OtherExponentsKeepTheirPower) {
    expect_powers("another", 2.5F, {0.001F, 0.25F, 0.9F, 1.0F});
}

TEST_F(PoclTuning, ErrorsKeepTheirLines) {
    cl_program program = build("// one\n\nkernel void k() { nonsense; }\n", "", CL_BUILD_PROGRAM_FAILURE);
    EXPECT_NE(build_log(program).find(":3:"), std::string::npos) << build_log(program);
    clReleaseProgram(program);
}
