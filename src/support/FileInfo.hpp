#pragma once

// What a pass reads of an item, from one lstat: links are never followed.

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "support/Dates.hpp"
#include "support/FileHandle.hpp"

namespace quillstow {

struct FileInfo {
    enum class Type { regular, directory, symbolicLink, other };

    Type type = Type::other;
    // Present for regular files and links; a folder has no size of its own.
    std::optional<std::int64_t> fileSize;
    std::optional<Date> modificationDate;
    // The size the file system reports for the entry itself, folders included.
    std::int64_t entrySize = 0;
    dev_t device = 0;
    ino_t inode = 0;

    bool isRegularFile() const { return type == Type::regular; }
    bool isDirectory() const { return type == Type::directory; }
    bool isSymbolicLink() const { return type == Type::symbolicLink; }
};

namespace files {

// Nothing when the item doesn't exist or can't be read.
std::optional<FileInfo> readInfo(const std::filesystem::path& path);

// The same, relative to an open folder.
std::optional<FileInfo> readInfoAt(int folder, const char* name);

// Whether anything, a dangling link included, is at the path.
bool exists(const std::filesystem::path& path);

// A folder, or a link to one.
bool isFolder(const std::filesystem::path& path);

// Sets the modification date of the item itself, a link not followed, to the nanosecond; the
// access time stays. False when it can't.
bool setModificationDate(const std::filesystem::path& path, Date date);
bool setModificationDateAt(int folder, const char* name, Date date);

// Access checks for this user, following links, as the kernel would judge an open.
bool isReadable(const std::filesystem::path& path);
bool isWritable(const std::filesystem::path& path);

// Reads the items below a root by their relative paths, keeping the folder of the last one
// open: items that come in folder order then cost the lookup of one name each instead of a walk
// of the whole path. Used by one thread.
// A link on the way to an item is not followed: the item isn't there.
class TreeReader {
  public:
    explicit TreeReader(const std::filesystem::path& root);

    // Nothing when the item, or its folder, isn't there or can't be read.
    std::optional<FileInfo> readInfo(std::string_view relativePath);

  private:
    // Nothing when the root can't be opened.
    std::optional<FolderCursor> folders_;
};

}  // namespace files
}  // namespace quillstow
