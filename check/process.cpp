#include "process.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace lumivert::check {
namespace {

constexpr size_t kLogBytes = 1500;

struct Pipe {
    int read_end = -1, write_end = -1;
    std::string text;

    Pipe() {
        int ends[2] = {-1, -1};
        if (pipe2(ends, O_CLOEXEC) != 0) return;
        // Out of the way of the descriptors that the child gives them.
        read_end = fcntl(ends[0], F_DUPFD_CLOEXEC, 10);
        write_end = fcntl(ends[1], F_DUPFD_CLOEXEC, 10);
        close(ends[0]);
        close(ends[1]);
        fcntl(read_end, F_SETFL, O_NONBLOCK);
    }
    ~Pipe() {
        close(read_end);
        close(write_end);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    void read_what_is_there() {
        char buffer[4096];
        for (ssize_t count = 0; (count = read(read_end, buffer, sizeof buffer)) > 0;)
            text.append(buffer, static_cast<size_t>(count));
    }
};

[[noreturn]] void be_the_child(const Pipe& facts, const Pipe& log, const std::vector<std::string>& arguments,
                               void (*work)(const std::vector<std::string>&)) {
    dup2(log.write_end, STDOUT_FILENO);
    dup2(log.write_end, STDERR_FILENO);
    dup2(facts.write_end, kFactsDescriptor);
    char path[4096];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length > 0) {
        path[length] = '\0';
        std::vector<char*> argv = {path};
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        execv(path, argv.data());
    }
    work(arguments);
    _exit(0);
}

std::string ending(int status) {
    if (WIFSIGNALED(status)) return format("crashed: %s", strsignal(WTERMSIG(status)));
    if (WEXITSTATUS(status) != 0) return format("ended with status %d", WEXITSTATUS(status));
    return "ended without a result";
}

} // namespace

Facts in_own_process(const std::vector<std::string>& arguments, void (*work)(const std::vector<std::string>&),
                     int limit_seconds) {
    Pipe facts_pipe;
    Pipe log;
    const pid_t child = fork();
    const int fork_error = errno;
    if (child == 0) be_the_child(facts_pipe, log, arguments, work);

    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::seconds(limit_seconds);
    int status = 0;
    bool killed = false;
    while (child > 0 && waitpid(child, &status, WNOHANG) == 0) {
        if (!killed && Clock::now() > deadline) killed = kill(child, SIGKILL) == 0;
        if (killed && Clock::now() > deadline + std::chrono::seconds(10)) break; // stuck inside the GPU's driver
        constexpr int kPauseMs = 5;
        pollfd readable[] = {{facts_pipe.read_end, POLLIN, 0}, {log.read_end, POLLIN, 0}};
        poll(readable, 2, kPauseMs);
        facts_pipe.read_what_is_there();
        log.read_what_is_there();
    }
    facts_pipe.read_what_is_there();
    log.read_what_is_there();

    Facts found = Facts::from_lines(facts_pipe.text);
    const bool complete = found.has("ok") && WIFEXITED(status) && WEXITSTATUS(status) == 0 && !killed;
    Facts facts;
    if (complete) {
        facts = found;
    } else {
        facts.set("ok", 0);
        facts.set("detail", child < 0         ? format("no process: %s", strerror(fork_error))
                            : killed          ? format("hung: killed after %d s", limit_seconds)
                            : found.has("ok") ? ending(status) + ", after its frames"
                                              : ending(status));
    }
    if (facts.number("ok") == 0 && !log.text.empty())
        facts.set("log", log.text.size() > kLogBytes ? log.text.substr(log.text.size() - kLogBytes) : log.text);
    return facts;
}

void send_facts(const Facts& facts) {
    const std::string lines = facts.lines();
    for (size_t sent = 0; sent < lines.size();) {
        const ssize_t count = write(kFactsDescriptor, lines.data() + sent, lines.size() - sent);
        if (count <= 0) return;
        sent += static_cast<size_t>(count);
    }
}

} // namespace lumivert::check
