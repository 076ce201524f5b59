/// What a command takes from the command line. CLI11 does the work behind this: a file that includes it takes ten
/// seconds to compile, so the commands do not.
#pragma once

#include <initializer_list>
#include <string>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace lumivert::tool {

/// One value, and what it must be. The parser refuses anything else.
class Argument {
public:
    explicit Argument(CLI::Option& option) : option_(option) {}

    Argument& required();
    Argument& between(int least, int most); ///< both included
    Argument& between(double least, double most);
    Argument& not_negative();
    Argument& one_of(std::initializer_list<const char*> words);
    Argument& one_of(std::initializer_list<int> numbers);
    Argument& separated_by(char separator); ///< the values of a list
    Argument& shows_default();              ///< in the help: what the variable holds now

private:
    CLI::Option& option_;
};

/// All that a command takes. A variable keeps its value where nothing is given, and must outlive the parsing.
class Arguments {
public:
    explicit Arguments(CLI::App& command) : command_(command) {}

    /// `name` is "--long", "-s,--long", or "NAME" for what is given by its place. `Value` is a string, a list of
    /// strings or a number: those of arguments.cpp.
    template <typename Value>
    Argument add(const char* name, Value& value, const std::string& about);

    /// True if given.
    void add_flag(const char* name, bool& value, const char* about);

    /// What the help ends with.
    void footer(const std::string& text);

private:
    CLI::App& command_;
};

} // namespace lumivert::tool
