/// An instance as its caller has it, ended with the test.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hdr10plus/default_metadata.h"
#include "lumivert/converter.h"
#include "support/host.h"
#include "support/log_capture.h"
#include "support/opencl_spy.h"
#include "util/formatter.h"

class Instance {
public:
    Instance(uint32_t width, uint32_t height, _ALGO_t mode, bool c2 = true) {
        EXPECT_EQ(CL_HDR2SDR_ARM_init(width, height, mode, &mHandle, c2 ? 1 : 0), 1);
    }
    ~Instance() {
        if (mHandle != nullptr) CL_HDR2SDR_ARM_deinit(mHandle);
    }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    void* handle() const { return mHandle; }
    lumivert::Formatter& engine() const { return *static_cast<lumivert::Formatter*>(mHandle); }

    int convert(const Frame& in, const Frame& out, HDR10PLUS_DYNAMIC_INFO* metadata, uint32_t nits = 1000) const {
        _HDR2SDR_config_params_t i = in.params();
        _HDR2SDR_config_params_t o = out.params();
        return CL_HDR2SDR_ARM_convert(&i, &o, metadata, nits, mHandle);
    }
    /// `peak` is the mastering peak in 0.0001 cd/m2.
    int convert1(const Frame& in, const Frame& out, HDR10PLUS_DYNAMIC_INFO* metadata, uint32_t peak = 10000000,
                 int interval = 0) const {
        _HDR2SDR_config_params_t i = in.params();
        _HDR2SDR_config_params_t o = out.params();
        const uint32_t static_info[] = {peak, 50, 10000000};
        return CL_HDR2SDR_ARM_convert1(&i, &o, metadata, static_info, mHandle, interval);
    }

private:
    void* mHandle = nullptr;
};

/// The default record for content of up to 1000 cd/m2.
inline HDR10PLUS_DYNAMIC_INFO default_record() {
    HDR10PLUS_DYNAMIC_INFO info{};
    lumivert::default_metadata(0, 0, &info);
    return info;
}

/// The line a failed OpenCL call leaves.
inline std::string failure_line(const std::string& function, const std::string& code, int tag) {
    return "E [" + function + "] failed ! error string is " + code + " Line number is " + std::to_string(tag) + " ";
}

/// A test with its own data partition, all log lines and all OpenCL calls.
class EngineTest : public testing::Test {
protected:
    EngineTest() {
        spy::reset();
        set_property("vendor.Lumivert.debug.level", "1");
        set_property("vendor.Lumivert.debug.dump", "0");
        set_property("ro.build.fingerprint", "brand/product/device:12/ABC1.230101.001/AB12CD34:user/release-keys");
    }

    DataFolder folder;
    LogCapture log;
};
