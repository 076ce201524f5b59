#include <algorithm>
#include <filesystem>
#include <iostream>
#include <set>

#include "commands/commands.h"
#include "commands/options.h"
#include "conversion/clip_conversion.h"
#include "error.h"
#include "io/output_file.h"
#include "media/ffmpeg.h"
#include "report.h"

namespace lumivert::tool {
namespace {

namespace fs = std::filesystem;

struct Options {
    std::vector<std::string> inputs;
    std::string size, frames, from, to, device;
    double rate = 25;
    bool as_pq = false, json = false;
    Request request; ///< of each clip, but for its input and output
};

bool is_folder(const std::string& output) {
    return (!output.empty() && output.back() == '/') || fs::is_directory(output);
}

/// The name of a result in a folder: the clip's own, with an extension that a writer has.
std::string result_name(const std::string& input, const std::string& writer) {
    fs::path name = fs::path(input).filename();
    if (!writer.empty()) return name.replace_extension("." + writer).string();
    return writer_for(name.string()) != nullptr ? name.string() : name.replace_extension(".mp4").string();
}

/// A request for each input.
std::vector<Request> requests_of(const Options& options) {
    std::vector<Request> requests;
    const std::string& output = options.request.output;
    const bool folder = is_folder(output);
    if (options.inputs.size() > 1 && !folder)
        throw Error(output + ": several inputs need a folder for their results, written with a slash: " + output + "/");
    if (folder && fs::exists(output) && !fs::is_directory(output)) throw Error(output + ": is not a folder");
    std::set<std::string> names;
    for (const std::string& input : options.inputs) {
        Request request = options.request;
        request.input = input;
        request.part = parse_part(options.frames, options.from, options.to);
        if (folder) {
            if (input == "-") throw Error("standard input has no name for a result in a folder");
            request.output = (fs::path(output) / result_name(input, request.writer)).string();
            if (!names.insert(request.output).second)
                throw Error(request.output + ": would be the result of more than one input");
        }
        std::vector<std::string> read = options.inputs;
        read.push_back(request.metadata);
        refuse_same_file(request.output, read);
        requests.push_back(std::move(request));
    }
    if (folder) {
        std::error_code error;
        fs::create_directories(output, error);
        if (error) throw Error(output + ": " + error.message());
    }
    return requests;
}

/// Converts clips one after the other; one that fails does not stop the others.
class Batch {
public:
    explicit Batch(const Options& options) : options_(options), brief_(is_folder(options.request.output)) {}

    int run() {
        for (const Request& request : requests_of(options_)) {
            nlohmann::ordered_json entry = {{"input", request.input}, {"output", request.output}};
            const bool done = convert(request, entry);
            const std::vector<std::string> warnings = take_warnings();
            const ExitStatus status = !done ? kFailed : warnings.empty() ? kDone : kDoneWithWarnings;
            worst_ = std::max(worst_, status);
            entry["status"] = static_cast<int>(status);
            entry["warnings"] = warnings;
            document_.push_back(std::move(entry));
        }
        if (options_.json) std::cout << nlohmann::ordered_json{{"clips", document_}}.dump(2) << '\n';
        return worst_;
    }

private:
    /// False where the clip failed; throws where it is the only one and no document would say so.
    bool convert(const Request& request, nlohmann::ordered_json& entry) {
        take_other_ffmpeg_errors(); // of a clip that failed before
        try {
            if (is_kept(request.output)) {
                entry["kept"] = true;
                return true;
            }
            const auto source = open_source(request.input, options_.size, options_.rate, options_.as_pq, true);
            const Outcome outcome = convert_clip(request, *source, environment_, options_.device);
            if (const std::string errors = take_other_ffmpeg_errors(); !errors.empty())
                warn(request.output + ": " + errors);
            report(request, outcome);
            entry.update(to_json(outcome));
            return true;
        } catch (const std::exception& error) {
            if (!brief_ && !options_.json) throw;
            fail(error.what());
            entry["error"] = error.what();
            return false;
        }
    }

    void report(const Request& request, const Outcome& outcome) const {
        const std::string name = brief_ ? request.input + ": " : "";
        if (!outcome.left_out.empty()) tell(name + "not copied: " + outcome.left_out);
        if (brief_) {
            const std::string speed = outcome.plan.mode ? "; " + speed_summary(outcome, true) : "";
            tell(name + metadata_summary(outcome) + speed);
        } else {
            tell(metadata_summary(outcome));
            if (outcome.plan.mode) tell(speed_summary(outcome, false));
        }
    }

    const Options& options_;
    const bool brief_; ///< a line for each clip, with its name
    std::optional<Environment> environment_;
    nlohmann::ordered_json document_ = nlohmann::ordered_json::array();
    ExitStatus worst_ = kDone;
};

int run(const Options& options) {
    if (options.json && options.request.output == "-")
        throw Error("--json and the result cannot both be standard output");
    return Batch(options).run();
}

} // namespace

Command add_convert(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    Options& o = *options;
    Request& r = o.request;
    std::string kinds;
    for (const WriterInfo& writer : writers())
        kinds +=
            "\n  ." + std::string(writer.name) + std::string(6 - std::string(writer.name).size(), ' ') + writer.about;
    arguments.add("INPUT", o.inputs, "clips, or raw P010 with --size; - is standard input").required();
    arguments.add("-o,--output", r.output, "the result; its extension selects the writer; FOLDER/ for several inputs")
        .required();
    arguments.add("--size", o.size, "INPUT is raw P010 of this size, such as 1920x1080");
    arguments.add("--rate", o.rate, "frames per second of raw P010").between(1.0, 1000.0).shows_default();
    arguments
        .add("--mode", r.mode,
             "auto: hdr10plus if the first 16 frames have HDR10+ metadata, else static; none: keep the PQ samples")
        .one_of({"auto", "static", "hdr10plus", "none"})
        .shows_default();
    arguments.add("--metadata", r.metadata,
                  "HDR10+ records from this JSON file instead of the clip's; none: no records");
    arguments.add("--max-luminance", r.max_luminance, "mastering peak in cd/m2, default: the clip's")
        .between(1.0, 10000.0);
    arguments.add("--max-cll", r.max_cll, "maximum content light level in cd/m2, default: the clip's")
        .between(1.0, 10000.0);
    arguments
        .add("--format", r.format,
             "what the converter writes: nv12, p010 or rgba; default: p010 in mode static, else what OUTPUT holds, "
             "nv12 first")
        .one_of({"nv12", "p010", "rgba"});
    arguments.add("--as", r.writer, "the writer to use, whatever OUTPUT's extension");
    arguments.add("--frames", o.frames, "only these frames, such as 10-19, counted from 0");
    arguments.add("--from", o.from, "only from this time on, such as 00:01:00");
    arguments.add("--to", o.to, "only up to this time, such as 00:01:10");
    arguments.add("--interval", r.interval, "convert the first frame and then every Nth").between(1, 1000000);
    arguments.add("--entry", r.entry, "pool imports planes for each frame, retained once")
        .one_of({"pool", "retained"})
        .shows_default();
    arguments.add("--device", o.device, "part of an OpenCL device's name or number; see 'lumivert devices'");
    arguments.add("--codec", r.codec, "h264 or hevc; default: h264 for 8 bits, hevc for 10").one_of({"h264", "hevc"});
    arguments.add("--preset", r.preset, "encoder preset, default: veryfast")
        .one_of({"ultrafast", "superfast", "veryfast", "faster", "fast", "medium", "slow", "slower", "veryslow",
                 "placebo"});
    arguments.add("--quality", r.quality, "constant rate factor of the encoder, 0 is best")
        .between(0, 51)
        .shows_default();
    arguments.add_flag("--as-pq", o.as_pq, "accept a clip that is not tagged PQ or has 8 bits, as if it were PQ");
    arguments.add_flag("--json", o.json, "print a summary as a JSON document");
    arguments.footer("OUTPUT's extensions:" + kinds +
                     "\n\nExamples:\n"
                     "  lumivert convert phone.mp4 -o phone-sdr.mp4\n"
                     "  lumivert convert movie.mkv --from 00:01:00 --to 00:01:10 -o minute-sdr.mkv\n"
                     "  lumivert convert movie.mkv --frames 100 -o frame.png\n"
                     "  lumivert convert *.mp4 -o sdr/\n"
                     "  ffmpeg -i clip.mp4 -f rawvideo -pix_fmt p010le - | \\\n"
                     "    lumivert convert - --size 1920x1080 --mode static -o sdr.p010");
    return [options] { return run(*options); };
}

} // namespace lumivert::tool
