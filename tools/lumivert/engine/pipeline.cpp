#include "engine/pipeline.h"

#include <algorithm>
#include <chrono>
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

/// One thread on each side, slots going round between them.
class Pipeline {
public:
    Pipeline(FrameSource& source, const Treatment& treatment)
        : treatment_(treatment), geometry_(source.info().width, source.info().height), source_(source) {
        for (size_t i = 0; i < kSlotCount; ++i) {
            auto slot = std::make_unique<Slot>();
            slot->in = std::make_unique<Planes>(P010_LINEAR, geometry_);
            if (treatment.converter != nullptr && !treatment.converter->in_place())
                slot->out = std::make_unique<Planes>(treatment.format, geometry_);
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

    void read_all(RecordTrack& track) {
        SourceFrame frame;
        while (tally_.seen <= treatment_.frames.last) {
            if (tally_.seen < treatment_.frames.first) {
                if (!source_.skip(geometry_, frame)) break;
                track.advance(tally_.seen++, frame.record);
                continue;
            }
            auto slot = free_.pop();
            if (!slot) return;
            Slot& s = **slot;
            if (!source_.read(*s.in, geometry_, s.frame)) break;
            s.origin = track.advance(tally_.seen++, s.frame.record);
            s.record = track.current();
            if (!loaded_.push(std::move(*slot))) return;
        }
        tally_.to_the_end = tally_.seen <= treatment_.frames.last;
        loaded_.close();
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
        Progress progress(total > 0 ? std::min(total, treatment_.frames.last + 1) - treatment_.frames.first : 0);
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
            progress.update(s.frame.number + 1 - treatment_.frames.first);
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

Tally run_pipeline(FrameSource& source, RecordTrack track, const Treatment& treatment, FrameSink& sink) {
    return Pipeline(source, treatment).run(std::move(track), sink);
}

} // namespace lumivert::tool
