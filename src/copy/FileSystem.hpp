#pragma once

// The few file operations that a copy is made of. LocalFileSystem does them on the real disk;
// tests wrap it to inject what a real disk can't produce on demand (EIO, EINTR on a swap).
//
// Every operation throws Failure with the POSIX error of the call that failed. Any thread may
// call; an instance has no state.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <stop_token>

namespace quillstow {

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
    virtual void copyItem(const Path& from, const Path& to, std::stop_token stop = {}) = 0;

    // Puts `with` in the place of `target` in one step, so that a reader sees the old item or
    // the new one; `with` is consumed. Both lie in one folder.
    virtual void replaceItem(const Path& target, const Path& with) = 0;

    // Renames `from` to `to`; fails if something is at `to`.
    virtual void moveItem(const Path& from, const Path& to) = 0;

    virtual void createDirectories(const Path& folder) = 0;

    // Removes a file, a link, or a folder with everything in it.
    virtual void removeItem(const Path& path) = 0;

    // Makes every write so far to the volume that holds `anyPathOnVolume` durable, so that
    // after a power cut the data of a copy is there before its name is.
    virtual void flushVolume(const Path& anyPathOnVolume) = 0;

    // The same for the data of one file, where a whole volume would be too much to wait for.
    virtual void flushFile(const Path& file) = 0;

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
};

class LocalFileSystem final : public FileSystem {
  public:
    void copyItem(const Path& from, const Path& to, std::stop_token stop = {}) override;
    void replaceItem(const Path& target, const Path& with) override;
    void moveItem(const Path& from, const Path& to) override;
    void createDirectories(const Path& folder) override;
    void removeItem(const Path& path) override;
    void flushVolume(const Path& anyPathOnVolume) override;
    void flushFile(const Path& file) override;
    std::size_t copyChunk(int from, int to, std::int64_t offset, std::size_t length) override;
    void copyMetadata(int from, int to) override;
};

}  // namespace quillstow
