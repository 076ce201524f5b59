#include "io/progress.h"

#include <algorithm>
#include <cstdio>

#include <unistd.h>

#include "report.h"

namespace lumivert::tool {

Progress::Progress(int64_t total) : shown_(isatty(STDERR_FILENO) == 1), total_(total) {}

Progress::~Progress() {
    if (shown_) std::fputs(over_progress(), stderr);
}

void Progress::update(int64_t frames) {
    const auto now = Clock::now();
    if (!shown_ || now < next_) return;
    next_ = now + std::chrono::milliseconds(200);
    const double seconds = std::chrono::duration<double>(now - start_).count();
    const double rate = frames / std::max(seconds, 1e-3);
    if (total_ > 0) {
        const auto left = static_cast<long>(std::max<int64_t>(total_ - frames, 0) / std::max(rate, 1e-3));
        std::fprintf(stderr, "\r%3ld %%  %.1f frames/s  %ld:%02ld left \033[K",
                     static_cast<long>(std::min<int64_t>(100 * frames / total_, 100)), rate, left / 60, left % 60);
    } else {
        std::fprintf(stderr, "\r%ld frames  %.1f frames/s \033[K", static_cast<long>(frames), rate);
    }
    std::fflush(stderr);
}

} // namespace lumivert::tool
