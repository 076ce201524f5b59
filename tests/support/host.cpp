#include "support/host.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>

#include <android-base/properties.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::map<std::string, std::string> g_properties;

} // namespace

DataFolder::DataFolder() {
    char path[] = "/tmp/lumivert-test-XXXXXX";
    mRoot = mkdtemp(path);
    fs::create_directories(mRoot + "/data/vendor/media");
    fs::create_directories(mRoot + "/sdcard/DCIM/Camera");
    setenv("ANDROID_DATA", (mRoot + "/data").c_str(), 1);
    setenv("EXTERNAL_STORAGE", (mRoot + "/sdcard").c_str(), 1);
}

DataFolder::~DataFolder() {
    fs::remove_all(mRoot);
}

std::string DataFolder::media(const std::string& name) const {
    return mRoot + "/data/vendor/media/" + name;
}
std::string DataFolder::camera(const std::string& name) const {
    return mRoot + "/sdcard/DCIM/Camera/" + name;
}

std::vector<std::string> DataFolder::media_files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(media()))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

bool on_rusticl() { // asked of the environment: OpenCL starts threads, and tests that fork ask first
    const char* vendors = std::getenv("OCL_ICD_VENDORS");
    return vendors != nullptr && std::string(vendors).find("rusticl") != std::string::npos;
}

void write_file(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// In place of libbase's: from version 34 on, that sets a property whose name begins with "ro." only once.
__attribute__((visibility("default"))) std::string android::base::GetProperty(const std::string& key,
                                                                              const std::string& default_value) {
    const auto found = g_properties.find(key);
    return found == g_properties.end() || found->second.empty() ? default_value : found->second;
}

void set_property(const std::string& key, const std::string& value) {
    g_properties[key] = value;
}

namespace {

std::size_t whole_blocks(uint32_t width, uint32_t height) {
    return std::size_t{(width + 3) / 4 * 4} * ((height + 1) / 2 * 2);
}

} // namespace

Frame::Frame(_Image_ColorFormat format_, uint32_t width, uint32_t height)
    : format(format_), luma(whole_blocks(width, height) * (format == RGBA          ? 4
                                                           : format == P010_LINEAR ? 2
                                                                                   : 1)),
      chroma(whole_blocks(width, height) / (format == NV12 ? 2 : 1)) {}

Footprint footprint() {
    malloc_trim(0);
    Footprint now{};
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    now.resident_kib = pages * (sysconf(_SC_PAGESIZE) / 1024);
    const fs::directory_iterator open("/proc/self/fd");
    now.descriptors = static_cast<int>(std::distance(begin(open), end(open)));
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        now.plane_mappings += line.find("memfd:") != std::string::npos ? 1 : 0;
    return now;
}

void fill_random(Frame& frame, uint32_t seed) {
    std::mt19937 random(seed);
    for (Plane* plane : {&frame.luma, &frame.chroma}) {
        std::generate_n(plane->words(), plane->size() / 2, [&] { return static_cast<uint16_t>(random()); });
    }
}
