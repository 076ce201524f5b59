/// Outputs that appear under their name only when they are complete.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace lumivert::tool {

/// Whether --no-overwrite was given: existing files stay as they are.
extern bool keep_existing;

/// Whether `path` is a file that --no-overwrite keeps. Says so.
bool is_kept(const std::string& path);

/// A temporary name in the folder of `path`, for writers that open files by name. Removed unless committed. What
/// exists already and is no regular file (a pipe, a device) is written to directly.
class PendingFile {
public:
    explicit PendingFile(const std::string& path);
    ~PendingFile();
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;

    const std::string& name() const { return temporary_; }
    /// Gives the file its final name, unless a file of that name is to be kept.
    void commit();

private:
    std::string final_, temporary_;
    int lock_ = -1; ///< of make_temporary_file
    bool pending_ = true;
};

/// Throws where `path` could not be written, before long work is done for it.
void check_writable(const std::string& path);

/// Throws where `output` names the same file as one of the inputs, which would destroy it.
void refuse_same_file(const std::string& output, const std::vector<std::string>& inputs);

/// A buffered byte stream into a PendingFile, or into standard output for "-". Every failure throws.
class OutputStream {
public:
    explicit OutputStream(const std::string& path);
    ~OutputStream();
    OutputStream(const OutputStream&) = delete;
    OutputStream& operator=(const OutputStream&) = delete;

    void write(const void* data, size_t size);
    void write(const std::string& text) { write(text.data(), text.size()); }
    /// Writes what is buffered, closes, and gives the file its name.
    void commit();

private:
    void flush();
    void write_through(const uint8_t* data, size_t size);

    std::string label_;
    std::unique_ptr<PendingFile> file_;
    int fd_;
    std::vector<uint8_t> buffer_;
};

/// A whole document at once.
void write_document(const std::string& path, const std::string& text);

} // namespace lumivert::tool
