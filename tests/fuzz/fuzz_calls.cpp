/// Any sequence of calls on the C interface, with odd records, planes and cache files, several instances at a time, and
/// an OpenCL that fails or answers garbage now and then: no crash, results of 0 and 1 only, and nothing left behind
/// that is not kept on purpose. A fatal check ends the sequence: it would end the process.
#include <array>
#include <csetjmp>
#include <cstdarg>
#include <filesystem>

#include <CL/cl.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "android_log_sink.h"
#include "fuzz/fake_opencl.h"
#include "fuzz/fuzz.h"
#include "lumivert/converter.h"
#include "support/host.h"

namespace {

std::jmp_buf g_end_of_process;

/// Reads the input's bytes one after the other; zeros after its end.
class Input {
public:
    Input(const uint8_t* data, size_t size) : next_(data), end_(data + size) {}
    bool ended() const { return next_ == end_; }
    unsigned byte() { return ended() ? 0 : *next_++; }
    unsigned below(unsigned count) { return byte() % count; }
    uint32_t word() { return byte() | byte() << 8 | byte() << 16 | byte() << 24; }
    /// One of these, or in one of eight cases any number.
    uint32_t mostly(std::initializer_list<uint32_t> usual) {
        const unsigned choice = below(8);
        return choice == 7 ? word() : *(usual.begin() + choice % usual.size());
    }

private:
    const uint8_t* next_;
    const uint8_t* end_;
};

int open_descriptors() {
    int count = 0;
    DIR* folder = opendir("/proc/self/fd");
    while (readdir(folder) != nullptr)
        ++count;
    closedir(folder);
    return count;
}

struct World {
    DataFolder folder;
    Plane small{128};
    Plane large{4096};
};

/// One for all inputs: folders and planes.
World& world() {
    static World all;
    return all;
}

_HDR2SDR_config_params_t frame(Input& input) {
    const auto plane = [&]() -> _MULTIPLANE_t {
        const int known[] = {
            world().large.handle().handle, world().large.handle().handle, world().small.handle().handle, 0, -1, 9999};
        return {known[input.below(6)], 0, static_cast<int32_t>(input.mostly({128, 4096, 48, 1, 0}))};
    };
    const auto format = static_cast<_Image_ColorFormat>(input.mostly({P010_LINEAR, P010_LINEAR, NV12, RGBA}));
    return {format, {plane(), plane()}};
}

HDR10PLUS_DYNAMIC_INFO record(Input& input) {
    HDR10PLUS_DYNAMIC_INFO info{};
    auto* bytes = reinterpret_cast<uint8_t*>(&info);
    for (unsigned i = input.below(64); i > 0; --i)
        bytes[input.below(sizeof(info))] = static_cast<uint8_t>(input.byte());
    return info;
}

/// What becomes of the cache file: nothing, empty, any bytes, a folder in its place, or no data folder at all.
void meddle_with_cache(Input& input) {
    const std::string path = world().folder.media("mali_formatter_c2_.bin");
    std::filesystem::remove_all(path);
    switch (input.below(4)) {
    case 0:
        break;
    case 1:
        write_file(path, std::string(input.byte(), 'x'));
        break;
    case 2:
        std::filesystem::create_directory(path);
        break;
    default:
        write_file(world().folder.media("mali_for"), "stale");
    }
}

struct Played {
    int kept_memory = 0;   ///< RGBA outputs and work buffers that they took the place of
    int kept_programs = 0; ///< of instances from source
};

void play(Input& input, std::array<void*, 3>& instances, Played& played) {
    while (!input.ended()) {
        void*& instance = instances[input.below(instances.size())];
        int32_t result = 0;
        switch (input.below(8)) {
        case 0:
        case 1: {
            if (instance != nullptr) break;
            const uint32_t width = input.mostly({4, 8, 10, 2, 1, 0});
            const uint32_t height = input.mostly({2, 4, 5, 1, 0});
            if (uint64_t{width} * height > 1U << 20) break; // the memory would be asked for
            const auto mode = static_cast<_ALGO_t>(input.mostly({NORMAL, HI_JACK}));
            result = CL_HDR2SDR_ARM_init(width, height, mode, &instance, static_cast<int32_t>(input.below(2)));
            fuzz::require((result == 1) == (instance != nullptr), "an instance where init says 1");
            ++played.kept_programs;
            break;
        }
        case 2:
        case 3:
        case 4: {
            _HDR2SDR_config_params_t in = frame(input);
            _HDR2SDR_config_params_t out = frame(input);
            HDR10PLUS_DYNAMIC_INFO info = record(input);
            HDR10PLUS_DYNAMIC_INFO* const given = input.below(4) == 0 ? nullptr : &info;
            const uint32_t static_info[] = {input.word(), input.word(), input.word()};
            if (out.color_format == RGBA) played.kept_memory += 2;
            result = input.below(2) == 0
                         ? CL_HDR2SDR_ARM_convert(&in, &out, given, static_info[0], instance)
                         : CL_HDR2SDR_ARM_convert1(&in, &out, given, static_info, instance,
                                                   static_cast<int32_t>(input.mostly({0, 0, 1, 2, UINT32_MAX})));
            break;
        }
        case 5:
            CL_HDR2SDR_ARM_deinit(instance);
            instance = nullptr;
            break;
        case 6: {
            constexpr int32_t kCodes[] = {0, 0, CL_OUT_OF_RESOURCES, CL_OUT_OF_HOST_MEMORY, CL_INVALID_VALUE};
            const unsigned calls = input.below(40);
            fake::fault_after(calls, kCodes[input.below(5)]);
            break;
        }
        default:
            set_property("vendor.Lumivert.debug.level", std::to_string(input.below(8)));
            set_property("vendor.Lumivert.debug.dump", std::to_string(input.below(2)));
            meddle_with_cache(input);
        }
        fuzz::require(result == 0 || result == 1, "results of 0 and 1");
    }
}

/// Plays a sequence and ends what is left of its instances. False if a fatal check ended it.
[[gnu::noinline]] bool reaches_the_end(Input& input, std::array<void*, 3>& instances, Played& played) {
    if (setjmp(g_end_of_process) != 0) return false;
    play(input, instances, played);
    for (void* instance : instances)
        if (instance != nullptr) CL_HDR2SDR_ARM_deinit(instance);
    return true;
}

void ignore(int, const char*, const char*) {}

} // namespace

/// What a fatal check leaves behind is not released: the process would have ended.
extern "C" const char* __asan_default_options() {
    return "detect_leaks=0";
}

extern "C" void __android_log_assert(const char*, const char*, const char*, ...) {
    std::longjmp(g_end_of_process, 1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    lumivert::platform::set_log_sink<ignore>();
    for (const std::string& name : world().folder.media_files())
        std::filesystem::remove_all(world().folder.media(name));
    set_property("vendor.Lumivert.debug.level", "");
    set_property("vendor.Lumivert.debug.dump", "");
    fake::reset();
    Input input(data, size);
    std::array<void*, 3> instances{};
    Played played;
    const int descriptors = open_descriptors();
    if (!reaches_the_end(input, instances, played)) {
        close_range(static_cast<unsigned>(world().large.handle().handle) + 1, ~0U, 0); // a process's end closes them
    } else {
        fuzz::require(open_descriptors() == descriptors, "as many descriptors as before");
        if (!fake::has_failed()) {
            fuzz::require(fake::alive('c') + fake::alive('q') + fake::alive('k') == 0,
                          "no context, queue or kernel left");
            fuzz::require(fake::alive('p') <= played.kept_programs, "no program left but those from source");
            fuzz::require(fake::alive('m') <= played.kept_memory, "no memory object left but RGBA frames'");
        }
    }
    return 0;
}
