#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>

#include <nlohmann/json.hpp>

#include "commands/commands.h"
#include "commands/options.h"
#include "comparison/codes.h"
#include "comparison/pairs.h"
#include "comparison/ssim.h"
#include "error.h"
#include "io/output_file.h"
#include "io/progress.h"
#include "media/pixel_converter.h"
#include "plot/difference.h"
#include "report.h"

namespace lumivert::tool {
namespace {

using Json = nlohmann::ordered_json;

struct Options {
    std::string a, b, size, format, picture, untagged, device;
    std::vector<std::string> modes;
    int tolerance = 0, worst = 0;
    bool json = false, csv = false;
};

/// What one pair of frames differs by.
struct FrameResult {
    std::vector<Component> components;
    int largest = 0;
    double mean = 0, high = 0, highest = 0; ///< Delta E: mean, 99 %, largest
    double ssim = 1;
};

/// A pair that is kept because it differs so much.
struct Kept {
    double mean;
    FramePtr a, b;
    DifferenceMap map;
};

/// Everything that is found out about two sides.
struct Result {
    explicit Result(const Form& form, const Kind& kind)
        : codes(*av_pix_fmt_desc_get(form.format), kind.width, kind.height) {}

    CodeComparison codes;
    Colours colours; ///< `light` is the mean over all frames
    std::vector<FrameResult> frames;
    std::array<int64_t, 2> counts = {};
    bool has_source = false;
    std::vector<Kept> worst; ///< the first is the worst
    std::vector<std::string> warnings;
};

std::string fixed(double value, int digits) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

/// How a file without a header is laid out; nothing for others.
std::optional<RawLayout> raw_layout(const std::string& path, const Options& options) {
    const std::string extension = std::filesystem::path(path).extension().string();
    const FormatInfo* by_name = extension.empty() ? nullptr : format_named(extension.substr(1));
    const bool is_clip =
        av_match_ext(path.c_str(), "mp4,mov,m4v,mkv,webm,ts,m2ts,mxf,avi,hevc,h265,265,h264,264,ivf,obu,av1,y4m,png,"
                                   "jpg,jpeg,tif,tiff,bmp,webp") != 0;
    if (options.size.empty()) {
        if (by_name != nullptr) throw Error(path + ": raw frames need their size, such as --size 1920x1080");
        return std::nullopt;
    }
    if (is_clip) return std::nullopt;
    const FormatInfo* format = options.format.empty() ? by_name : format_named(options.format);
    if (format == nullptr) throw Error(path + ": raw frames need --format nv12, p010 or rgba");
    const Size size = parse_size(options.size);
    return RawLayout{size.width, size.height, av_format(format->format)};
}

std::unique_ptr<Pairs> open_pairs(const Options& options) {
    if (options.modes.empty()) {
        if (options.b.empty()) throw Error("there is nothing to compare " + options.a + " with: name B, or --modes");
        return open_files(options.a, raw_layout(options.a, options), options.b, raw_layout(options.b, options));
    }
    if (!options.b.empty()) throw Error("--modes compares one clip in two modes; leave out " + options.b);
    if (options.modes.size() != 2) throw Error("--modes takes two, such as static,hdr10plus");
    return open_modes(open_source(options.a, options.size, 25, false), options.modes[0], options.modes[1],
                      options.device);
}

void keep_if_worst(Result& result, size_t most, FramePtr& a, FramePtr& b, double mean) {
    if (most == 0 || result.codes.current.largest == 0) return;
    if (result.worst.size() == most && result.worst.back().mean >= mean) return;
    if (result.worst.size() == most) result.worst.pop_back();
    const auto place =
        std::find_if(result.worst.begin(), result.worst.end(), [mean](const Kept& kept) { return kept.mean < mean; });
    result.worst.insert(
        place, {mean, FramePtr(av_frame_clone(a.get())), FramePtr(av_frame_clone(b.get())), result.codes.current});
}

Result compare(Pairs& pairs, const Kind (&kinds)[2], const Form& form, const Options& options) {
    Result result(form, kinds[0]);
    Former former_a(kinds[0], form), former_b(kinds[1], form);
    Ssim ssim(kinds[0].width, kinds[0].height, form.format);
    Progress progress(std::max(kinds[0].frames, kinds[1].frames));
    const AVFrame *raw_a = nullptr, *raw_b = nullptr;
    while (pairs.next(raw_a, raw_b)) {
        if (raw_a != nullptr) ++result.counts[0];
        if (raw_b != nullptr) ++result.counts[1];
        if (raw_a == nullptr || raw_b == nullptr) continue;
        FramePtr a = former_a.bring(*raw_a), b = former_b.bring(*raw_b);
        result.codes.add(*a, *b, options.tolerance);
        ssim.add(*a, *b);
        FrameResult frame;
        frame.components = result.codes.latest;
        frame.largest = result.codes.current.largest;
        if (form.has_light) {
            // Two modes are compared as they are, like each of them with the source; files in their common form.
            const AVFrame* source = pairs.source();
            result.has_source = source != nullptr;
            const Side one = source != nullptr ? Side{*raw_a, *kinds[0].encoding} : Side{*a, form.encoding};
            const Side other = source != nullptr ? Side{*raw_b, *kinds[1].encoding} : Side{*b, form.encoding};
            const Colours colours = compare_colours(one, other, source);
            frame.mean = colours.between.mean();
            frame.high = colours.between.percentile(99);
            frame.highest = colours.between.largest();
            result.colours.add(colours);
        }
        keep_if_worst(result, static_cast<size_t>(options.worst), a, b, form.has_light ? frame.mean : frame.largest);
        result.frames.push_back(std::move(frame));
        progress.update(result.codes.frames);
    }
    const std::vector<double>& values = ssim.finish();
    for (size_t i = 0; i < std::min(values.size(), result.frames.size()); ++i)
        result.frames[i].ssim = values[i];
    for (double& light : result.colours.light)
        light /= static_cast<double>(std::max<size_t>(result.frames.size(), 1));
    return result;
}

double mean_ssim(const Result& result) {
    double sum = 0;
    for (const FrameResult& frame : result.frames)
        sum += frame.ssim;
    return result.frames.empty() ? 1 : sum / static_cast<double>(result.frames.size());
}

template <typename Less>
int64_t extreme(const Result& result, Less less) {
    return std::max_element(result.frames.begin(), result.frames.end(), less) - result.frames.begin();
}

void print_text(const Result& result, const Kind (&kinds)[2], const Form& form, const Options& options) {
    const std::string size = std::to_string(kinds[0].width) + "x" + std::to_string(kinds[0].height);
    std::cout << counted(result.codes.frames, "frame") << " of " << size << ", " << form.text << '\n';
    if (!options.modes.empty()) std::cout << "  A is " << kinds[0].name << ", B is " << kinds[1].name << '\n';
    char line[200];
    for (const Component& component : result.codes.components) {
        if (component.largest == 0)
            std::snprintf(line, sizeof line, "  %-2s  identical", component.name.c_str());
        else
            std::snprintf(line, sizeof line, "  %-2s  %6.2f dB, largest difference %d at (%d, %d) of frame %ld",
                          component.name.c_str(), component.psnr(result.codes.depth()), component.largest, component.x,
                          component.y, static_cast<long>(component.frame));
        std::cout << line << '\n';
    }
    if (result.codes.worst.largest > 0) {
        const auto lowest = extreme(result, [](const auto& x, const auto& y) { return x.ssim > y.ssim; });
        std::cout << "  SSIM " << fixed(mean_ssim(result), 4) << ", lowest " << fixed(result.frames[lowest].ssim, 4)
                  << " in frame " << lowest << '\n';
        if (form.has_light) {
            const auto most = extreme(result, [](const auto& x, const auto& y) { return x.highest < y.highest; });
            std::cout << "  Delta E ITP: mean " << fixed(result.colours.between.mean(), 2) << ", 99 % below "
                      << fixed(result.colours.between.percentile(99), 1) << ", largest "
                      << fixed(result.colours.between.largest(), 1) << " in frame " << most << " (1 is just visible)\n";
        }
    }
    if (result.has_source)
        for (int side = 0; side < 2; ++side)
            std::cout << "  "
                      << "AB"[side] << ", " << kinds[side].name << ": average light "
                      << fixed(result.colours.light[side], 1) << " cd/m2, Delta E ITP to the source: mean "
                      << fixed(result.colours.to_source[side].mean(), 1) << '\n';
    const std::string beyond = options.tolerance > 0 ? " by more than " + std::to_string(options.tolerance) : "";
    if (result.codes.first_differing < 0)
        std::cout << "  no frame differs" << beyond << '\n';
    else
        std::cout << "  first frame that differs" << beyond << ": " << result.codes.first_differing << '\n';
    if (!options.picture.empty() && result.codes.worst.frame < 0)
        std::cout << "  " << options.picture << " is not drawn\n";
    else if (!options.picture.empty())
        std::cout << "  " << options.picture << " shows frame " << result.codes.worst.frame
                  << "; its largest difference is " << result.codes.worst.largest << '\n';
}

Json frame_json(const FrameResult& frame, size_t number, const Result& result, const Form& form) {
    Json json = {{"frame", number}, {"largest_difference", frame.largest}, {"psnr_db", Json::object()}};
    for (const Component& c : frame.components)
        json["psnr_db"][c.name] = c.largest > 0 ? Json(c.psnr(result.codes.depth())) : Json();
    json["ssim"] = frame.ssim;
    if (form.has_light)
        json["delta_e_itp"] = {{"mean", frame.mean}, {"percentile_99", frame.high}, {"largest", frame.highest}};
    return json;
}

void print_json(const Result& result, const Kind (&kinds)[2], const Form& form, const Options& options) {
    Json planes = Json::array(), list = Json::array();
    for (const Component& c : result.codes.components) {
        Json plane = {{"plane", c.name}, {"largest_difference", c.largest}, {"psnr_db", nullptr}};
        if (c.largest > 0) {
            plane["psnr_db"] = c.psnr(result.codes.depth());
            plane["at"] = {{"frame", c.frame}, {"x", c.x}, {"y", c.y}};
        }
        planes.push_back(plane);
    }
    for (size_t i = 0; i < result.frames.size(); ++i)
        list.push_back(frame_json(result.frames[i], i, result, form));
    Json document = {{"a", kinds[0].name},
                     {"b", kinds[1].name},
                     {"form", form.text},
                     {"frames", result.counts},
                     {"bits", result.codes.depth()},
                     {"tolerance", options.tolerance},
                     {"planes", planes},
                     {"ssim", mean_ssim(result)},
                     {"delta_e_itp", nullptr},
                     {"first_differing_frame", nullptr}};
    if (form.has_light)
        document["delta_e_itp"] = {{"mean", result.colours.between.mean()},
                                   {"percentile_99", result.colours.between.percentile(99)},
                                   {"largest", result.colours.between.largest()}};
    if (result.codes.first_differing >= 0) document["first_differing_frame"] = result.codes.first_differing;
    if (result.has_source)
        for (int side = 0; side < 2; ++side)
            document["sides"].push_back({{"name", kinds[side].name},
                                         {"average_light_cd_m2", result.colours.light[side]},
                                         {"mean_delta_e_itp_to_source", result.colours.to_source[side].mean()}});
    document["warnings"] = result.warnings;
    document["each_frame"] = list;
    std::cout << document.dump(1) << '\n';
}

void print_csv(const Result& result, const Form& form) {
    std::string text = "frame,largest_difference";
    for (const Component& c : result.codes.components)
        text += ",psnr_" + c.name;
    text += ",ssim,delta_e_mean,delta_e_p99,delta_e_largest\n";
    for (size_t i = 0; i < result.frames.size(); ++i) {
        const FrameResult& frame = result.frames[i];
        text += std::to_string(i) + "," + std::to_string(frame.largest);
        for (const Component& c : frame.components)
            text += "," + (c.largest > 0 ? fixed(c.psnr(result.codes.depth()), 3) : "inf");
        text += "," + fixed(frame.ssim, 6);
        text += form.has_light ? "," + fixed(frame.mean, 3) + "," + fixed(frame.high, 2) + "," + fixed(frame.highest, 2)
                               : ",,,";
        text += "\n";
    }
    std::cout << text;
}

/// "out.png" as "out-worst-1.png".
std::string worst_name(const std::string& picture, size_t place) {
    const std::filesystem::path path(picture);
    return (path.parent_path() / (path.stem().string() + "-worst-" + std::to_string(place) + ".png")).string();
}

void draw_worst(const Result& result, const Kind (&kinds)[2], const Form& form, const Options& options) {
    for (size_t i = 0; i < result.worst.size(); ++i) {
        const Kept& kept = result.worst[i];
        FramePtr shown[2];
        for (int side = 0; side < 2; ++side) {
            Kind kind = kinds[side];
            kind.format = form.format;
            shown[side] = Former(kind, {Form::kRgb, AV_PIX_FMT_RGB24, form.encoding, true, ""})
                              .bring(side == 0 ? *kept.a : *kept.b);
        }
        draw_side_by_side(worst_name(options.picture, i + 1), kinds[0].name, *shown[0], kinds[1].name, *shown[1],
                          form.has_light ? "mean Delta E ITP " + fixed(kept.mean, 2) : "largest difference", kept.map);
    }
}

void check_outputs(const Options& options) {
    if (options.json && options.csv) throw Error("--json and --csv both go to standard output; choose one");
    if (options.worst > 0 && options.picture.empty())
        throw Error("--worst numbers its pictures after -o, such as -o difference.png");
    if (options.picture.empty()) return;
    if (std::filesystem::path(options.picture).extension() != ".png")
        throw Error(options.picture + ": differences are drawn as .png");
    refuse_same_file(options.picture, {options.a, options.b});
    check_writable(options.picture);
    for (int place = 1; place <= options.worst; ++place)
        refuse_same_file(worst_name(options.picture, place), {options.a, options.b});
}

int run(const Options& options) {
    check_outputs(options);
    const auto pairs = open_pairs(options);
    Kind kinds[2] = {pairs->kind(0), pairs->kind(1)};
    const auto size = [](const Kind& kind) { return std::to_string(kind.width) + "x" + std::to_string(kind.height); };
    if (size(kinds[0]) != size(kinds[1]))
        throw Error("sizes differ: " + kinds[0].name + " " + size(kinds[0]) + ", " + kinds[1].name + " " +
                    size(kinds[1]));
    if (!options.untagged.empty())
        for (Kind& kind : kinds)
            if (!kind.encoding) kind.encoding = options.untagged == "pq" ? Encoding::kPq : Encoding::kSdr;
    const Form form = common_form(kinds[0], kinds[1]);
    constexpr uint64_t kNotCompared =
        AV_PIX_FMT_FLAG_BE | AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_FLOAT;
    if (const AVPixFmtDescriptor& format = *av_pix_fmt_desc_get(form.format); (format.flags & kNotCompared) != 0)
        throw Error(std::string("pictures of ") + format.name + " cannot be compared");

    Result result = compare(*pairs, kinds, form, options);
    pairs->report();
    if (result.counts[0] != result.counts[1])
        warn(kinds[0].name + " has " + counted(result.counts[0], "frame") + ", " + kinds[1].name + " " +
             std::to_string(result.counts[1]));
    result.warnings = take_warnings();
    if (!options.picture.empty() && result.codes.worst.frame >= 0)
        draw_difference(options.picture, "A: " + kinds[0].name + ", B: " + kinds[1].name, result.codes.worst);
    draw_worst(result, kinds, form, options);
    if (options.json)
        print_json(result, kinds, form, options);
    else if (options.csv)
        print_csv(result, form);
    else
        print_text(result, kinds, form, options);
    return result.codes.first_differing >= 0 ? kDoneWithWarnings : status_so_far();
}

} // namespace

Command add_compare(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    Options& o = *options;
    arguments.add("A", o.a, "a clip, a picture, or raw frames with --size").required();
    arguments.add("B", o.b, "what to compare it with");
    arguments
        .add("--modes", o.modes,
             "compare two conversions of A, a PQ clip: auto, static, hdr10plus, default (hdr10plus without "
             "the clip's records), or none (the source)")
        .separated_by(',')
        .one_of({"auto", "static", "hdr10plus", "default", "none"});
    arguments.add("--size", o.size, "the size of raw frames");
    arguments.add("--format", o.format, "of raw frames, unless their extension tells: nv12, p010 or rgba");
    arguments.add("--untagged", o.untagged, "how to read samples without colour tags: pq or sdr").one_of({"pq", "sdr"});
    arguments.add("--tolerance", o.tolerance, "ignore differences up to this").between(0, 65535).shows_default();
    arguments.add("-o,--output", o.picture, "draw the frame with the largest difference, as a PNG");
    arguments.add("--worst", o.worst, "also draw the N worst frames side by side, next to the file of -o")
        .between(1, 20);
    arguments.add_flag("--json", o.json, "one JSON document");
    arguments.add_flag("--csv", o.csv, "a line of numbers for every frame");
    arguments.add("--device", o.device, "for --modes: part of an OpenCL device's name or number");
    arguments.footer("The exit status is 1 if there is a difference.\n\nExamples:\n"
                     "  lumivert compare old.nv12 new.nv12 --size 1920x1080 --tolerance 1 -o difference.png\n"
                     "  lumivert compare clip.mp4 --modes auto,static");
    return [options] {
        if (!options->picture.empty() && is_kept(options->picture)) options->picture = "", options->worst = 0;
        return run(*options);
    };
}

} // namespace lumivert::tool
