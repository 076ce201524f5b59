/// A line that shows a waiting user the progress, only if standard error is a terminal.
#pragma once

#include <chrono>
#include <cstdint>

namespace lumivert::tool {

class Progress {
public:
    /// `total` is the number of frames, or 0 if it is unknown.
    explicit Progress(int64_t total);
    ~Progress();

    void update(int64_t frames);

private:
    using Clock = std::chrono::steady_clock;

    const bool shown_;
    const int64_t total_;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point next_ = start_;
};

} // namespace lumivert::tool
