#include "engine/pipeline.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>

#include "io/progress.h"
#include "io/queue.h"
#include "io/thread.h"

namespace lumivert::tool {
namespace {

using Clock = std::chrono::steady_clock;

/// A frame on its way, with the memory it lies in.
struct Slot {
    std::unique_ptr<Planes> in, out; ///< `out` is null where the result lies in `in`
    SourceFrame frame;
    std::optional<Record> record;
    RecordOrigin origin = RecordOrigin::kNone;

    const Planes& result() const { return out ? *out : *in; }
};

/// Of every eighth row.
int brightest_luma(const Planes& p010, const Geometry& geometry) {
    const auto* luma = reinterpret_cast<const uint16_t*>(p010.first.data());
    uint16_t brightest = 0;
    for (int y = 0; y < geometry.height; y += 8) {
        const uint16_t* row = luma + static_cast<ptrdiff_t>(y) * geometry.pitch;
        brightest = std::max(brightest, *std::max_element(row, row + geometry.width));
    }
    return brightest >> 6;
}

/// One thread on each side, slots going round between them.
class Pipeline {
public:
    Pipeline(FrameSource& source, const Treatment& treatment)
        : treatment_(treatment), geometry_(source.info().width, source.info().height), source_(source) {
        const auto plane_source =
            treatment.converter != nullptr ? treatment.converter->plane_source() : platform::PlaneSource::kSharedMemory;
        for (size_t i = 0; i < kSlotCount; ++i) {
            auto slot = std::make_unique<Slot>();
            slot->in = std::make_unique<Planes>(P010_LINEAR, geometry_, plane_source);
            if (treatment.converter != nullptr && !treatment.converter->in_place())
                slot->out = std::make_unique<Planes>(treatment.format, geometry_, plane_source);
            free_.push(std::move(slot));
        }
    }

    Tally run(RecordTrack track, FrameSink& sink) {
        const auto start = Clock::now();
        std::thread reader, writer;
        guard([&] {
            reader = start_thread([&] { guard([&] { read_all(track); }); });
            writer = start_thread([&] { guard([&] { write_all(sink); }); });
            convert_all();
        });
        for (std::thread* thread : {&reader, &writer})
            if (thread->joinable()) thread->join();
        if (error_) std::rethrow_exception(error_);
        tally_.total_s = std::chrono::duration<double>(Clock::now() - start).count();
        return tally_;
    }

private:
    using SlotPtr = std::unique_ptr<Slot>;
    static constexpr size_t kSlotCount = 4; // one in each of the three hands, one waiting

    /// Runs one side; whatever stops it stops the others too.
    template <typename Side>
    void guard(Side side) {
        try {
            side();
        } catch (...) {
            std::lock_guard lock(error_mutex_);
            if (!error_) error_ = std::current_exception();
            for (auto* queue : {&free_, &loaded_, &converted_})
                queue->close();
        }
    }

    enum class Place { kBefore, kInside, kAfter };

    /// Where the source's next frame lies.
    Place place_of_next() {
        const Part& part = treatment_.part;
        if (tally_.seen > part.frames.last) return Place::kAfter;
        if (tally_.seen < part.frames.first) return Place::kBefore;
        if (!part.by_time()) return Place::kInside;
        const double time = source_.time_of_next() + 1e-6; // parts that adjoin share no frame and miss none
        if (!std::isfinite(time)) return Place::kInside;   // the end, as reading will tell
        return time < part.from ? Place::kBefore : time < part.to ? Place::kInside : Place::kAfter;
    }

    void read_all(RecordTrack& track) {
        SourceFrame frame;
        Place place = Place::kBefore;
        while ((place = place_of_next()) != Place::kAfter) {
            if (place == Place::kBefore) {
                if (!source_.skip(geometry_, frame)) break;
                follow(track, frame);
                continue;
            }
            auto slot = free_.pop();
            if (!slot) return;
            Slot& s = **slot;
            if (!source_.read(*s.in, geometry_, s.frame)) break;
            s.origin = follow(track, s.frame);
            s.record = track.current();
            note(s);
            if (!loaded_.push(std::move(*slot))) return;
        }
        tally_.to_the_end = place != Place::kAfter;
        loaded_.close();
    }

    /// Counts a frame, of the part or before it.
    RecordOrigin follow(RecordTrack& track, const SourceFrame& frame) {
        const RecordOrigin origin = track.advance(tally_.seen, frame.record);
        if (origin == RecordOrigin::kOwn && tally_.first_record < 0) tally_.first_record = tally_.seen;
        ++tally_.seen;
        return origin;
    }

    /// What the user is told about the frames of the part afterwards.
    void note(const Slot& s) {
        if (s.origin == RecordOrigin::kOwn) {
            tally_.oddities.add(s.frame.number, *s.record);
        } else if (s.origin == RecordOrigin::kNone) {
            tally_.brightest_by_default = std::max(tally_.brightest_by_default, brightest_luma(*s.in, geometry_));
        }
    }

    void convert_all() {
        while (auto slot = loaded_.pop()) {
            Slot& s = **slot;
            const auto start = Clock::now();
            const Record* record = s.record ? &*s.record : nullptr;
            const bool converted =
                treatment_.converter == nullptr ||
                treatment_.converter->convert(*s.in, s.result(), record, treatment_.luminances, treatment_.interval);
            if (converted) {
                tally_.converting_ms.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
                ++tally_.by_origin[static_cast<int>(s.origin)];
            }
            (converted ? converted_ : free_).push(std::move(*slot));
        }
        converted_.close();
    }

    void write_all(FrameSink& sink) {
        const int64_t total = source_.info().frames;
        const int64_t most = treatment_.part.most_frames(av_q2d(source_.info().frame_rate));
        Progress progress(most == 0 ? total : total == 0 ? most : std::min(total, most));
        int64_t written = 0;
        while (auto slot = converted_.pop()) {
            const Slot& s = **slot;
            const Planes& result = s.result();
            sink.write({treatment_.format,
                        geometry_.width,
                        geometry_.height,
                        geometry_.pitch,
                        {result.first.data(), result.second.data()},
                        s.frame.number,
                        s.frame.pts});
            progress.update(++written);
            free_.push(std::move(*slot));
        }
    }

    const Treatment& treatment_;
    const Geometry geometry_;
    FrameSource& source_;
    Queue<SlotPtr> free_{kSlotCount}, loaded_{kSlotCount}, converted_{kSlotCount};
    std::mutex error_mutex_;
    std::exception_ptr error_;
    Tally tally_; // each field has one writing side
};

} // namespace

int64_t Part::most_frames(double rate) const {
    constexpr double kMany = 1e15; // frames
    const double by_number = static_cast<double>(frames.last - frames.first) + 1;
    const double most = std::min(by_number, std::ceil((to - from) * rate));
    return most < kMany ? static_cast<int64_t>(most) : 0;
}

Luminances luminances_of(const StaticMetadata& clip) {
    constexpr double kHighest = 10000; // of PQ, cd/m2; streams can carry more, which nothing can mean
    return {std::clamp(clip.mastering_peak, 0.0, kHighest), std::min<double>(clip.max_cll, kHighest)};
}

Tally run_pipeline(FrameSource& source, RecordTrack track, const Treatment& treatment, FrameSink& sink) {
    return Pipeline(source, treatment).run(std::move(track), sink);
}

} // namespace lumivert::tool
