// What the workstation stands in for: properties, folders, the choice of a device.
#include <algorithm>
#include <cstdlib>
#include <string>

#include <CL/cl.h>
#include <android-base/properties.h>
#include <cutils/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/paths.h"

TEST(PropertyGet, CopiesTheValueOrTheDefaultAndReturnsItsLength) {
    const std::string longest(PROPERTY_VALUE_MAX - 1, 'x'), too_long = longest + "tail";
    android::base::SetProperty("vendor.test.set", "7");
    const struct {
        const char* key;
        const char* fallback;
        std::string expected;
    } cases[] = {
        {"vendor.test.set", "1", "7"},
        {"vendor.test.set", nullptr, "7"},
        {"vendor.test.unset", "1", "1"},
        {"vendor.test.unset", "", ""},
        {"vendor.test.unset", nullptr, ""},
        {"vendor.test.unset", longest.c_str(), longest},
        {"vendor.test.unset", too_long.c_str(), longest},
    };
    for (const auto& [key, fallback, expected] : cases) {
        char value[PROPERTY_VALUE_MAX + 1];
        std::fill(std::begin(value), std::end(value), '#');
        EXPECT_EQ(property_get(key, value, fallback), static_cast<int>(expected.size()));
        EXPECT_EQ(value, expected);
        EXPECT_EQ(value[PROPERTY_VALUE_MAX], '#') << "wrote past the value";
    }
}

TEST(ResolvePath, MovesTheTwoRootsWhereTheirVariablesAreSet) {
    const struct {
        const char* data;
        const char* shared;
        const char* path;
        const char* expected;
    } cases[] = {
        {nullptr, nullptr, "/data/vendor/media/", "/data/vendor/media/"},
        {"", nullptr, "/data/vendor", "/data/vendor"},
        {"/tmp/d", nullptr, "/data/vendor/media/x.bin", "/tmp/d/vendor/media/x.bin"},
        {"/tmp/d", nullptr, "/data", "/tmp/d"},
        {"/tmp/d", nullptr, "/database/x", "/database/x"},
        {"/tmp/d", nullptr, "/mnt/data/x", "/mnt/data/x"},
        {"/tmp/d", nullptr, "/sdcard/x", "/sdcard/x"},
        {"/tmp/d", "/tmp/s", "/sdcard/DCIM/rgba_out.yuv", "/tmp/s/DCIM/rgba_out.yuv"},
        {"/sdcard/d", "/tmp/s", "/data/x", "/sdcard/d/x"},
    };
    for (const auto& [data, shared, path, expected] : cases) {
        data ? setenv("ANDROID_DATA", data, 1) : unsetenv("ANDROID_DATA");
        shared ? setenv("EXTERNAL_STORAGE", shared, 1) : unsetenv("EXTERNAL_STORAGE");
        EXPECT_EQ(lumivert::platform::resolve_path(path), expected);
    }
}

class DeviceChoice : public testing::Test {
protected:
    ~DeviceChoice() override { unsetenv("LUMIVERT_OPENCL_DEVICE"); }

    static cl_platform_id first_platform() {
        cl_platform_id platform = nullptr;
        clGetPlatformIDs(1, &platform, nullptr);
        return platform;
    }

    static std::string name(cl_device_id device) {
        char text[256] = "";
        clGetDeviceInfo(device, CL_DEVICE_NAME, sizeof(text), text, nullptr);
        return text;
    }
};

TEST_F(DeviceChoice, AnswersAGpuRequestWithWhatThereIs) {
    cl_device_id all[16] = {}, answer = nullptr;
    cl_uint count = 0;
    ASSERT_EQ(clGetDeviceIDs(first_platform(), CL_DEVICE_TYPE_ALL, 16, all, &count), CL_SUCCESS);
    ASSERT_EQ(clGetDeviceIDs(first_platform(), CL_DEVICE_TYPE_GPU, 1, &answer, nullptr), CL_SUCCESS);
    const auto is_gpu = [](cl_device_id device) {
        cl_device_type type = 0;
        clGetDeviceInfo(device, CL_DEVICE_TYPE, sizeof(type), &type, nullptr);
        return (type & CL_DEVICE_TYPE_GPU) != 0;
    };
    EXPECT_EQ(is_gpu(answer), std::any_of(all, all + count, is_gpu));
    EXPECT_EQ(clGetDeviceIDs(first_platform(), CL_DEVICE_TYPE_CUSTOM, 1, &answer, nullptr), CL_DEVICE_NOT_FOUND)
        << "only a GPU is stood in for";
}

TEST_F(DeviceChoice, RefusesANullPlatform) {
    cl_device_id device = nullptr;
    EXPECT_EQ(clGetDeviceIDs(nullptr, CL_DEVICE_TYPE_GPU, 1, &device, nullptr), CL_INVALID_PLATFORM);
}

TEST_F(DeviceChoice, TakesTheDeviceWhoseLabelContainsTheText) {
    const cl_platform_id usual = first_platform();
    cl_device_id first = nullptr, device = nullptr;
    ASSERT_EQ(clGetDeviceIDs(usual, CL_DEVICE_TYPE_ALL, 1, &first, nullptr), CL_SUCCESS);
    for (const std::string& text : {std::string("0:0 "), name(first), "/ " + name(first).substr(0, 4)}) {
        setenv("LUMIVERT_OPENCL_DEVICE", text.c_str(), 1);
        EXPECT_EQ(first_platform(), usual) << text;
        EXPECT_EQ(clGetDeviceIDs(usual, CL_DEVICE_TYPE_GPU, 1, &device, nullptr), CL_SUCCESS) << text;
        EXPECT_EQ(device, first) << text;
    }
    setenv("LUMIVERT_OPENCL_DEVICE", "no such device", 1);
    EXPECT_EQ(clGetDeviceIDs(usual, CL_DEVICE_TYPE_GPU, 1, &device, nullptr), CL_DEVICE_NOT_FOUND);
}
