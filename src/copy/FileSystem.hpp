#pragma once

// The few file operations that a copy is made of. LocalFileSystem does them on the real disk;
// tests wrap it to inject what a real disk can't produce on demand (EIO, EINTR on a swap).
//
// Items are named relative to an open folder, so that a pass reaches paths of any length and
// never through a link it didn't mean to follow; a whole path serves too. Every operation throws
// Failure with the POSIX error of the call that failed. Any thread may call; an instance has no
// state.

#include <fcntl.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>

#include "support/FileInfo.hpp"
#include "support/TreeWalk.hpp"

namespace quillstow {

// The item `name` in the open folder `folder`; a whole path converts to one named from the
// working folder, as the *at calls take it.
struct ItemRef {
    int folder = AT_FDCWD;
    std::string name;

    ItemRef(const std::filesystem::path& path) : name(path.native()) {}
    ItemRef(int folder, std::string name) : folder(folder), name(std::move(name)) {}
};

// What a copy wrote, as read on its open files at its end: the kind of item it made (`other`
// when the source was nothing a backup keeps, and nothing was made), the size the source had
// all through the copy, and the size of the copy. A folder's sizes are its entry's own.
struct CopiedItem {
    FileInfo::Type type = FileInfo::Type::other;
    std::int64_t sourceSize = 0;
    std::int64_t size = 0;
};

class FileSystem {
  public:
    using Path = std::filesystem::path;

    virtual ~FileSystem() = default;

    // Copies a file, or a folder tree with links kept as links, keeping what `cp -a` keeps:
    // mode, owner and group where permitted, extended attributes, and access and modification
    // times to the nanosecond; holes stay holes. Nothing may exist at `to`. A file that changes
    // while it is copied fails the copy with the "source changed" error, so that a copy never
    // pairs one version's date with another's bytes. A tree polls `stop` between its entries
    // and fails with the cancellation error.
    //
    // `known` is the kind of `from` as the caller read it without following a link (a regular
    // file or a folder): the copy then opens it without a look of its own, and an item that
    // is found to be of another kind once open fails with the "source changed" error.
    virtual CopiedItem copyItem(const ItemRef& from, const ItemRef& to, std::stop_token stop = {},
                                std::optional<FileInfo::Type> known = std::nullopt) = 0;

    // Puts `with` in the place of `target` in one step, so that a reader sees the old item or
    // the new one; `with` is consumed. Both lie in one folder.
    virtual void replaceItem(const ItemRef& target, const ItemRef& with) = 0;

    // Renames `from` to `to`; fails if something is at `to`.
    virtual void moveItem(const ItemRef& from, const ItemRef& to) = 0;

    // Makes the folder with the folders above it; below an open folder, no link is followed.
    virtual void createDirectories(const ItemRef& folder) = 0;

    // Removes a file, a link, or a folder with everything in it.
    virtual void removeItem(const ItemRef& item) = 0;

    // Makes every write so far to the volume that holds `anyItemOnVolume` durable, so that
    // after a power cut the data of a copy is there before its name is.
    virtual void flushVolume(const ItemRef& anyItemOnVolume) = 0;

    // The same for the data of one file, where a whole volume would be too much to wait for.
    virtual void flushFile(const ItemRef& file) = 0;

    // Copies up to `length` bytes of the open file `from`, starting at `offset`, to the same
    // offset of the open file `to`. Returns how far it got, 0 at the end of `from`'s data: a hole
    // of `from` is passed over, not written, so it stays a hole (the caller sets the length of
    // `to` at the end). The data stays in the kernel where the file system allows it; writeback
    // of it starts at once.
    virtual std::size_t copyChunk(int from, int to, std::int64_t offset, std::size_t length) = 0;

    // Owner where permitted, mode, every extended attribute one at a time, and the access and
    // modification times last, from the open file `from` to the open file `to`: what was copied
    // and the date it gets come from one file, even when its path has been replaced since.
    // Failures are dropped: a copy stands without them.
    virtual void copyMetadata(int from, int to) = 0;

    // Walks the tree below `root` as walkTreeChoosingDetail does: no link followed, any depth.
    // Returns false when the root can't be opened.
    virtual bool walkTree(const Path& root, WalkDetail detail, const ChoosingVisitor& visit,
                          const OnUnreadableFolder& onUnreadable) = 0;
};

class LocalFileSystem final : public FileSystem {
  public:
    CopiedItem copyItem(const ItemRef& from, const ItemRef& to, std::stop_token stop = {},
                        std::optional<FileInfo::Type> known = std::nullopt) override;
    void replaceItem(const ItemRef& target, const ItemRef& with) override;
    void moveItem(const ItemRef& from, const ItemRef& to) override;
    void createDirectories(const ItemRef& folder) override;
    void removeItem(const ItemRef& item) override;
    void flushVolume(const ItemRef& anyItemOnVolume) override;
    void flushFile(const ItemRef& file) override;
    std::size_t copyChunk(int from, int to, std::int64_t offset, std::size_t length) override;
    void copyMetadata(int from, int to) override;
    bool walkTree(const Path& root, WalkDetail detail, const ChoosingVisitor& visit,
                  const OnUnreadableFolder& onUnreadable) override;
};

}  // namespace quillstow
