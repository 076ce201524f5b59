#include <cstdio>
#include <filesystem>
#include <iostream>

#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/options.h"
#include "error.h"
#include "io/output_file.h"
#include "io/progress.h"
#include "light/clip_light.h"
#include "plot/light_chart.h"
#include "report.h"

namespace lumivert::tool {
namespace {

using Json = nlohmann::ordered_json;

struct Options {
    std::string input, size, chart;
    double rate = 25;
    bool json = false, csv = false, as_pq = false;
};

/// Six digits are more than 10-bit samples tell.
double rounded(double value) {
    return std::stod(six_digits(value));
}

Json claim_json(const Record& record) {
    Json points = Json::object();
    for (int i = 0; i < record.num_maxrgb_percentiles; ++i)
        points[std::to_string(record.maxrgb_percentages[i])] = record.maxrgb_percentiles[i] / 10.0;
    return {{"maximum", {record.maxscl[0] / 10.0, record.maxscl[1] / 10.0, record.maxscl[2] / 10.0}},
            {"average", record.avg_maxrgb / 10.0},
            {"distribution", points}};
}

Json frame_json(const MeasuredFrame& frame) {
    Json maximum = Json::array(), percentiles = Json::object();
    for (const double value : frame.light.maximum)
        maximum.push_back(rounded(value));
    for (size_t i = 0; i < kPercentages.size(); ++i)
        percentiles[six_digits(kPercentages[i])] = rounded(frame.light.percentiles[i]);
    Json json = {{"frame", frame.number},      {"seconds", rounded(frame.seconds)},
                 {"maximum", maximum},         {"average", rounded(frame.light.average)},
                 {"percentiles", percentiles}, {"record", nullptr}};
    if (frame.origin != RecordOrigin::kNone) json["record"] = claim_json(frame.record);
    return json;
}

void print_json(const FrameSource& source, const std::string& name, const ClipLight& light,
                const std::vector<Disagreement>& disagreements) {
    const ClipInfo& clip = source.info();
    Json document = {{"file", name},
                     {"width", clip.width},
                     {"height", clip.height},
                     {"range", clip.range == AVCOL_RANGE_JPEG ? "full" : "limited"},
                     {"unit", "cd/m2"},
                     {"max_cll", rounded(light.max_cll)},
                     {"max_fall", rounded(light.max_fall)},
                     {"claimed_max_cll", nullptr},
                     {"claimed_max_fall", nullptr},
                     {"disagreements", Json::array()},
                     {"frames", Json::array()}};
    if (clip.static_metadata.has_content_light) {
        document["claimed_max_cll"] = clip.static_metadata.max_cll;
        document["claimed_max_fall"] = clip.static_metadata.max_fall;
    }
    for (const Disagreement& d : disagreements)
        document["disagreements"].push_back({{"rule", d.rule},
                                             {"says", rule_text(d.rule)},
                                             {"frames", d.frames},
                                             {"first_frame", d.first},
                                             {"worst_frame", d.worst},
                                             {"measured", rounded(d.measured)},
                                             {"claimed", rounded(d.claimed)}});
    for (const MeasuredFrame& frame : light.frames)
        document["frames"].push_back(frame_json(frame));
    std::cout << document.dump(1) << '\n';
}

void print_csv(const ClipLight& light) {
    std::string text = "frame,seconds,max_r,max_g,max_b,average";
    for (const double percentage : kPercentages)
        text += ",p" + six_digits(percentage);
    text += ",record_max_r,record_max_g,record_max_b,record_average,record_p50,record_p99\n";
    for (const MeasuredFrame& frame : light.frames) {
        text += std::to_string(frame.number) + "," + six_digits(frame.seconds);
        for (const double value : frame.light.maximum)
            text += "," + six_digits(value);
        text += "," + six_digits(frame.light.average);
        for (const double value : frame.light.percentiles)
            text += "," + six_digits(value);
        if (frame.origin == RecordOrigin::kNone) {
            text += ",,,,,,\n";
            continue;
        }
        for (const uint32_t value : frame.record.maxscl)
            text += "," + six_digits(value / 10.0);
        text += "," + six_digits(frame.record.avg_maxrgb / 10.0);
        for (const int percentage : {50, 99}) {
            const double point = claimed_percentile(frame.record, percentage);
            text += "," + (point < 0 ? "" : six_digits(point));
        }
        text += "\n";
    }
    std::cout << text;
}

void print_text(const FrameSource& source, const std::string& name, const ClipLight& light,
                const std::vector<Disagreement>& disagreements) {
    const ClipInfo& clip = source.info();
    const StaticMetadata& fixed = clip.static_metadata;
    const auto claim = [&](unsigned value) {
        return fixed.has_content_light ? "; the clip says " + std::to_string(value) : std::string();
    };
    char line[200];
    std::cout << name << ": " << counted(static_cast<long>(light.frames.size()), "frame") << " of " << clip.width << "x"
              << clip.height << ", read as PQ, BT.2020, " << (clip.range == AVCOL_RANGE_JPEG ? "full" : "limited")
              << " range\n";
    std::snprintf(line, sizeof line, "  MaxCLL   %.5g cd/m2 in frame %ld", light.max_cll,
                  static_cast<long>(light.max_cll_frame));
    std::cout << line << claim(fixed.max_cll) << '\n';
    std::snprintf(line, sizeof line, "  MaxFALL  %.5g cd/m2 in frame %ld", light.max_fall,
                  static_cast<long>(light.max_fall_frame));
    std::cout << line << claim(fixed.max_fall) << '\n';
    for (const Disagreement& d : disagreements)
        std::cout << "  " << d.text() << "\n    rule: " << rule_text(d.rule) << '\n';
}

int run(const Options& options) {
    if (options.json && options.csv) throw Error("--json and --csv both go to standard output; choose one");
    if (!options.chart.empty()) {
        check_chart_name(options.chart);
        refuse_same_file(options.chart, {options.input});
        check_writable(options.chart);
    }
    const auto source = open_source(options.input, options.size, options.rate, options.as_pq);
    ClipLight light;
    {
        Progress progress(source->info().frames);
        light = measure_clip(*source, [&](int64_t frames) { progress.update(frames); });
    }
    source->report();
    const auto disagreements = find_disagreements(light, source->info().static_metadata);
    const std::string name = options.input == "-" ? "standard input" : options.input;
    if (!options.chart.empty())
        draw_light(options.chart, std::filesystem::path(name).filename().string(), light,
                   source->info().static_metadata);
    if (options.json)
        print_json(*source, name, light, disagreements);
    else if (options.csv)
        print_csv(light);
    else
        print_text(*source, name, light, disagreements);
    return disagreements.empty() ? status_so_far() : kDoneWithWarnings;
}

} // namespace

Command add_measure(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    Options& o = *options;
    arguments.add("INPUT", o.input, "a PQ clip, or raw P010 with --size; - is standard input").required();
    arguments.add("--size", o.size, "INPUT is raw P010 of this size, such as 1920x1080");
    arguments.add("--rate", o.rate, "frames per second of raw P010").between(1.0, 1000.0).shows_default();
    arguments.add_flag("--json", o.json, "one JSON document with every frame");
    arguments.add_flag("--csv", o.csv, "a line of numbers for every frame");
    arguments.add("-o,--output", o.chart, "a chart over time, .png or .svg");
    arguments.add_flag("--as-pq", o.as_pq, "accept a clip that is not tagged PQ or has 8 bits, as if it were PQ");
    arguments.footer(
        "Light is in cd/m2. Exit status 1: the metadata and the pixels disagree, or there were warnings.\n\n"
        "Examples:\n  lumivert measure clip.mp4 -o light.png\n  lumivert measure clip.mp4 --csv > light.csv");
    return [options] {
        if (!options->chart.empty() && is_kept(options->chart)) options->chart.clear();
        return run(*options);
    };
}

} // namespace lumivert::tool
