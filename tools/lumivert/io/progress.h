/// The line that tells a waiting user how far the tool is. Silent unless standard error is a terminal.
#pragma once

#include <chrono>
#include <cstdint>

namespace lumivert::tool {

class Progress {
public:
    /// `total` frames, 0 when unknown.
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
