#include "engine/program_cache.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include <CL/cl.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

extern "C" {
#include <libavutil/hash.h>
}

#include "error.h"
#include "io/output_file.h"
#include "lumivert/converter.h"
#include "report.h"

namespace lumivert::tool {
namespace {

namespace fs = std::filesystem;

constexpr char kDigestExtension[] = ".sha256";

std::string sha256(const std::string& bytes) {
    AVHashContext* hash = nullptr;
    if (av_hash_alloc(&hash, "SHA256") < 0) throw Error("FFmpeg has no SHA-256");
    av_hash_init(hash);
    av_hash_update(hash, reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    char hex[2 * AV_HASH_MAX_SIZE + 1] = "";
    av_hash_final_hex(hash, reinterpret_cast<uint8_t*>(hex), sizeof hex);
    av_hash_freep(&hash);
    return hex;
}

std::string contents(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string library_of(const void* function) {
    Dl_info library = {};
    dladdr(function, &library);
    return contents(library.dli_fname);
}

/// Names the program of this device, driver, library and host platform: each of them decides what the compiler makes.
std::string program_name(const Device& device) {
    const std::string libraries = library_of(reinterpret_cast<const void*>(&CL_HDR2SDR_ARM_init)) +
                                  library_of(reinterpret_cast<const void*>(&clCreateProgramWithSource));
    return sha256(device.platform + device.name + device.version + device.driver + libraries).substr(0, 16);
}

std::vector<fs::path> programs(const fs::path& folder) {
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(folder))
        if (entry.path().extension() == ".bin") found.push_back(entry.path());
    return found;
}

/// In the folder above its program: the library takes other files beside its program for outdated programs, deletes
/// them and starts over.
fs::path digest_of(const fs::path& program) {
    return program.parent_path().parent_path() / (program.filename().string() + kDigestExtension);
}

} // namespace

ProgramCache::ProgramCache(const Environment& environment, bool codec2) {
    const std::string name = program_name(environment.device());
    // One folder for each kind of client, because the library keeps one program per folder and deletes others.
    const fs::path root = fs::path(environment.cache_folder()) / (name + (codec2 ? "-c2" : "-omx"));
    const fs::path media = root / "vendor" / "media";
    std::error_code error;
    fs::create_directories(media, error);
    if (error) throw Error(media.string() + ": " + error.message());
    folder_ = media.string();
    environment.set_program_place(root, "lumivert/workstation/host:1/1/" + name + ":user/release-keys");

    lock_.reset(open((root / "lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0666));
    if (lock_ < 0 || flock(lock_, LOCK_EX) != 0) throw system_error((root / "lock").string());
    for (const fs::path& program : programs(media)) {
        if (contents(digest_of(program)) == sha256(contents(program))) continue;
        detail("removing " + program.string() + ", which an interrupted run left");
        fs::remove(program, error);
        fs::remove(digest_of(program), error);
    }
}

std::string ProgramCache::seal() {
    const auto left = programs(folder_);
    for (const fs::path& program : left)
        if (!fs::exists(digest_of(program))) write_document(digest_of(program).string(), sha256(contents(program)));
    return left.empty() ? "" : left.front().string();
}

} // namespace lumivert::tool
