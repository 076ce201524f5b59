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
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "error.h"
#include "io/limits.h"
#include "io/thread.h"
#include "report.h"

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

/// Whether `name` still is what `fd` has open.
bool is_there(const std::string& name, int fd) {
    struct stat opened {
    }, named{};
    return fstat(fd, &opened) == 0 && lstat(name.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

int open_to_lock(const std::string& path, bool folder) {
    const int access = folder ? O_RDONLY | O_DIRECTORY : O_RDWR; // a lock over NFS needs write access
    return open(path.c_str(), access | O_CLOEXEC | O_NOFOLLOW);
}

/// Makes `name` and opens it; negative where that fails.
int create(std::string& name, bool folder) {
    const std::lock_guard lock(mutex);
    if (folder && mkdtemp(name.data()) == nullptr) return -1;
    const int fd = folder ? open_to_lock(name, true) : mkostemp(name.data(), O_CLOEXEC);
    if (fd >= 0)
        registered.insert(name);
    else if (folder)
        rmdir(name.c_str());
    return fd;
}

int make_temporary(std::string& name, bool folder) {
    const std::string pattern = name;
    remove_abandoned(pattern, folder);
    while (true) {
        name = pattern;
        const int fd = create(name, folder);
        if (fd < 0) return fd;
        flock(fd, LOCK_EX); // file systems without locks have none that could be taken for abandoned either
        if (is_there(name, fd)) return fd;
        keep_at_exit(name); // another run took it for abandoned before it was locked
        close(fd);
    }
}

} // namespace

int make_temporary_file(std::string& name) {
    return make_temporary(name, false);
}
int make_temporary_folder(std::string& name) {
    return make_temporary(name, true);
}

void remove_abandoned(const std::string& pattern, bool folders) {
    static std::set<std::string> done;
    {
        const std::lock_guard lock(mutex);
        if (!done.insert(pattern).second) return;
    }
    constexpr size_t kRandom = 6; // characters that mkstemp and mkdtemp choose
    const std::filesystem::path path(pattern);
    const std::string like = path.filename().string();
    std::error_code error, ignored;
    for (std::filesystem::directory_iterator at(path.parent_path(), error), end; !error && at != end;
         at.increment(error)) {
        const std::string name = at->path().filename().string(), place = at->path().string();
        struct stat found {};
        if (name.size() != like.size() || name.compare(0, name.size() - kRandom, like, 0, name.size() - kRandom) != 0)
            continue;
        if (lstat(place.c_str(), &found) != 0 || found.st_uid != geteuid()) continue;
        if (folders ? !S_ISDIR(found.st_mode) : !S_ISREG(found.st_mode)) continue;
        const int fd = open_to_lock(place, folders);
        if (fd < 0) continue;
        if (flock(fd, LOCK_EX | LOCK_NB) == 0) std::filesystem::remove_all(place, ignored);
        close(fd);
    }
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
    std::fprintf(stderr, "%slumivert: %s\n", over_progress(), line);
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
