#include "plot/luminance_axis.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "hdr10plus/pixel_chain.h"

namespace lumivert::tool {
std::string luminance_text(double cd_m2) {
    char text[32];
    const int digits = cd_m2 <= 0 ? 0 : cd_m2 < 0.01 ? 4 : cd_m2 < 0.1 ? 3 : cd_m2 < 1 ? 2 : cd_m2 < 10 ? 1 : 0;
    std::snprintf(text, sizeof text, "%.*f", digits, cd_m2);
    std::string result = text;
    if (result.find('.') != std::string::npos) {
        result.erase(result.find_last_not_of('0') + 1);
        if (result.back() == '.') result.pop_back();
    }
    return result;
}

size_t round_step(size_t range, size_t count) {
    for (size_t power = 1;; power *= 10)
        for (const size_t factor : {1, 2, 5})
            if (range <= count * factor * power) return factor * power;
}

LuminanceAxis::LuminanceAxis(double top, double start, double end) : top_(top), start_(start), end_(end) {}

double LuminanceAxis::position(double cd_m2) const {
    return start_ + (end_ - start_) * pq_from_luminance(cd_m2) / pq_from_luminance(top_);
}

double LuminanceAxis::luminance(double position) const {
    return luminance_from_pq((position - start_) / (end_ - start_) * pq_from_luminance(top_));
}

std::vector<double> LuminanceAxis::ticks(double distance) const {
    // The decades first, then what fits between them.
    constexpr double kWanted[] = {0,  10000, 1000, 100, 10,  1,   0.1, 4000, 2000, 500,  200,
                                  50, 20,    5,    2,   0.5, 300, 30,  600,  400,  0.01, 0.02};
    std::vector<double> chosen;
    for (const double tick : kWanted) {
        const auto too_close = [&](double other) { return std::abs(position(other) - position(tick)) < distance; };
        if (tick <= top_ && std::none_of(chosen.begin(), chosen.end(), too_close)) chosen.push_back(tick);
    }
    return chosen;
}

} // namespace lumivert::tool
