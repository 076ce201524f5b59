// What the workstation stands in for: properties, folders, the choice of a device.
#include <cstdlib>
#include <string>

#include <cutils/properties.h>

#include "opencl_test.h"
#include "platform/paths.h"

TEST(PropertyGet, FitsTheCallersBuffer) {
    char value[PROPERTY_VALUE_MAX + 1];
    value[PROPERTY_VALUE_MAX] = '#';
    const std::string too_long(200, 'x');
    EXPECT_EQ(property_get("vendor.test.unset", value, too_long.c_str()), PROPERTY_VALUE_MAX - 1);
    EXPECT_EQ(value, std::string(PROPERTY_VALUE_MAX - 1, 'x'));
    EXPECT_EQ(value[PROPERTY_VALUE_MAX], '#') << "wrote past the value";
    EXPECT_EQ(property_get("vendor.test.unset", value, nullptr), 0);
    EXPECT_STREQ(value, "");
}

TEST(ResolvePath, MovesTheTwoRootsWhereTheirVariablesAreSet) {
    const struct {
        const char* data; ///< empty counts as unset
        const char* path;
        const char* expected;
    } cases[] = {
        {"", "/data/vendor/media/", "/data/vendor/media/"},
        {"/tmp/d", "/data/vendor/media/x.bin", "/tmp/d/vendor/media/x.bin"},
        {"/tmp/d", "/data", "/tmp/d"},
        {"/tmp/d", "/database/x", "/database/x"},
        {"/tmp/d", "/mnt/data/x", "/mnt/data/x"},
        {"/tmp/d", "/sdcard/DCIM/rgba_out.yuv", "/tmp/s/DCIM/rgba_out.yuv"},
        {"/sdcard/d", "/data/x", "/sdcard/d/x"},
    };
    setenv("EXTERNAL_STORAGE", "/tmp/s", 1);
    for (const auto& [data, path, expected] : cases) {
        setenv("ANDROID_DATA", data, 1);
        EXPECT_EQ(lumivert::platform::resolve_path(path), expected);
    }
}

using DeviceChoice = OpenClTest;

TEST_F(DeviceChoice, StandsInForAGpuOnly) {
    EXPECT_EQ(clGetDeviceIDs(platform, CL_DEVICE_TYPE_CUSTOM, 1, &device, nullptr), CL_DEVICE_NOT_FOUND);
    EXPECT_EQ(clGetDeviceIDs(nullptr, CL_DEVICE_TYPE_GPU, 1, &device, nullptr), CL_INVALID_PLATFORM);
}

TEST_F(DeviceChoice, TakesTheDeviceWhoseLabelContainsTheText) {
    cl_platform_id found = nullptr;
    cl_device_id first = nullptr;
    char name[256] = "";
    ASSERT_EQ(clGetDeviceIDs(platform, CL_DEVICE_TYPE_ALL, 1, &first, nullptr), CL_SUCCESS);
    clGetDeviceInfo(first, CL_DEVICE_NAME, sizeof(name), name, nullptr);
    for (const std::string& text : {std::string("0:0 "), "/ " + std::string(name)}) {
        setenv("LUMIVERT_OPENCL_DEVICE", text.c_str(), 1);
        EXPECT_EQ(clGetPlatformIDs(1, &found, nullptr), CL_SUCCESS) << text;
        EXPECT_EQ(found, platform) << text;
        EXPECT_EQ(clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, nullptr), CL_SUCCESS) << text;
        EXPECT_EQ(device, first) << text;
    }
    setenv("LUMIVERT_OPENCL_DEVICE", "no such device", 1);
    EXPECT_EQ(clGetDeviceIDs(platform, CL_DEVICE_TYPE_GPU, 1, &device, nullptr), CL_DEVICE_NOT_FOUND);
    unsetenv("LUMIVERT_OPENCL_DEVICE");
}
