/// The surroundings of an instance in a test: its own data partition, properties, planes in shared memory.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

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

void write_file(const std::string& path, const std::string& bytes);
std::string read_file(const std::string& path); ///< empty if there is none

/// Sets a property; an empty value unsets it.
void set_property(const std::string& key, const std::string& value);

/// A plane in a memfd, mapped for the test. The descriptor is closed at the end.
class Plane {
public:
    explicit Plane(std::size_t bytes);
    ~Plane();
    Plane(const Plane&) = delete;
    Plane& operator=(const Plane&) = delete;

    _MULTIPLANE_t handle() const { return {mFd, 0, static_cast<int32_t>(mBytes)}; }
    uint8_t* bytes() { return mMapping; }
    uint16_t* words() { return reinterpret_cast<uint16_t*>(mMapping); }
    std::size_t size() const { return mBytes; }
    std::string contents() const { return {reinterpret_cast<char*>(mMapping), mBytes}; }
    void fill(uint8_t value) { std::fill_n(mMapping, mBytes, value); }

private:
    int mFd;
    std::size_t mBytes;
    std::size_t mMapped;
    uint8_t* mMapping;
};

/// A frame of two planes, allocated for whole blocks of 4 x 2 pixels.
struct Frame {
    Frame(_Image_ColorFormat format, uint32_t width, uint32_t height);
    _HDR2SDR_config_params_t params() const { return {format, {luma.handle(), chroma.handle()}}; }

    _Image_ColorFormat format;
    Plane luma;
    Plane chroma;
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
