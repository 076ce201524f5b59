#include "io/output_file.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "error.h"
#include "io/cleanup.h"
#include "report.h"

namespace lumivert::tool {

bool keep_existing = false;

namespace {

constexpr size_t kBufferSize = size_t{1} << 20;

std::filesystem::path folder_of(const std::string& path) {
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    return folder.empty() ? "." : folder;
}

bool is_kept_quietly(const std::string& path) {
    std::error_code none;
    return keep_existing && path != "-" && std::filesystem::is_regular_file(path, none);
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
    if (!is_kept_quietly(path) && stat(path.c_str(), &found) == 0 &&
        ((found.st_mode & kWritable) == 0 || access(path.c_str(), W_OK) != 0))
        throw Error(path + ": is write-protected");
    temporary_ = (folder_of(path) / ".lumivert-XXXXXX").string();
    lock_ = make_temporary_file(temporary_);
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
    if (!pending_ || is_kept(final_)) return;
    if (std::rename(temporary_.c_str(), final_.c_str()) != 0) throw system_error(final_);
    keep_at_exit(temporary_);
    pending_ = false;
}

bool is_kept(const std::string& path) {
    if (!is_kept_quietly(path)) return false;
    tell(path + ": exists already");
    return true;
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
