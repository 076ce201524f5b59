#include "engine/program_cache.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include <android-base/properties.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

extern "C" {
#include <libavutil/hash.h>
}

#include "error.h"
#include "io/cleanup.h"
#include "io/output_file.h"
#include "lumivert/converter.h"
#include "report.h"

namespace lumivert::tool {
namespace {

namespace fs = std::filesystem;

constexpr char kDigestExtension[] = ".sha256";
constexpr uintmax_t kRoomNeeded = 16 << 20; // a compiled program and the driver's own cache files

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

/// Names a program: another driver, device or build of the library, or of the platform that compiles in its own way,
/// makes another one.
std::string program_name(const Device& device) {
    const std::string libraries = library_of(reinterpret_cast<const void*>(&CL_HDR2SDR_ARM_init)) +
                                  library_of(reinterpret_cast<const void*>(&clCreateProgramWithSource));
    return sha256(device.platform + device.name + device.version + device.driver + libraries).substr(0, 16);
}

bool usable(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    return access(folder.c_str(), W_OK | X_OK) == 0 && fs::space(folder, error).available > kRoomNeeded && !error;
}

std::vector<fs::path> programs(const fs::path& folder) {
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(folder))
        if (entry.path().extension() == ".bin") found.push_back(entry.path());
    return found;
}

/// In the folder above: beside its program, the library could take it for an outdated one and start over.
fs::path digest_of(const fs::path& program) {
    return program.parent_path().parent_path() / (program.filename().string() + kDigestExtension);
}

} // namespace

std::string cached_program() {
    const char* root = std::getenv("ANDROID_DATA");
    const auto found = programs(fs::path(root != nullptr ? root : "") / "vendor" / "media");
    if (found.empty()) throw Error("no compiled program");
    return contents(found.front());
}

const std::string& cache_folder() {
    static const std::string chosen = [] {
        const char* cache = std::getenv("XDG_CACHE_HOME");
        const char* home = std::getenv("HOME");
        std::string preferred = cache != nullptr && *cache != '\0'
                                    ? std::string(cache) + "/lumivert"
                                    : std::string(home != nullptr ? home : "/nonexistent") + "/.cache/lumivert";
        if (usable(preferred)) return preferred;
        for (const char* place : {"/tmp", "/dev/shm"}) {
            std::string folder = std::string(place) + "/lumivert.XXXXXX";
            if (mkdtemp(folder.data()) == nullptr) continue;
            remove_at_exit(folder);
            if (!usable(folder)) continue;
            detail(preferred + " cannot be written; compiling the GPU program anew");
            setenv("POCL_CACHE_DIR", (folder + "/pocl").c_str(), 0); // its own would lie beside ours
            return folder;
        }
        throw Error(preferred + ": no room to keep the compiled GPU program");
    }();
    return chosen;
}

ProgramCache::ProgramCache(const Device& device, bool codec2) {
    const std::string name = program_name(device);
    // A folder for each kind of client: the library keeps one program per folder and deletes others.
    const fs::path root = fs::path(cache_folder()) / (name + (codec2 ? "-c2" : "-omx"));
    const fs::path media = root / "vendor" / "media";
    std::error_code error;
    fs::create_directories(media, error);
    if (error) throw Error(media.string() + ": " + error.message());
    folder_ = media.string();
    setenv("ANDROID_DATA", root.c_str(), 1);
    android::base::SetProperty("ro.build.fingerprint", "lumivert/workstation/host:1/1/" + name + ":user/release-keys");

    lock_ = open((root / "lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0666);
    if (lock_ < 0 || flock(lock_, LOCK_EX) != 0) throw system_error((root / "lock").string());
    for (const fs::path& program : programs(media)) {
        if (contents(digest_of(program)) == sha256(contents(program))) continue;
        detail("removing " + program.string() + ", which an interrupted run has left");
        fs::remove(program, error);
        fs::remove(digest_of(program), error);
    }
}

ProgramCache::~ProgramCache() {
    close(lock_);
}

void ProgramCache::seal() {
    for (const fs::path& program : programs(folder_))
        if (!fs::exists(digest_of(program))) write_document(digest_of(program).string(), sha256(contents(program)));
}

} // namespace lumivert::tool
