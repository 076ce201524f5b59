#include "light/clip_light.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "io/queue.h"
#include "io/thread.h"
#include "report.h"

namespace lumivert::tool {
namespace {

/// A frame on its way to a worker, with the memory it lies in.
struct Slot {
    std::unique_ptr<Planes> planes;
    MeasuredFrame frame;
};

/// One reader, a worker for each core.
class Measurement {
public:
    explicit Measurement(FrameSource& source)
        : source_(source), geometry_(source.info().width, source.info().height),
          workers_(std::max(1U, std::thread::hardware_concurrency())), free_(2 * workers_), loaded_(2 * workers_) {
        for (size_t i = 0; i < 2 * workers_; ++i) {
            Slot slot;
            slot.planes = std::make_unique<Planes>(P010_LINEAR, geometry_);
            free_.push(std::move(slot));
        }
    }

    std::vector<MeasuredFrame> run(const std::function<void(int64_t)>& each) {
        std::vector<std::thread> threads;
        guard([&] {
            for (size_t i = 0; i < workers_; ++i)
                threads.push_back(start_thread([this] { guard([this] { measure_all(); }); }));
            read_all(each);
        });
        for (std::thread& thread : threads)
            thread.join();
        if (error_) std::rethrow_exception(error_);
        std::sort(done_.begin(), done_.end(), [](const auto& a, const auto& b) { return a.number < b.number; });
        return std::move(done_);
    }

private:
    template <typename Side>
    void guard(Side side) {
        try {
            side();
        } catch (...) {
            const std::lock_guard lock(mutex_);
            if (!error_) error_ = std::current_exception();
            free_.close();
            loaded_.close();
        }
    }

    void read_all(const std::function<void(int64_t)>& each) {
        RecordTrack track;
        const double tick = av_q2d(source_.info().time_base);
        std::optional<int64_t> start;
        while (auto slot = free_.pop()) {
            SourceFrame frame;
            if (!source_.read(*slot->planes, geometry_, frame)) break;
            if (!start) start = frame.pts;
            slot->frame = {};
            slot->frame.number = frame.number;
            slot->frame.seconds = static_cast<double>(frame.pts - *start) * tick;
            slot->frame.origin = track.advance(frame.number, frame.record);
            if (track.current()) slot->frame.record = *track.current();
            if (!loaded_.push(std::move(*slot))) return;
            each(frame.number + 1);
        }
        loaded_.close();
    }

    void measure_all() {
        while (auto slot = loaded_.pop()) {
            slot->frame.light = light_of(count_light(view_of(*slot->planes, geometry_, source_.info())));
            {
                const std::lock_guard lock(mutex_);
                done_.push_back(slot->frame);
            }
            free_.push(std::move(*slot));
        }
    }

    FrameSource& source_;
    const Geometry geometry_;
    const size_t workers_;
    Queue<Slot> free_, loaded_;
    std::mutex mutex_; // of the two below
    std::vector<MeasuredFrame> done_;
    std::exception_ptr error_;
};

/// How far measured and claimed light may be apart before a rule counts as broken.
constexpr double kMaximumFactor = 1.1, kMeanFactor = 2;
constexpr double kSlack = 1; ///< cd/m2: differences below this are noise or rounding

bool well_above(double value, double limit, double factor) {
    return value > limit * factor && value > limit + kSlack;
}

bool far_apart(double a, double b) {
    return well_above(a, b, kMeanFactor) || well_above(b, a, kMeanFactor);
}

/// Collects the frames that break one rule.
class Rule {
public:
    explicit Rule(std::string name) { found_.rule = std::move(name); }

    void add(int64_t first, int64_t frames, int64_t frame, double measured, double claimed) {
        const double off = std::max(measured, claimed) / std::max(std::min(measured, claimed), 0.1);
        if (found_.frames == 0) found_.first = first;
        found_.frames += frames;
        if (off <= off_) return;
        off_ = off;
        found_.worst = frame;
        found_.measured = measured;
        found_.claimed = claimed;
    }
    void report(std::vector<Disagreement>& to) const {
        if (found_.frames > 0) to.push_back(found_);
    }

private:
    Disagreement found_;
    double off_ = 0;
};

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, value < 10 ? "%.2f" : value < 100 ? "%.1f" : "%.0f", value);
    return text;
}

} // namespace

YuvView view_of(const Planes& p010, const Geometry& geometry, const ClipInfo& clip) {
    const ptrdiff_t pitch = ptrdiff_t{2} * geometry.pitch;
    YuvView view = {};
    view.component[0] = {p010.first.data(), pitch, 2, 6};
    view.component[1] = {p010.second.data(), pitch, 4, 6};
    view.component[2] = {p010.second.data() + 2, pitch, 4, 6};
    view.width = geometry.width;
    view.height = geometry.height;
    view.bits = 10;
    view.chroma_x = view.chroma_y = 1;
    view.full_range = clip.range == AVCOL_RANGE_JPEG;
    return view;
}

ClipLight measure_clip(FrameSource& source, const std::function<void(int64_t)>& each) {
    ClipLight result;
    result.frames = Measurement(source).run(each);
    for (const MeasuredFrame& frame : result.frames) {
        if (frame.light.peak() > result.max_cll) {
            result.max_cll = frame.light.peak();
            result.max_cll_frame = frame.number;
        }
        if (frame.light.average > result.max_fall) {
            result.max_fall = frame.light.average;
            result.max_fall_frame = frame.number;
        }
    }
    return result;
}

double claimed_peak(const Record& record) {
    const uint32_t largest = *std::max_element(std::begin(record.maxscl), std::end(record.maxscl));
    if (largest > 0) return largest / 10.0;
    return std::max(claimed_percentile(record, 99), 0.0);
}

double claimed_percentile(const Record& record, int percentage) {
    for (int i = 0; i < std::min<int>(record.num_maxrgb_percentiles, kMaxPoints); ++i)
        if (record.maxrgb_percentages[i] == percentage && percentage != 5 && percentage != 10)
            return record.maxrgb_percentiles[i] / 10.0;
    return -1;
}

std::string rule_text(const std::string& rule) {
    if (rule == "maximum") return "the brightest pixel is more than a tenth above the record's MaxSCL";
    if (rule == "average")
        return "the mean of max(R, G, B) and the record's average differ by more than a factor of two";
    if (rule == "distribution")
        return "the light at 99 % and the record's 99 % point differ by more than a factor of two";
    if (rule == "MaxCLL") return "the brightest pixel of the clip is more than a tenth above its MaxCLL";
    return "the highest frame average of the clip is more than a tenth above its MaxFALL";
}

std::string Disagreement::text() const {
    const std::string values = "measured " + number(measured) + " cd/m2, claimed " + number(claimed) + " cd/m2";
    if (rule == "MaxCLL" || rule == "MaxFALL") return rule + ": " + values + " (frame " + std::to_string(worst) + ")";
    return rule + ": " + counted(frames, "frame") + ", the first " + std::to_string(first) + "; worst in frame " +
           std::to_string(worst) + ": " + values;
}

std::vector<Disagreement> find_disagreements(const ClipLight& light, const StaticMetadata& claimed) {
    Rule maximum("maximum"), average("average"), distribution("distribution");
    const auto& frames = light.frames;
    for (size_t begin = 0, end = 0; begin < frames.size(); begin = end) {
        const MeasuredFrame& first = frames[begin];
        double mean = 0, highest = 0;
        size_t brightest = begin;
        for (end = begin; end < frames.size() && frames[end].record == first.record; ++end) {
            mean += frames[end].light.average;
            highest = std::max(highest, frames[end].light.percentile(99));
            if (frames[end].light.peak() > frames[brightest].light.peak()) brightest = end;
        }
        if (first.origin == RecordOrigin::kNone) continue;
        const auto count = static_cast<int64_t>(end - begin);
        mean /= static_cast<double>(count);
        const Record& record = first.record;
        const double peak = claimed_peak(record), point = claimed_percentile(record, 99);
        for (size_t i = begin; i < end; ++i)
            if (well_above(frames[i].light.peak(), peak, kMaximumFactor))
                maximum.add(frames[i].number, 1, frames[i].number, frames[i].light.peak(), peak);
        if (far_apart(mean, record.avg_maxrgb / 10.0))
            average.add(first.number, count, frames[brightest].number, mean, record.avg_maxrgb / 10.0);
        if (point >= 0 && far_apart(highest, point))
            distribution.add(first.number, count, frames[brightest].number, highest, point);
    }
    std::vector<Disagreement> found;
    for (const Rule* rule : {&maximum, &average, &distribution})
        rule->report(found);
    const auto whole_clip = [&](const char* rule, double measured, double claim, int64_t frame) {
        if (claim > 0 && well_above(measured, claim, kMaximumFactor))
            found.push_back({rule, frame, 1, frame, measured, claim});
    };
    whole_clip("MaxCLL", light.max_cll, claimed.max_cll, light.max_cll_frame);
    whole_clip("MaxFALL", light.max_fall, claimed.max_fall, light.max_fall_frame);
    return found;
}

} // namespace lumivert::tool
