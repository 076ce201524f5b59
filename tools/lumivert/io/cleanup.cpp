#include "io/cleanup.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <mutex>
#include <new>
#include <set>

#include <fcntl.h>
#include <unistd.h>

#include "error.h"
#include "io/limits.h"
#include "io/thread.h"

namespace lumivert::tool {
namespace {

/// Held while a file is made and registered, so that an interruption cannot come in between. Recursive, as the thread
/// that holds it may be the one that breaks.
std::recursive_timed_mutex mutex;
std::set<std::string> registered;

void on_crash(int) {
    give_up_after_crash();
}

/// Calls `on_crash` on a stack of its own, since a full stack is one of the causes.
void watch_crashes() {
    static char stack[64 << 10];
    stack_t alternative = {};
    alternative.ss_sp = stack;
    alternative.ss_size = sizeof stack;
    sigaltstack(&alternative, nullptr);
    struct sigaction action = {};
    action.sa_handler = on_crash;
    action.sa_flags = SA_ONSTACK;
    for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL})
        sigaction(signal, &action, nullptr);
    std::set_terminate(give_up_after_crash);
    std::set_new_handler([] {
        char line[200];
        std::snprintf(line, sizeof line, "not enough memory%s", limits_note());
        give_up(line);
    });
}

} // namespace

int make_temporary_file(std::string& name) {
    const std::lock_guard lock(mutex);
    const int fd = mkostemp(name.data(), O_CLOEXEC);
    if (fd >= 0) registered.insert(name);
    return fd;
}

bool make_temporary_folder(std::string& name) {
    const std::lock_guard lock(mutex);
    const bool made = mkdtemp(name.data()) != nullptr;
    if (made) registered.insert(name);
    return made;
}

void keep_at_exit(const std::string& path) {
    const std::lock_guard lock(mutex);
    registered.erase(path);
}

void remove_registered() {
    const std::lock_guard lock(mutex);
    std::error_code ignored;
    for (const auto& path : registered)
        std::filesystem::remove_all(path, ignored);
    registered.clear();
}

namespace {

/// Removes what is registered and says why the process ends.
void leave(const char* line) {
    // Never given back: no other thread makes a file from here on. One that hangs in a file system has had its chance.
    if (mutex.try_lock_for(std::chrono::seconds(5))) remove_registered();
    const char* over_progress = isatty(STDERR_FILENO) == 1 ? "\r\033[K" : "";
    std::fprintf(stderr, "%slumivert: %s\n", over_progress, line);
}

/// Ends the process as the signal does by default, so that its parent sees why: a shell then leaves its loop.
[[noreturn]] void end_by(int signal) {
    leave("interrupted");
    std::signal(signal, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    raise(signal); // in this thread, which lets it through
    _exit(kFailed);
}

} // namespace

void give_up(const char* line) {
    leave(line);
    _exit(kFailed);
}

void give_up_after_crash() {
    // Most often the cause is memory that ran out unnoticed.
    char line[200];
    std::snprintf(line, sizeof line, "the OpenCL driver or another library crashed%s; --verbose may tell more",
                  limits_note());
    give_up(line);
}

void watch_signals() {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    watch_crashes();
    // A thread of its own takes the signals, so that a read or an encoder that blocks does not delay the end.
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        sigaddset(&set, signal);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    start_thread([set] {
        int signal = 0;
        sigwait(&set, &signal);
        end_by(signal);
    }).detach();
}

} // namespace lumivert::tool
