#include "html_report/page.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>

#include <nlohmann/json.hpp>

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "hdr10plus/tone_curve.h"
#include "html_report/chart.h"
#include "html_report/page_text.h"
#include "plot/luminance_axis.h"
#include "report.h"

namespace lumivert::tool {
namespace {

using Json = nlohmann::ordered_json;

double short_number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4g", value);
    return std::stod(text);
}

std::string seconds_text(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f s", seconds);
    return text;
}

std::string shell_quoted(const std::string& text) {
    const bool plain = !text.empty() && text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                                               "0123456789_./+-=:,@%") == std::string::npos;
    if (plain) return text;
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    return quoted + "'";
}

Json curve_json(const ToneCurve& curve) {
    Json anchors = Json::array();
    for (int i = 0; i < curve.curve.num_bezier_curve_anchors; ++i)
        anchors.push_back(short_number(curve.curve.f_bezier_curve_anchors[i]));
    return {{"full", short_number(curve.full_scale)},
            {"kx", short_number(curve.curve.f_knee_point_x)},
            {"ky", short_number(curve.curve.f_knee_point_y)},
            {"target", curve.target},
            {"anchors", anchors}};
}

Json point_or_null(const Record& record, int percentage) {
    const double point = claimed_percentile(record, percentage);
    return point < 0 ? Json() : Json(point);
}

Json record_json(const Record& record) {
    Json points = Json::array();
    for (int i = 0; i < std::min<int>(record.num_maxrgb_percentiles, kMaxPoints); ++i)
        points.push_back({record.maxrgb_percentages[i], record.maxrgb_percentiles[i] / 10.0});
    const int anchors = std::min<int>(record.num_bezier_curve_anchors, kMaxPoints);
    return {{"maxscl", {record.maxscl[0] / 10.0, record.maxscl[1] / 10.0, record.maxscl[2] / 10.0}},
            {"average", record.avg_maxrgb / 10.0},
            {"p50", point_or_null(record, 50)},
            {"p99", point_or_null(record, 99)},
            {"points", points},
            {"flag", record.tone_mapping_flag},
            {"display", record.display_max_luminance},
            {"knee", {record.knee_point_x, record.knee_point_y}},
            {"anchors", std::vector(record.bezier_curve_anchors, record.bezier_curve_anchors + anchors)}};
}

class Page {
public:
    explicit Page(const ReportContent& content)
        : c_(content), name_(std::filesystem::path(content.path).filename().string()) {
        for (const MeasuredFrame& frame : c_.light.frames) {
            const Record& record = frame.origin == RecordOrigin::kNone ? c_.fallback : frame.record;
            const auto found = curve_index_.try_emplace(record, curves_.size());
            if (found.second) curves_.emplace_back(record, kConverterTarget);
            curve_of_.push_back(found.first->second);
        }
    }

    std::string text() {
        const std::string head = beginning(), rest = charts() + ending();
        return head + scenes(head.size() + rest.size()) + rest;
    }

private:
    std::string beginning() const {
        std::string html = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src data:; "
                           "style-src 'unsafe-inline'; script-src 'unsafe-inline'\">\n"
                           "<link rel=\"icon\" href=\"data:,\">\n<title>" +
                           escaped(name_) + ": from HDR to SDR</title>\n<style>\n" + kStyle +
                           "</style>\n</head>\n<body>\n";
        html += "<h1>" + escaped(name_) + ": from HDR to SDR</h1>\n" + facts();
        html += "<h2>Warnings</h2>\n";
        if (c_.advice.empty()) return html + "<p>None: metadata and pixels agree.</p>\n";
        html += "<ul class=\"warnings\">\n";
        for (const Advice& advice : c_.advice)
            html += "<li><b>" + escaped(advice.what) + "</b> " + escaped(advice.what_to_do) + "</li>\n";
        return html + "</ul>\n";
    }

    std::string facts() const {
        const ClipInfo& clip = c_.clip;
        const StaticMetadata& fixed = clip.static_metadata;
        std::string html = "<table>\n";
        const auto row = [&](const char* label, const std::string& value) {
            html += std::string("<tr><th scope=\"row\">") + label + "</th><td>" + escaped(value) + "</td></tr>\n";
        };
        const auto& frames = c_.light.frames;
        char rate[32];
        std::snprintf(rate, sizeof rate, "%.5g", av_q2d(clip.frame_rate));
        row("Video", std::to_string(clip.width) + "\u00d7" + std::to_string(clip.height) + ", " +
                         counted(static_cast<long>(frames.size()), "frame") + " at " + rate + " a second, " +
                         clip.codec + " in " + clip.container + ", " + clip.pixel_format);
        const char* transfer = av_color_transfer_name(clip.transfer);
        const char* primaries = av_color_primaries_name(clip.primaries);
        row("Colour", std::string("transfer ") + transfer + ", primaries " + primaries + ", " +
                          (clip.range == AVCOL_RANGE_JPEG ? "full" : "limited") + " range");
        row("Mastering", fixed.has_mastering ? "peak " + luminance_text(fixed.mastering_peak) + " cd/m\u00b2, black " +
                                                   luminance_text(fixed.mastering_black) + " cd/m\u00b2"
                                             : "not told");
        row("MaxCLL, MaxFALL",
            "measured " + luminance_text(c_.light.max_cll) + " and " + luminance_text(c_.light.max_fall) +
                " cd/m\u00b2; the clip says " +
                (fixed.has_content_light ? std::to_string(fixed.max_cll) + " and " + std::to_string(fixed.max_fall)
                                         : "nothing"));
        const auto with = std::count_if(frames.begin(), frames.end(),
                                        [](const MeasuredFrame& frame) { return frame.origin == RecordOrigin::kOwn; });
        row("HDR10+", with == 0
                          ? "none"
                          : "on " + std::to_string(with) + " of " + counted(static_cast<long>(frames.size()), "frame"));
        row("Converted by", c_.fixed_table ? "the fixed table: there is no HDR10+ metadata"
                                           : "each frame's HDR10+ tone curve, for a display of 250 cd/m\u00b2");
        return html + "</table>\n";
    }

    std::string picture(const std::string& jpeg, const Still& still, const char* what, const char* name,
                        const std::string& caption) const {
        return "<figure><img width=\"" + std::to_string(still.width) + "\" height=\"" + std::to_string(still.height) +
               "\" alt=\"Frame " + std::to_string(still.frame) + ", " + what + "\" src=\"data:image/jpeg;base64," +
               base64(jpeg) + "\"><figcaption data-name=\"" + name + "\">" + caption + "</figcaption></figure>\n";
    }

    std::string still_html(const Still& still) const {
        const char* ours = c_.fixed_table ? "SDR by the fixed table" : "SDR by the clip's records";
        return "<div><div class=\"stills\">\n" +
               picture(still.source, still, "the PQ source", "PQ source", "The PQ signal as it is: flat and dull") +
               picture(still.automatic, still, ours, "SDR", std::string(ours) + ", as mode auto gives it") +
               picture(still.by_default, still, "SDR by the default record", "SDR, default record",
                       "SDR by the default record, as if the clip had no HDR10+") +
               "</div></div>\n";
    }

    /// Stills as long as there is room: of all scenes, or of evenly chosen ones.
    std::string scenes(size_t other_bytes) {
        std::vector<std::string> pictures;
        for (const Still& still : c_.stills)
            pictures.push_back(still_html(still));
        constexpr size_t kForText = 60000;
        const size_t room = c_.most_bytes > other_bytes + kForText ? c_.most_bytes - other_bytes - kForText : 0;
        size_t step = 1;
        const auto bytes = [&] {
            size_t sum = 0;
            for (size_t i = 0; i < pictures.size(); i += step)
                sum += pictures[i].size();
            return sum;
        };
        while (step < pictures.size() && bytes() > room)
            ++step;
        const bool none_fits = pictures.empty() || bytes() > room;
        size_t shown = 0;
        std::string list;
        for (size_t i = 0; i < c_.scenes.size(); ++i) {
            const Scene& scene = c_.scenes[i];
            const auto& frames = c_.light.frames;
            if (i < kMostScenes)
                list += "<h3>Scene " + std::to_string(i + 1) + ": frames " +
                        std::to_string(frames[scene.first].number) + " to " +
                        std::to_string(frames[scene.last].number) + "</h3>\n<p class=\"quiet\">From " +
                        seconds_text(frames[scene.first].seconds) + " on; " + scene.why + "; " + scene_light(scene) +
                        "</p>\n";
            const auto found = std::find_if(c_.stills.begin(), c_.stills.end(), [&](const Still& still) {
                return still.frame >= frames[scene.first].number && still.frame <= frames[scene.last].number;
            });
            const auto place = static_cast<size_t>(found - c_.stills.begin());
            if (i >= kMostScenes || found == c_.stills.end() || none_fits || place % step != 0) continue;
            list += pictures[place];
            shown_.push_back(&*found);
            ++shown;
        }
        std::string html = "<h2>Scenes</h2>\n<p class=\"needs-script\">Drag the divider, or use the arrow keys.</p>\n";
        if (shown < c_.scenes.size())
            html +=
                "<p id=\"fewer\">" + counted(static_cast<long>(shown), "still") + " for " +
                counted(static_cast<long>(c_.scenes.size()), "scene") +
                ": more would make the page too large or too long. A larger --max-size or --stills makes room.</p>\n";
        return html + list;
    }

    std::string scene_light(const Scene& scene) const {
        double peak = 0, average = 0;
        for (int64_t i = scene.first; i <= scene.last; ++i) {
            peak = std::max(peak, c_.light.frames[i].light.peak());
            average += c_.light.frames[i].light.average / static_cast<double>(scene.last - scene.first + 1);
        }
        return "brightest pixel " + luminance_text(peak) + " cd/m\u00b2, average " + luminance_text(average) +
               " cd/m\u00b2";
    }

    std::string charts() const {
        const auto& frames = c_.light.frames;
        const auto values = [&](auto value) {
            std::vector<double> list(frames.size());
            std::transform(frames.begin(), frames.end(), list.begin(), value);
            return list;
        };
        const auto claim = [&](auto value) {
            return values([&](const MeasuredFrame& f) { return f.origin == RecordOrigin::kNone ? -1.0 : value(f); });
        };
        std::vector<Series> light = {
            {"peak", "brightest pixel", false, values([](const auto& f) { return f.light.peak(); })},
            {"high", "99 %", false, values([](const auto& f) { return f.light.percentile(99); })},
            {"average", "average of max(R, G, B)", false, values([](const auto& f) { return f.light.average; })},
            {"median", "median", false, values([](const auto& f) { return f.light.percentile(50); })},
            {"peak", "maximum in the record", true, claim([](const auto& f) { return claimed_peak(f.record); })},
            {"average", "average in the record", true,
             claim([](const auto& f) { return f.record.avg_maxrgb / 10.0; })}};
        double top = 10;
        for (const Series& series : light)
            top = std::max(top, 1.1 * *std::max_element(series.values.begin(), series.values.end()));
        std::vector<Series> outputs;
        for (size_t i = 0; i < kProbeCount; ++i) {
            Series series = {"p" + std::to_string(i), luminance_text(kProbes[i]) + " cd/m\u00b2 in", false, {}};
            for (const Outputs& of_frame : c_.outputs)
                series.values.push_back(of_frame[i]);
            outputs.push_back(std::move(series));
        }
        const std::string last = std::to_string(frames.size() - 1);
        std::string html =
            "<h2>Over time</h2>\n<div id=\"cursor-panel\" class=\"needs-script\"><label for=\"frame\">Frame "
            "<b id=\"frame-number\">0</b></label><input id=\"frame\" type=\"range\" min=\"0\" max=\"" +
            last + "\" step=\"1\" value=\"0\"></div>\n";
        html += "<h3>Light, measured and claimed</h3>\n" +
                line_chart("light-chart",
                           "Light over time: brightest pixel, 99 %, average and median as measured, maximum "
                           "and average as the records have them",
                           std::min(top, 10000.0), light);
        html += "<h3>The tone curve</h3>\n<p class=\"quiet\">What comes out for a few inputs, frame by frame" +
                std::string(c_.fixed_table ? ", by the default record: the clip has none" : "") + ".</p>\n" +
                line_chart("curve-chart", "Output of the tone curve over time for inputs from 1 to 1000 cd/m\u00b2",
                           300, outputs);
        html += "<h3 class=\"needs-script\">The chosen frame</h3>\n<div id=\"detail\" class=\"needs-script\">"
                "<svg id=\"tone\" viewBox=\"0 0 436 340\" role=\"img\" aria-label=\"Tone curve of the chosen frame "
                "with knee "
                "and anchors\"></svg><div><table id=\"light-numbers\"></table><table id=\"curve-numbers\"></table>"
                "<table id=\"record-numbers\"></table></div></div>\n";
        return html + flicker();
    }

    std::string flicker() const {
        std::string html = "<h2>Flicker</h2>\n";
        if (c_.jumps.empty()) return html + "<p>The curve does not jump within any scene.</p>\n";
        constexpr size_t kMostRows = 50;
        html +=
            "<p>Frames where the curve jumps from one frame to the next although the scene goes on: more than 0.015 of "
            "the PQ signal, about 15 codes of 10 bits. " +
            counted(static_cast<long>(c_.jumps.size()), "jump") +
            (c_.jumps.size() > kMostRows ? "; the first " + std::to_string(kMostRows) : "") +
            ".</p>\n<div class=\"scroll\"><table>\n<tr><th class=\"n\">frame</th><th class=\"n\">in, cd/m\u00b2</th>"
            "<th class=\"n\">out before</th><th class=\"n\">out after</th></tr>\n";
        for (size_t i = 0; i < std::min(c_.jumps.size(), kMostRows); ++i) {
            const Jump& jump = c_.jumps[i];
            html += "<tr><td class=\"n\"><a href=\"#frame\" data-frame=\"" + std::to_string(jump.frame) + "\">" +
                    std::to_string(c_.light.frames[jump.frame].number) + "</a></td><td class=\"n\">" +
                    luminance_text(jump.input) + "</td><td class=\"n\">" + luminance_text(jump.before) +
                    "</td><td class=\"n\">" + luminance_text(jump.after) + "</td></tr>\n";
        }
        return html + "</table></div>\n";
    }

    std::string commands() const {
        const std::string clip = shell_quoted(c_.path);
        const std::string pq = clip + (c_.size.empty() ? "" : " --size " + c_.size) + (c_.as_pq ? " --as-pq" : "");
        const int64_t frame = c_.stills.empty() ? 0 : c_.stills.front().frame;
        const std::string at = std::to_string(frame);
        std::string text = "# the charts of light, and every number in them\nlumivert measure " + pq +
                           " -o light.png\nlumivert measure " + pq + " --csv > light.csv\n";
        text += "# the stills; " + at + " is the first one's frame, take another's for the others\n";
        text += "lumivert convert " + pq + " --frames " + at + " --mode none -o source.png\n";
        text += "lumivert convert " + pq + " --frames " + at + " --mode auto -o sdr.png\n";
        text += "lumivert convert " + pq + " --frames " + at + " --mode hdr10plus --metadata none -o default.png\n";
        text += c_.fixed_table ? "# the fixed table over the light of a frame\n" : "# tone curves, and the records\n";
        text += "lumivert curve " + clip + " --frame " + at + " -o curve.png\n";
        if (!c_.fixed_table)
            text += "lumivert curve " + clip + " --all -o curves.png\nlumivert metadata " + clip + " -o records.json\n";
        text += "# this page\nlumivert report " + pq + " -o report.html\n";
        return "<h2>How to make these pictures</h2>\n<pre>" + escaped(text) + "</pre>\n";
    }

    std::string ending() const {
        Json records = Json::array(), curves = Json::array(), light = Json::array(), seconds = Json::array(),
             record_of = Json::array(), origin = Json::array();
        std::map<Record, size_t> record_index;
        double top = 1000;
        for (const MeasuredFrame& frame : c_.light.frames) {
            light.push_back({short_number(frame.light.peak()), short_number(frame.light.percentile(99.98)),
                             short_number(frame.light.percentile(99)), short_number(frame.light.average),
                             short_number(frame.light.percentile(50))});
            seconds.push_back(std::round(frame.seconds * 1000) / 1000);
            origin.push_back(static_cast<int>(frame.origin));
            if (frame.origin == RecordOrigin::kNone) {
                record_of.push_back(-1);
                continue;
            }
            const auto found = record_index.try_emplace(frame.record, records.size());
            if (found.second) records.push_back(record_json(frame.record));
            record_of.push_back(found.first->second);
        }
        for (const ToneCurve& curve : curves_) {
            curves.push_back(curve_json(curve));
            top = std::max(top, std::min(1.1 * curve.full_scale, 10000.0));
        }
        const Json data = {
            {"plot", {{"left", ChartFrame::kLeft}, {"right", ChartFrame::kRight}, {"width", ChartFrame::kWidth}}},
            {"top", top},
            {"light", light},
            {"seconds", seconds},
            {"record", record_of},
            {"origin", origin},
            {"curve", curve_of_},
            {"records", records},
            {"curves", curves}};
        std::string text = data.dump();
        for (size_t at = 0; (at = text.find('<', at)) != std::string::npos;)
            text.replace(at, 1, "\\u003c"); // nothing in it may end the element
        return commands() +
               "<p class=\"quiet\">Made by lumivert " LUMIVERT_VERSION
               ". Light is in cd/m\u00b2, in linear BT.2020; percentiles and averages are of max(R, G, B).</p>\n" +
               "<script type=\"application/json\" id=\"data\">" + text + "</script>\n<script>\n" + kScript +
               "</script>\n</body>\n</html>\n";
    }

    static constexpr size_t kMostScenes = 200;

    const ReportContent& c_;
    const std::string name_;
    std::map<Record, size_t> curve_index_;
    std::vector<ToneCurve> curves_;
    std::vector<size_t> curve_of_;
    std::vector<const Still*> shown_;
};

} // namespace

std::string report_page(const ReportContent& content) {
    return Page(content).text();
}

} // namespace lumivert::tool
