/// What a case has found out: named texts and numbers, which travel from the child process to the report.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace lumivert::check {

class Facts {
public:
    void set(const std::string& name, const std::string& text) { put({name, text, false}); }
    void set(const std::string& name, double number);

    std::string text(const std::string& name) const;
    double number(const std::string& name) const; ///< 0 if there is none
    bool has(const std::string& name) const;

    std::string lines() const; ///< one fact a line
    static Facts from_lines(const std::string& lines);
    std::string json() const; ///< an object

private:
    struct Fact {
        std::string name, text;
        bool is_number;
    };
    void put(const Fact& fact);

    std::vector<Fact> facts_;
};

std::string json_string(const std::string& text);

/// printf into a string.
std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));

} // namespace lumivert::check
