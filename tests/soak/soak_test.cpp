/// Long runs through the shipped library: memory, descriptors and mappings stay flat. LUMIVERT_SOAK_FRAMES (10000) sets
/// the length; the figures are printed.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <random>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "lumivert/converter.h"
#include "support/host.h"

namespace {

/// Metadata of a frame: seeded, every branch of the curve among them.
HDR10PLUS_DYNAMIC_INFO random_record(std::mt19937& random) {
    HDR10PLUS_DYNAMIC_INFO info{};
    auto* bytes = reinterpret_cast<unsigned char*>(&info);
    for (std::size_t i = 0; i < sizeof(info); ++i)
        bytes[i] = static_cast<unsigned char>(random());
    info.display_max_luminance = random() % 2 != 0 ? 250 : 400;
    for (uint32_t& value : info.maxscl)
        value %= 100001;
    return info;
}

/// A codec's pool: a few input and output frames that take turns.
struct Pool {
    static constexpr int kFrames = 4;
    static constexpr uint32_t kWidth = 64;
    static constexpr uint32_t kHeight = 32;

    explicit Pool(_Image_ColorFormat output_format) {
        for (uint32_t i = 0; i < kFrames; ++i) {
            fill_random(in.emplace_back(P010_LINEAR, kWidth, kHeight), i);
            out.emplace_back(output_format, kWidth, kHeight);
        }
    }

    std::deque<Frame> in, out;
};

/// An instance for the pool's frames.
struct PoolInstance : Instance {
    explicit PoolInstance(_ALGO_t mode, bool c2 = true) : Instance(Pool::kWidth, Pool::kHeight, mode, c2) {}
};

/// Converts frames `first` to `last` - 1 of a pool, each with metadata of its own.
void convert(const Instance& instance, const Pool& pool, bool retained, int first, int last) {
    for (int i = first; i < last; ++i) {
        std::mt19937 random(static_cast<uint32_t>(i));
        HDR10PLUS_DYNAMIC_INFO info = random_record(random);
        const Frame& in = pool.in[static_cast<std::size_t>(i % Pool::kFrames)];
        const Frame& out = pool.out[static_cast<std::size_t>(i % Pool::kFrames)];
        ASSERT_EQ(retained ? instance.convert(in, out, &info) : instance.convert1(in, out, &info), 1);
    }
}

int soak_frames() {
    const char* text = std::getenv("LUMIVERT_SOAK_FRAMES");
    return text == nullptr ? 10000 : std::atoi(text);
}

/// Runs `run(first, last)` for a tenth of the length to warm up, then for all of it, and compares.
void expect_flat(const char* name, int length, long tolerance_kib, const std::function<void(int, int)>& run) {
    run(0, length / 10);
    const Footprint before = footprint();
    run(length / 10, length / 10 + length);
    const Footprint after = footprint();
    std::printf("%s: %d, resident %+ld KiB, descriptors %+d, plane mappings %+d\n", name, length,
                after.resident_kib - before.resident_kib, after.descriptors - before.descriptors,
                after.plane_mappings - before.plane_mappings);
    EXPECT_LE(after.resident_kib - before.resident_kib, tolerance_kib);
    EXPECT_EQ(after.descriptors, before.descriptors);
    EXPECT_EQ(after.plane_mappings, before.plane_mappings);
}

// GCC 12 names its sanitizers by macros, clang by features.
#ifdef __has_feature
#define SANITIZED (__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SANITIZED 1
#else
#define SANITIZED 0
#endif
constexpr long kTolerance = SANITIZED ? 1L << 20 : 2048; // KiB; the sanitizer's own records grow

class Soak : public testing::Test {
protected:
    Soak() {
        set_property("vendor.Lumivert.debug.level", "0");
        set_property("ro.build.fingerprint", "a/b/c:1/2/SOAK:user/x");
    }

    DataFolder folder;
};

TEST_F(Soak, FramesThroughThePool) {
    const PoolInstance instance(NORMAL);
    Pool pool(NV12);
    expect_flat("hdr10plus pool frames", soak_frames(), kTolerance,
                [&](int first, int last) { convert(instance, pool, false, first, last); });
}

TEST_F(Soak, FramesThroughRetainedBuffers) {
    const PoolInstance instance(HI_JACK, false);
    Pool pool(P010_LINEAR);
    expect_flat("static retained frames", soak_frames(), kTolerance,
                [&](int first, int last) { convert(instance, pool, true, first, last); });
}

/// The library keeps the import of each RGBA output: the driver's record of it, the plane itself is the caller's.
TEST_F(Soak, RgbaFramesThroughThePoolKeepTheirOutputsImport) {
    constexpr long kImportKib = 2;
    const PoolInstance instance(NORMAL);
    Pool pool(RGBA);
    expect_flat("hdr10plus pool rgba frames, an import kept of each", soak_frames(),
                kImportKib * soak_frames() + kTolerance,
                [&](int first, int last) { convert(instance, pool, false, first, last); });
}

/// The program built from source is kept when the one from the fresh cache takes its place.
TEST_F(Soak, InstancesFromSourceKeepAProgram) {
    constexpr long kProgramKib = 4500; // PoCL holds about 3200 for one, LLVM's form included; two would be too many
    const int instances = soak_frames() / 100;
    expect_flat("instances from source, a program kept of each", instances, kProgramKib * instances + kTolerance,
                [&](int first, int last) {
                    for (int i = first; i < last; ++i) {
                        for (const std::string& name : folder.media_files())
                            std::remove(folder.media(name).c_str());
                        EXPECT_EQ(PoolInstance(NORMAL).result(), 1);
                    }
                });
}

TEST_F(Soak, InstancesComeAndGo) {
    Pool pool(NV12);
    expect_flat("instances", soak_frames() / 100, 4 * kTolerance, [&](int first, int last) {
        for (int i = first; i < last; ++i) {
            const PoolInstance instance(NORMAL);
            convert(instance, pool, i % 2 == 0, i, i + 2);
        }
    });
}

TEST_F(Soak, TwoInstancesInTwoThreads) {
    const PoolInstance normal(NORMAL);
    const PoolInstance fixed(HI_JACK);
    Pool nv12(NV12);
    Pool p010(P010_LINEAR);
    // What each makes alone is what it makes beside the other.
    convert(normal, nv12, false, 0, Pool::kFrames);
    convert(fixed, p010, false, 0, Pool::kFrames);
    const std::string alone[] = {nv12.out[3].luma.contents(), p010.out[3].luma.contents()};
    const int length = soak_frames() / 4 / Pool::kFrames * Pool::kFrames;
    expect_flat("frames in each of two threads", length, kTolerance, [&](int first, int last) {
        std::thread other([&] { convert(fixed, p010, false, first, last); });
        convert(normal, nv12, false, first, last);
        other.join();
    });
    std::thread beside([&] {
        for (int i = 0; i < 100; ++i)
            convert(fixed, p010, false, 0, Pool::kFrames);
    });
    for (int i = 0; i < 100; ++i)
        convert(normal, nv12, false, 0, Pool::kFrames);
    beside.join();
    EXPECT_EQ(nv12.out[3].luma.contents(), alone[0]);
    EXPECT_EQ(p010.out[3].luma.contents(), alone[1]);
}

/// Every init sets the debug level, which the frames of other threads read.
TEST_F(Soak, TwoThreadsOfWhichOneMakesInstances) {
    const PoolInstance instance(NORMAL);
    Pool pool(NV12);
    const int length = std::max(soak_frames() / 1000, 1);
    convert(instance, pool, false, 0, Pool::kFrames);
    const std::string alone = pool.out[3].luma.contents();
    std::thread other([&] {
        for (int i = 0; i < length; ++i)
            EXPECT_EQ(PoolInstance(HI_JACK).result(), 1);
    });
    for (int i = 0; i < length; ++i)
        convert(instance, pool, i % 2 == 0, 0, Pool::kFrames);
    other.join();
    EXPECT_EQ(pool.out[3].luma.contents(), alone);
}

} // namespace
