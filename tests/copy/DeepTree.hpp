#pragma once

// Trees deeper than a path can name (PATH_MAX), built one folder at a time relative to the one
// above, without the code under test.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

namespace quillstow::testing {

// `depth` folders named `name`, one inside the other, below `root`; a file `file` with
// `content` at the bottom. Returns the relative path of the file.
inline std::string makeDeepFile(const std::filesystem::path& root, const std::string& name,
                                int depth, const std::string& file, const std::string& content) {
    std::filesystem::create_directories(root);
    int folder = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::string relative;
    for (int level = 0; level < depth; ++level) {
        ::mkdirat(folder, name.c_str(), 0755);
        const int next = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(folder);
        folder = next;
        relative += name + "/";
    }
    const int fd = ::openat(folder, file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    (void)!::write(fd, content.data(), content.size());
    ::close(fd);
    ::close(folder);
    return relative + file;
}

}  // namespace quillstow::testing
