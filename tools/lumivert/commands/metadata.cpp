#include "commands/commands.h"
#include "error.h"
#include "hdr10plus/metadata_json.h"
#include "io/output_file.h"
#include "io/progress.h"
#include "media/clip_reader.h"
#include "report.h"

namespace lumivert::tool {
namespace {

struct Options {
    std::string input, output;
};

int run(const Options& options) {
    refuse_same_file(options.output, {options.input});
    ClipReader clip(options.input);
    RecordsByFrame records;
    int64_t frames = 0;
    {
        Progress progress(clip.info().frames);
        for (ClipFrame frame; clip.next(frame); progress.update(frames)) {
            if (frame.record) records.emplace(frame.number, *frame.record);
            ++frames;
        }
    }
    if (clip.loses_records()) throw Error(clip.path() + kLosesRecords);
    clip.report();
    if (records.empty()) throw Error(clip.path() + ": no HDR10+ metadata in " + counted(frames, "frame"));
    const auto missing = frames - static_cast<int64_t>(records.size());
    if (missing > 0)
        warn(clip.path() + ": " + counted(missing, "frame") + " without a record; the list leaves them out");
    write_document(options.output, write_metadata(records));
    tell(counted(frames, "frame") + ", " + counted(static_cast<long>(records.size()), "record"));
    return status_so_far();
}

} // namespace

Command add_metadata(Arguments& arguments) {
    auto options = std::make_shared<Options>();
    arguments.add("INPUT", options->input, "a clip; - is standard input").required();
    arguments.add("-o,--output", options->output, "the JSON file; - is standard output").required();
    arguments.footer("Examples:\n  lumivert metadata clip.mkv -o clip.json\n"
                     "  lumivert convert clip.mkv --metadata clip.json -o clip-sdr.mp4");
    return [options] { return run(*options); };
}

} // namespace lumivert::tool
