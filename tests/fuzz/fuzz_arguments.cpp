/// Any words as the tool's command line: parsed without running anything, or refused with an error of the parser.
#include <sstream>
#include <vector>

#include <CLI/CLI.hpp>

#include "commands/commands.h"
#include "commands/options.h"
#include "error.h"
#include "fuzz/fuzz.h"

namespace {

using namespace lumivert::tool;

void parse_command_line(const std::vector<std::string>& words) {
    std::vector<const char*> argv = {"lumivert"};
    for (const std::string& word : words)
        argv.push_back(word.c_str());
    CLI::App app;
    const auto commands = add_commands(app);
    try {
        app.parse(static_cast<int>(argv.size()), argv.data());
    } catch (const CLI::ParseError&) {
        return;
    }
    const auto parsed = [](const auto& command) { return command.first->parsed(); };
    fuzz::require(std::count_if(commands.begin(), commands.end(), parsed) > 0, "a command was asked for");
}

void parse_values(const std::string& word) {
    try {
        const Size size = parse_size(word);
        const bool even = size.width % 2 == 0 && size.height % 2 == 0;
        fuzz::require(size.width > 0 && size.height > 0 && even, "even sizes above 0");
    } catch (const Error&) {
    }
    try {
        const FrameRange frames = parse_frames(word);
        fuzz::require(frames.first >= 0 && frames.last >= frames.first, "a range of frames");
    } catch (const Error&) {
    }
}

} // namespace

/// One word to a line.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::istringstream text(fuzz::text(data, size));
    std::vector<std::string> words;
    for (std::string word; std::getline(text, word);)
        words.push_back(word);
    parse_command_line(words);
    for (const std::string& word : words)
        parse_values(word);
    return 0;
}
