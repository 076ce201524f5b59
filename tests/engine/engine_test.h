/// The fixture of an engine test: its own data folder, all log lines, all OpenCL calls. What it stands on, from the
/// bottom:
///
///   tests/run.sh            the process's environment: home, caches, one OpenCL implementation
///   support/host.h          data folder, properties, planes in shared memory, frames, instances, what a process holds
///   support/log_capture.h   the log's lines and the texts of fatal checks
///   support/opencl_spy.h    every OpenCL call, recorded and failed on demand
///   support/agreement.h     samples against check/reference, which computes what must come out
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hdr10plus/default_metadata.h"
#include "lumivert/converter.h"
#include "support/host.h"
#include "support/log_capture.h"
#include "support/opencl_spy.h"
#include "util/formatter.h"

/// What an instance holds.
inline lumivert::Formatter& engine_of(const Instance& instance) {
    return *static_cast<lumivert::Formatter*>(instance.handle());
}

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
