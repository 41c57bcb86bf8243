#pragma once

// Trees deeper than a path can name (PATH_MAX), built and read one folder at a time relative to
// the one above, without the code under test.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

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

// The relative path and content of every regular file below the open folder `folder`.
inline void readFilesAt(int folder, const std::string& prefix,
                        std::map<std::string, std::string>& files) {
    DIR* listing = ::fdopendir(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!listing) return;
    std::unique_ptr<DIR, int (*)(DIR*)> closer(listing, ::closedir);
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(listing)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    for (const auto& name : names) {
        struct stat status {};
        if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (S_ISDIR(status.st_mode)) {
            const int inside = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
            readFilesAt(inside, prefix + name + "/", files);
            ::close(inside);
        } else if (S_ISREG(status.st_mode)) {
            const int fd = ::openat(folder, name.c_str(), O_RDONLY | O_CLOEXEC);
            std::string content(std::size_t(status.st_size), '\0');
            (void)!::read(fd, content.data(), content.size());
            ::close(fd);
            files[prefix + name] = content;
        }
    }
}

inline std::map<std::string, std::string> filesBelowAtAnyDepth(const std::filesystem::path& root) {
    std::map<std::string, std::string> files;
    const int folder = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) return files;
    readFilesAt(folder, "", files);
    ::close(folder);
    return files;
}

}  // namespace quillstow::testing
