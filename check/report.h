/// The report: a table while the cases run, or one JSON document at the end.
#pragma once

#include <string>
#include <vector>

#include "cases.h"

namespace lumivert::check {

class Report {
public:
    explicit Report(bool json) : json_(json) {}

    void device(const Facts& facts, const char* planes, const std::string& folder);
    void result(const Case& c, const Facts& facts);
    void finish();
    bool all_ok() const { return failed_ == 0 && !results_.empty(); }

private:
    struct Result {
        Case tested;
        Facts facts;
    };

    void print_device() const;
    void print_first_frames() const;
    void print_steady() const;
    void print_speed() const;
    void print_json() const;

    bool json_;
    Facts device_;
    std::string planes_, folder_;
    std::vector<Result> results_;
    int failed_ = 0;
};

} // namespace lumivert::check
