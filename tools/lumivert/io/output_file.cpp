#include "io/output_file.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <set>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "error.h"
#include "io/cleanup.h"

namespace lumivert::tool {
namespace {

constexpr size_t kBufferSize = size_t{1} << 20;
constexpr std::string_view kHiddenName = ".lumivert-XXXXXX"; ///< of unfinished outputs; mkstemp fills the end in

std::filesystem::path folder_of(const std::string& path) {
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    return folder.empty() ? "." : folder;
}

/// Removes unfinished outputs that a killed run has left in a folder. Their writers hold a lock for as long as they
/// live, on this machine or another one that shares the folder.
void remove_abandoned(const std::filesystem::path& folder) {
    static std::mutex mutex;
    static std::set<std::filesystem::path> done;
    const std::lock_guard lock(mutex);
    if (!done.insert(folder).second) return;
    constexpr size_t kRandom = 6; // characters that mkstemp chooses
    const std::string_view start = kHiddenName.substr(0, kHiddenName.size() - kRandom);
    std::error_code error;
    for (std::filesystem::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        const std::string name = at->path().filename().string();
        struct stat found {};
        if (name.size() != kHiddenName.size() || name.compare(0, start.size(), start) != 0) continue;
        if (lstat(at->path().c_str(), &found) != 0 || !S_ISREG(found.st_mode)) continue;
        const int fd = open(at->path().c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW); // a lock over NFS needs write access
        if (fd < 0) continue;
        if (flock(fd, LOCK_EX | LOCK_NB) == 0) unlink(at->path().c_str());
        close(fd);
    }
}

/// Makes a hidden file in `folder`, locked until its descriptor is closed; negative where that fails.
int make_hidden_file(const std::filesystem::path& folder, std::string& name) {
    while (true) {
        name = (folder / kHiddenName).string();
        const int fd = make_temporary_file(name);
        if (fd < 0) return fd;
        flock(fd, LOCK_EX); // file systems without locks have none that could be taken for abandoned either
        struct stat made {};
        if (fstat(fd, &made) == 0 && made.st_nlink > 0) return fd;
        keep_at_exit(name); // another run took it for abandoned before it was locked
        close(fd);
    }
}

} // namespace

PendingFile::PendingFile(const std::string& path) : final_(path), temporary_(path) {
    struct stat found {};
    if (stat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode)) throw Error(path + ": is a directory");
    if (stat(path.c_str(), &found) == 0 && !S_ISREG(found.st_mode)) {
        pending_ = false;
        return;
    }
    // Renaming would replace a file that nobody may write to, and root may write to all.
    constexpr mode_t kWritable = S_IWUSR | S_IWGRP | S_IWOTH;
    if (stat(path.c_str(), &found) == 0 && ((found.st_mode & kWritable) == 0 || access(path.c_str(), W_OK) != 0))
        throw Error(path + ": is write-protected");
    remove_abandoned(folder_of(path));
    lock_ = make_hidden_file(folder_of(path), temporary_);
    if (lock_ < 0) throw system_error(path);
    // A temporary file is private; an output has the permissions that the user's umask leaves.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(lock_, 0666 & ~mask);
}

PendingFile::~PendingFile() {
    if (lock_ >= 0) close(lock_);
    if (!pending_) return;
    unlink(temporary_.c_str());
    keep_at_exit(temporary_);
}

void PendingFile::commit() {
    if (!pending_) return;
    if (std::rename(temporary_.c_str(), final_.c_str()) != 0) throw system_error(final_);
    keep_at_exit(temporary_);
    pending_ = false;
}

void check_writable(const std::string& path) {
    if (path != "-") PendingFile unused(path);
}

void refuse_same_file(const std::string& output, const std::vector<std::string>& inputs) {
    struct stat out = {}, in = {};
    if (output == "-" || stat(output.c_str(), &out) != 0 || !S_ISREG(out.st_mode)) return;
    for (const std::string& input : inputs)
        if (stat(input.c_str(), &in) == 0 && in.st_dev == out.st_dev && in.st_ino == out.st_ino)
            throw Error(output + ": is the input " + (input == output ? "itself" : input) + "; name another output");
}

OutputStream::OutputStream(const std::string& path) : label_(path == "-" ? "standard output" : path) {
    if (path == "-") {
        fd_ = STDOUT_FILENO;
    } else {
        file_ = std::make_unique<PendingFile>(path);
        fd_ = open(file_->name().c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
        if (fd_ < 0) throw system_error(path);
    }
    buffer_.reserve(kBufferSize);
}

OutputStream::~OutputStream() {
    if (file_ && fd_ >= 0) close(fd_);
}

void OutputStream::write(const void* data, size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    if (buffer_.size() + size > kBufferSize) flush();
    if (size >= kBufferSize)
        write_through(bytes, size);
    else
        buffer_.insert(buffer_.end(), bytes, bytes + size);
}

void OutputStream::write_through(const uint8_t* data, size_t size) {
    for (size_t written = 0; written < size;) {
        const ssize_t count = ::write(fd_, data + written, size - written);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw system_error(label_);
        written += static_cast<size_t>(count);
    }
}

void OutputStream::flush() {
    write_through(buffer_.data(), buffer_.size());
    buffer_.clear();
}

void OutputStream::commit() {
    flush();
    if (!file_) return;
    const int fd = std::exchange(fd_, -1);
    if (close(fd) != 0) throw system_error(label_); // some file systems tell of a full disk only here
    file_->commit();
}

void write_document(const std::string& path, const std::string& text) {
    OutputStream out(path);
    out.write(text);
    out.commit();
}

} // namespace lumivert::tool
