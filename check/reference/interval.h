/// What may come out: intervals of real numbers while a sample is computed, spans of codes where it is stored.
#pragma once

#include <algorithm>

namespace lumivert::reference {

/// Half a unit in the last place of single precision, relative to the number.
constexpr double kHalfUlp = 1.0 / (1 << 24);

/// Real numbers from `low` to `high`.
struct Interval {
    double low, high;

    static constexpr Interval exactly(double value) { return {value, value}; }
    static Interval about(double value, double relative_error) {
        const double error = value < 0 ? -value * relative_error : value * relative_error;
        return {value - error, value + error};
    }
    Interval widened(double error) const { return {low - error, high + error}; }
    Interval clamped(double lowest, double highest) const {
        return {std::clamp(low, lowest, highest), std::clamp(high, lowest, highest)};
    }
};

/// Integer codes from `low` to `high`.
struct Span {
    int low, high;

    static constexpr Span exactly(int code) { return {code, code}; }
    /// The codes that a conversion towards zero may give.
    static Span truncated(Interval value) { return {static_cast<int>(value.low), static_cast<int>(value.high)}; }

    Span operator+(Span other) const { return {low + other.low, high + other.high}; }
    Span operator*(int factor) const { return {low * factor, high * factor}; }
    Span operator/(int divisor) const { return {low / divisor, high / divisor}; }
    Span clamped(int lowest, int highest) const {
        return {std::clamp(low, lowest, highest), std::clamp(high, lowest, highest)};
    }
};

} // namespace lumivert::reference
