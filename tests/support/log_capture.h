/// Collects the library's log lines, and makes fatal checks print all of what they pass on before the process ends.
#pragma once

#include <string>
#include <vector>

/// The process's log lines while this lives; one at a time.
class LogCapture {
public:
    struct Line {
        int priority; ///< ANDROID_LOG_DEBUG, _INFO or _ERROR
        std::string tag;
        std::string text;
    };

    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<Line>& lines() const;
    /// "E text", "I text" or "D text", in order.
    std::vector<std::string> texts() const;
    int count(const std::string& line) const; ///< of lines in the form above
    void clear();
};
