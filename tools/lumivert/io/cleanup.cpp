#include "io/cleanup.h"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <set>
#include <thread>

#include <unistd.h>

#include "error.h"

namespace lumivert::tool {
namespace {

std::mutex mutex;
std::set<std::string> registered;

void on_abort(int) {
    give_up("the OpenCL driver or a library gave up; --verbose tells more");
}

} // namespace

void remove_at_exit(const std::string& path) {
    std::lock_guard lock(mutex);
    registered.insert(path);
}

void keep_at_exit(const std::string& path) {
    std::lock_guard lock(mutex);
    registered.erase(path);
}

void remove_registered() {
    // Best effort when the thread that holds the list is the one that broke: the files then stay under their
    // temporary names.
    const std::unique_lock lock(mutex, std::try_to_lock);
    if (!lock) return;
    std::error_code ignored;
    for (const auto& path : registered)
        std::filesystem::remove_all(path, ignored);
    registered.clear();
}

void give_up(const char* line) {
    remove_registered();
    const char* over_progress = isatty(STDERR_FILENO) == 1 ? "\r\033[K" : "";
    std::fprintf(stderr, "%slumivert: %s\n", over_progress, line);
    _exit(kFailed);
}

void watch_signals() {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGABRT, on_abort);
    // A thread of its own takes the signals, so that a read or an encoder that blocks does not delay the end.
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&set, signal);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::thread([set] {
        int signal = 0;
        sigwait(&set, &signal);
        give_up("interrupted");
    }).detach();
}

} // namespace lumivert::tool
