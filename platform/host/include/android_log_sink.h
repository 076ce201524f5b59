/// Taking over liblog's lines, whichever form of logger the installed liblog has. The released one (API level 30) takes
/// a single record; the development version that Debian 12 carries took the record and the message apart.
#pragma once

#include <android/log.h>

namespace lumivert::platform {

/// The logger with the signature `Logger` that passes each line to `Sink`.
template <auto Sink, typename Logger>
struct LogAdapter;

template <auto Sink, typename Record>
struct LogAdapter<Sink, void (*)(const Record*)> {
    static void log(const Record* line) { Sink(line->priority, line->tag, line->message); }
};

template <auto Sink, typename Record>
struct LogAdapter<Sink, void (*)(const Record*, const char*)> {
    static void log(const Record* line, const char* message) { Sink(line->priority, line->tag, message); }
};

/// From now on `Sink(int priority, const char* tag, const char* message)` gets every line. `tag` may be null.
template <auto Sink>
void set_log_sink() {
    __android_log_set_logger(LogAdapter<Sink, __android_logger_function>::log);
}

} // namespace lumivert::platform
