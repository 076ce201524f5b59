/// Where the library keeps its compiled program: the device's data partition, on a workstation a folder of our own.
#pragma once

#include <string>

namespace lumivert::check {

/// Makes the folder ready while this lives.
class DataFolder {
public:
    DataFolder();
    ~DataFolder();
    DataFolder(const DataFolder&) = delete;
    DataFolder& operator=(const DataFolder&) = delete;

    const std::string& path() const { return path_; }
    bool writable() const;

private:
    std::string path_, own_root_;
};

} // namespace lumivert::check
