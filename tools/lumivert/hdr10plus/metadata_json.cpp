#include "hdr10plus/metadata_json.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>

#include <nlohmann/json.hpp>

#include "error.h"

namespace lumivert::tool {
namespace {

using Json = nlohmann::ordered_json;

/// An integer field that must fit its place in the record. Absent ones are 0.
template <typename T>
void read_field(const Json& object, const char* key, T& value) {
    const auto found = object.find(key);
    if (found == object.end()) return;
    if (!found->is_number_unsigned() || found->get<uint64_t>() > std::numeric_limits<T>::max())
        throw Error(std::string(key) + " " + found->dump() + " does not fit");
    value = found->get<T>();
}

/// Reads an array of such integers and returns how many there are.
template <typename T, size_t N>
size_t read_fields(const Json& object, const char* key, T (&values)[N]) {
    const auto found = object.find(key);
    if (found == object.end()) return 0;
    if (!found->is_array() || found->size() > N)
        throw Error(std::string(key) + " is not an array of at most " + std::to_string(N) + " numbers");
    for (size_t i = 0; i < found->size(); ++i) {
        const Json element = {{key, (*found)[i]}};
        read_field(element, key, values[i]);
    }
    return found->size();
}

const Json& member(const Json& object, const char* key) {
    static const Json absent = Json::object();
    const auto found = object.find(key);
    return found != object.end() && found->is_object() ? *found : absent;
}

Record read_record(const Json& scene) {
    Record record = make_record();
    read_field(scene, "TargetedSystemDisplayMaximumLuminance", record.display_max_luminance);
    const Json& luminance = member(scene, "LuminanceParameters");
    read_field(luminance, "AverageRGB", record.avg_maxrgb);
    read_fields(luminance, "MaxScl", record.maxscl);
    const Json& distribution = member(luminance, "LuminanceDistributions");
    const size_t points = read_fields(distribution, "DistributionIndex", record.maxrgb_percentages);
    if (read_fields(distribution, "DistributionValues", record.maxrgb_percentiles) != points)
        throw Error("DistributionIndex and DistributionValues are not equally long");
    record.num_maxrgb_percentiles = static_cast<uint8_t>(points);
    if (const auto curve = scene.find("BezierCurveData"); curve != scene.end() && curve->is_object()) {
        record.tone_mapping_flag = 1;
        read_field(*curve, "KneePointX", record.knee_point_x);
        read_field(*curve, "KneePointY", record.knee_point_y);
        record.num_bezier_curve_anchors =
            static_cast<uint8_t>(read_fields(*curve, "Anchors", record.bezier_curve_anchors));
    }
    return record;
}

/// Whether every entry has a frame number and the numbers rise. Otherwise the position in the list is the number.
bool frames_are_numbered(const Json& scenes) {
    int64_t previous = -1;
    return std::all_of(scenes.begin(), scenes.end(), [&](const Json& scene) {
        const auto found = scene.find("SequenceFrameIndex");
        const bool rises = found != scene.end() && found->is_number_integer() && found->get<int64_t>() > previous;
        if (rises) previous = found->get<int64_t>();
        return rises;
    });
}

Json parse(const std::string& path) {
    try {
        if (path == "-") return Json::parse(std::cin);
        std::ifstream file(path);
        if (!file) throw system_error(path);
        return Json::parse(file);
    } catch (const Json::exception& error) {   // malformed, or a number too large for any type
        const std::string what = error.what(); // "[json.exception.parse_error.101] parse error at line 1, ..."
        throw Error(path + ": not JSON: " + what.substr(std::min(what.find("] ") + 2, what.size())));
    }
}

Json distribution_json(const Record& record) {
    const auto points = record.num_maxrgb_percentiles;
    return {{"DistributionIndex", std::vector(record.maxrgb_percentages, record.maxrgb_percentages + points)},
            {"DistributionValues", std::vector(record.maxrgb_percentiles, record.maxrgb_percentiles + points)}};
}

Json record_json(const Record& record) {
    Json scene;
    if (record.tone_mapping_flag != 0) {
        const auto* anchors = record.bezier_curve_anchors;
        scene["BezierCurveData"] = {{"Anchors", std::vector(anchors, anchors + record.num_bezier_curve_anchors)},
                                    {"KneePointX", record.knee_point_x},
                                    {"KneePointY", record.knee_point_y}};
    }
    scene["LuminanceParameters"] = {{"AverageRGB", record.avg_maxrgb},
                                    {"LuminanceDistributions", distribution_json(record)},
                                    {"MaxScl", record.maxscl}};
    scene["NumberOfWindows"] = 1;
    scene["TargetedSystemDisplayMaximumLuminance"] = record.display_max_luminance;
    return scene;
}

} // namespace

RecordsByFrame read_metadata(const std::string& path) {
    const Json document = parse(path);
    const auto scenes = document.find("SceneInfo");
    if (scenes == document.end() || !scenes->is_array() || scenes->empty())
        throw Error(path + ": no HDR10+ metadata: there is no SceneInfo list with entries");
    const bool numbered = frames_are_numbered(*scenes);
    RecordsByFrame records;
    for (size_t i = 0; i < scenes->size(); ++i) {
        const Json& scene = (*scenes)[i];
        try {
            records[numbered ? scene["SequenceFrameIndex"].get<int64_t>() : static_cast<int64_t>(i)] =
                read_record(scene);
        } catch (const Error& error) {
            throw Error(path + ": SceneInfo entry " + std::to_string(i) + ": " + error.what());
        }
    }
    return records;
}

std::string write_metadata(const RecordsByFrame& records) {
    Json scenes = Json::array(), first_frames = Json::array(), frame_counts = Json::array();
    const Record* previous = nullptr;
    int64_t frame_in_scene = 0;
    for (const auto& [frame, record] : records) {
        // A scene is a run of frames with one record.
        if (previous == nullptr || *previous != record) {
            first_frames.push_back(frame);
            frame_counts.push_back(0);
            frame_in_scene = 0;
        }
        frame_counts.back() = frame_in_scene + 1;
        Json scene = record_json(record);
        scene["SceneFrameIndex"] = frame_in_scene++;
        scene["SceneId"] = first_frames.size() - 1;
        scene["SequenceFrameIndex"] = frame;
        scenes.push_back(std::move(scene));
        previous = &record;
    }
    const bool curves = std::any_of(records.begin(), records.end(),
                                    [](const auto& entry) { return entry.second.tone_mapping_flag != 0; });
    const Json document = {
        {"JSONInfo", {{"HDR10plusProfile", curves ? "B" : "A"}, {"Version", "1.0"}}},
        {"SceneInfo", std::move(scenes)},
        {"SceneInfoSummary", {{"SceneFirstFrameIndex", first_frames}, {"SceneFrameNumbers", frame_counts}}},
        {"ToolInfo", {{"Tool", "lumivert"}, {"Version", LUMIVERT_VERSION}}},
    };
    return document.dump(2) + "\n";
}

} // namespace lumivert::tool
