/// The surroundings of an instance in a test: its own data partition, properties, planes in shared memory.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <platform/plane_memory.h>

#include "lumivert/converter.h"

/// A fresh folder that stands for /data and /sdcard while this lives, with media and camera folders in it.
class DataFolder {
public:
    DataFolder();
    ~DataFolder();
    DataFolder(const DataFolder&) = delete;
    DataFolder& operator=(const DataFolder&) = delete;

    std::string media(const std::string& name = "") const;  ///< in /data/vendor/media
    std::string camera(const std::string& name = "") const; ///< in /sdcard/DCIM/Camera
    std::vector<std::string> media_files() const;           ///< names, sorted

private:
    std::string mRoot;
};

/// Whether the OpenCL implementation under test is Mesa's rusticl.
bool on_rusticl();

void write_file(const std::string& path, const std::string& bytes);
std::string read_file(const std::string& path); ///< empty if there is none

/// Sets a property; an empty value unsets it.
void set_property(const std::string& key, const std::string& value);

/// A plane in shared memory.
class Plane {
public:
    explicit Plane(std::size_t bytes) : mBytes(bytes), mMemory(lumivert::platform::PlaneSource::kSharedMemory, bytes) {
        if (mMemory.data() == nullptr) std::abort();
    }

    _MULTIPLANE_t handle() const { return {descriptor(), 0, static_cast<int32_t>(mBytes)}; }
    int descriptor() const { return mMemory.descriptor(); }
    uint8_t* bytes() { return mMemory.data(); }
    uint16_t* words() { return reinterpret_cast<uint16_t*>(mMemory.data()); }
    std::size_t size() const { return mBytes; }
    std::string contents() const { return {reinterpret_cast<char*>(mMemory.data()), mBytes}; }
    void fill(uint8_t value) { std::fill_n(mMemory.data(), mBytes, value); }

private:
    std::size_t mBytes;
    lumivert::platform::PlaneMemory mMemory;
};

/// A frame of two planes, allocated for whole blocks of 4 x 2 pixels.
struct Frame {
    Frame(_Image_ColorFormat format, uint32_t width, uint32_t height);
    _HDR2SDR_config_params_t params() const { return {format, {luma.handle(), chroma.handle()}}; }

    _Image_ColorFormat format;
    Plane luma;
    Plane chroma;
};

/// An instance as its caller has it, ended with this.
class Instance {
public:
    Instance(uint32_t width, uint32_t height, _ALGO_t mode, bool c2 = true)
        : mResult(CL_HDR2SDR_ARM_init(width, height, mode, &mHandle, c2 ? 1 : 0)) {}
    ~Instance() {
        if (mHandle != nullptr) CL_HDR2SDR_ARM_deinit(mHandle);
    }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    void* handle() const { return mHandle; }
    int result() const { return mResult; } ///< of init

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
    int mResult;
};

/// What this process holds.
struct Footprint {
    long resident_kib;
    int descriptors;
    int plane_mappings;
};
Footprint footprint();

/// Fills both planes with seeded random P010 codes; the low six bits are noise too.
void fill_random(Frame& frame, uint32_t seed);
