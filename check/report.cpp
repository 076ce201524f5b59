#include "report.h"

#include <cstdio>

namespace lumivert::check {
namespace {

/// How long Android waits for a decoder's first frame.
constexpr double kFirstFrameBudgetMs = 2000;

bool ok(const Facts& facts) {
    return facts.number("ok") == 1;
}

const char* yes_or_no(const Facts& facts, const char* name) {
    return facts.number(name) == 1 ? "yes" : "no";
}

/// "steady.static.pool@64x32" without its first word.
std::string without_first_word(const std::string& name) {
    return name.substr(name.find('.') + 1);
}

} // namespace

void Report::device(const Facts& facts, const char* planes, const std::string& folder) {
    device_ = facts;
    planes_ = planes;
    folder_ = folder;
    if (!json_) print_device();
}

void Report::print_device() const {
    const auto row = [](const char* name, const std::string& text) { std::printf("%-12s%s\n", name, text.c_str()); };
    row("device", device_.text("name") + " (" + device_.text("vendor") + ")");
    row("driver", device_.text("driver"));
    row("OpenCL", device_.text("opencl") + ", " + device_.text("opencl_c"));
    row("imports",
        format("cl_arm_import_memory %s, host %s, dma_buf %s", yes_or_no(device_, "cl_arm_import_memory"),
               yes_or_no(device_, "cl_arm_import_memory_host"), yes_or_no(device_, "cl_arm_import_memory_dma_buf")));
    row("planes", planes_);
    row("data", folder_);
    std::printf("\n");
    std::fflush(stdout);
}

void Report::result(const Case& c, const Facts& facts) {
    results_.push_back({c, facts});
    if (!ok(facts)) ++failed_;
    if (json_) return;
    std::printf("%-52s %s\n", c.name.c_str(), ok(facts) ? "ok" : ("FAILED: " + facts.text("detail")).c_str());
    if (facts.has("log")) std::printf("    %s\n", facts.text("log").c_str());
    std::fflush(stdout);
}

void Report::finish() {
    if (json_) {
        print_json();
        return;
    }
    print_first_frames();
    print_steady();
    print_speed();
    std::printf("\n%zu cases, %d failed\n", results_.size(), failed_);
    for (const Result& result : results_)
        if (!ok(result.facts)) std::printf("  %s\n", result.tested.name.c_str());
}

void Report::print_first_frames() const {
    bool headed = false;
    for (const auto& [tested, facts] : results_) {
        if (!facts.has("cold_init_ms")) continue;
        if (!headed)
            std::printf("\n%-48s %10s %10s   %s\n", "until the first frame, ms", "init", "frame", "of 2000 ms");
        headed = true;
        for (const char* const kind : {"cold", "cached"}) {
            const double frame_ms = facts.number(std::string(kind) + "_first_frame_ms");
            std::printf("%-48s %10.1f %10.1f   %s\n", (without_first_word(tested.name) + ", " + kind).c_str(),
                        facts.number(std::string(kind) + "_init_ms"), frame_ms,
                        frame_ms <= kFirstFrameBudgetMs ? "within" : "OVER");
        }
    }
}

void Report::print_steady() const {
    bool headed = false;
    for (const auto& [tested, facts] : results_) {
        if (!facts.has("descriptors_end")) continue;
        if (!headed)
            std::printf("\n%-48s %8s %8s %8s %8s\n", "descriptors, resident memory in MiB", "before", "steady", "end",
                        "after");
        headed = true;
        const auto row = [&of = facts](const std::string& name, const char* what, const char* unit, double divisor) {
            std::printf("%-48s", name.c_str());
            for (const char* const when : {"before", "steady", "end", "after"})
                std::printf(" %8.0f", of.number(std::string(what) + "_" + when + unit) / divisor);
            std::printf("\n");
        };
        row(format("%s, %.0f frames", without_first_word(tested.name).c_str(), facts.number("frames")), "descriptors",
            "", 1);
        row("", "memory", "_kib", 1024);
    }
}

void Report::print_speed() const {
    bool headed = false;
    for (const auto& [tested, facts] : results_) {
        if (!facts.has("frame_ms")) continue;
        if (!headed) std::printf("\n%-48s %10s %10s %8s\n", "speed", "ms/frame", "memcpy ms", "ratio");
        headed = true;
        const double frame_ms = facts.number("frame_ms");
        const double memcpy_ms = facts.number("memcpy_ms");
        std::printf("%-48s %10.2f %10.2f %8.1f\n", without_first_word(tested.name).c_str(), frame_ms, memcpy_ms,
                    memcpy_ms > 0 ? frame_ms / memcpy_ms : 0);
    }
}

void Report::print_json() const {
    std::printf(
        "{\"ok\": %s, \"first_frame_budget_ms\": %.0f, \"planes\": %s, \"data_folder\": %s,\n \"device\": %s,\n",
        all_ok() ? "true" : "false", kFirstFrameBudgetMs, json_string(planes_).c_str(), json_string(folder_).c_str(),
        device_.json().c_str());
    std::printf(" \"cases\": [");
    const char* separator = "\n";
    for (const auto& [tested, facts] : results_) {
        std::printf("%s  {\"name\": %s, \"facts\": %s}", separator, json_string(tested.name).c_str(),
                    facts.json().c_str());
        separator = ",\n";
    }
    std::printf("\n ]}\n");
}

} // namespace lumivert::check
