#include "data_folder.h"

#include <cstdlib>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lumivert::check {
namespace {

constexpr const char* kFolders[] = {"/vendor", "/vendor/media"};

} // namespace

DataFolder::DataFolder() : path_("/data/vendor/media") {
#ifndef __ANDROID__
    const char* const temporary = std::getenv("TMPDIR");
    std::string root = std::string(temporary && *temporary ? temporary : "/tmp") + "/lumivert_check.XXXXXX";
    if (mkdtemp(&root[0]) == nullptr) {
        path_ = root;
        return;
    }
    own_root_ = root;
    for (const char* const folder : kFolders)
        mkdir((root + folder).c_str(), 0755);
    path_ = root + kFolders[1];
    setenv("ANDROID_DATA", root.c_str(), 1);
#endif
}

DataFolder::~DataFolder() {
    if (own_root_.empty()) return;
    if (DIR* const folder = opendir(path_.c_str())) {
        while (const dirent* const entry = readdir(folder))
            unlink((path_ + "/" + entry->d_name).c_str());
        closedir(folder);
    }
    for (const char* const folder : {kFolders[1], kFolders[0], ""})
        rmdir((own_root_ + folder).c_str());
}

bool DataFolder::writable() const {
    return !path_.empty() && access(path_.c_str(), R_OK | W_OK | X_OK) == 0;
}

} // namespace lumivert::check
