#include "facts.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace lumivert::check {

void Facts::set(const std::string& name, double number) {
    put({name, format("%.12g", number), true});
}

void Facts::put(const Fact& fact) {
    const auto known = std::find_if(facts_.begin(), facts_.end(), [&](const Fact& f) { return f.name == fact.name; });
    if (known == facts_.end())
        facts_.push_back(fact);
    else
        *known = fact;
}

std::string Facts::text(const std::string& name) const {
    const auto fact = std::find_if(facts_.begin(), facts_.end(), [&](const Fact& f) { return f.name == name; });
    return fact == facts_.end() ? std::string() : fact->text;
}

double Facts::number(const std::string& name) const {
    return std::strtod(text(name).c_str(), nullptr);
}

bool Facts::has(const std::string& name) const {
    return std::any_of(facts_.begin(), facts_.end(), [&](const Fact& f) { return f.name == name; });
}

std::string Facts::lines() const {
    std::string lines;
    for (const Fact& fact : facts_) {
        std::string text = fact.text;
        std::replace(text.begin(), text.end(), '\n', ' ');
        lines += (fact.is_number ? "n " : "t ") + fact.name + " " + text + "\n";
    }
    return lines;
}

Facts Facts::from_lines(const std::string& lines) {
    Facts facts;
    for (size_t begin = 0; begin < lines.size();) {
        const size_t end = lines.find('\n', begin);
        if (end == std::string::npos) break; // cut off in the middle
        const size_t name_end = lines.find(' ', begin + 2);
        if (name_end < end)
            facts.facts_.push_back({lines.substr(begin + 2, name_end - begin - 2),
                                    lines.substr(name_end + 1, end - name_end - 1), lines[begin] == 'n'});
        begin = end + 1;
    }
    return facts;
}

std::string Facts::json() const {
    std::string json = "{";
    for (const Fact& fact : facts_) {
        if (json.size() > 1) json += ", ";
        json += json_string(fact.name) + ": " + (fact.is_number ? fact.text : json_string(fact.text));
    }
    return json + "}";
}

std::string json_string(const std::string& text) {
    std::string json = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') json += '\\';
        json += byte < 0x20 ? format("\\u%04x", byte) : std::string(1, byte < 0x7f ? c : '?');
    }
    return json + '"';
}

std::string format(const char* pattern, ...) {
    char buffer[1024];
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(buffer, sizeof buffer, pattern, arguments);
    va_end(arguments);
    return buffer;
}

} // namespace lumivert::check
