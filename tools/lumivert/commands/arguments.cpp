#include "commands/arguments.h"

#include <vector>

#include <CLI/CLI.hpp>

namespace lumivert::tool {

Argument& Argument::required() {
    option_.required();
    return *this;
}

Argument& Argument::between(int least, int most) {
    option_.check(CLI::Range(least, most));
    return *this;
}

Argument& Argument::between(double least, double most) {
    option_.check(CLI::Range(least, most));
    return *this;
}

Argument& Argument::not_negative() {
    option_.check(CLI::NonNegativeNumber);
    return *this;
}

Argument& Argument::one_of(std::initializer_list<const char*> words) {
    option_.check(CLI::IsMember(std::vector<std::string>(words.begin(), words.end())));
    return *this;
}

Argument& Argument::one_of(std::initializer_list<int> numbers) {
    option_.check(CLI::IsMember(std::vector<int>(numbers)));
    return *this;
}

Argument& Argument::separated_by(char separator) {
    option_.delimiter(separator);
    return *this;
}

Argument& Argument::shows_default() {
    option_.capture_default_str();
    return *this;
}

template <typename Value>
Argument Arguments::add(const char* name, Value& value, const std::string& about) {
    return Argument(*command_.add_option(name, value, about));
}

template Argument Arguments::add(const char*, std::string&, const std::string&);
template Argument Arguments::add(const char*, std::vector<std::string>&, const std::string&);
template Argument Arguments::add(const char*, int&, const std::string&);
template Argument Arguments::add(const char*, unsigned&, const std::string&);
template Argument Arguments::add(const char*, int64_t&, const std::string&);
template Argument Arguments::add(const char*, double&, const std::string&);

void Arguments::add_flag(const char* name, bool& value, const char* about) {
    command_.add_flag(name, value, about);
}

void Arguments::footer(const std::string& text) {
    command_.footer(text);
}

} // namespace lumivert::tool
