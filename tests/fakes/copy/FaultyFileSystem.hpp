#pragma once

// The real file operations, with faults on demand: the next calls of one operation fail with a
// chosen errno, and every call is counted, the bytes of copied chunks too. Everything else
// reaches the disk.

#include <array>
#include <functional>
#include <map>
#include <mutex>
#include <vector>

#include "copy/FileSystem.hpp"
#include "support/Error.hpp"

namespace quillstow::testing {

// A path that reaches the item now, for a test to look at or tamper with.
inline std::filesystem::path pathOf(const ItemRef& item) {
    if (item.folder == AT_FDCWD) return item.name;
    return "/proc/self/fd/" + std::to_string(item.folder) + "/" + item.name;
}

// Forwards every operation to another file system; a test overrides what it watches.
class ForwardingFileSystem : public FileSystem {
  public:
    explicit ForwardingFileSystem(FileSystem& target) : target_(target) {}

    CopiedItem copyItem(const ItemRef& from, const ItemRef& to, std::stop_token stop = {},
                        std::optional<FileInfo::Type> known = std::nullopt) override {
        return target_.copyItem(from, to, stop, known);
    }
    void replaceItem(const ItemRef& target, const ItemRef& with) override {
        target_.replaceItem(target, with);
    }
    void moveItem(const ItemRef& from, const ItemRef& to) override { target_.moveItem(from, to); }
    void createDirectories(const ItemRef& folder) override { target_.createDirectories(folder); }
    void removeItem(const ItemRef& path) override { target_.removeItem(path); }
    void flushVolume(const ItemRef& anyPathOnVolume) override {
        target_.flushVolume(anyPathOnVolume);
    }
    void flushFile(const ItemRef& file) override { target_.flushFile(file); }
    std::size_t copyChunk(int from, int to, std::int64_t offset, std::size_t length) override {
        return target_.copyChunk(from, to, offset, length);
    }
    void copyMetadata(int from, int to) override { target_.copyMetadata(from, to); }
    bool walkTree(const Path& root, WalkDetail detail, const ChoosingVisitor& visit,
                  const OnUnreadableFolder& onUnreadable) override {
        return target_.walkTree(root, detail, visit, onUnreadable);
    }

  private:
    FileSystem& target_;
};

class FaultyFileSystem final : public ForwardingFileSystem {
  public:
    // The operations a test may fail or count; the others only reach the disk.
    enum class Operation { copyItem, replaceItem, flushVolume, copyChunk, flushFile };

    FaultyFileSystem() : ForwardingFileSystem(real_) {}

    // The next `times` calls of `operation` fail with `errnoValue` before touching the disk,
    // after `after` more calls have gone through.
    void failNext(Operation operation, int errnoValue, int times = 1, int after = 0) {
        faults_[operation] = {errnoValue, times, after};
    }
    int calls(Operation operation) const { return calls_[std::size_t(operation)]; }
    std::int64_t bytesCopiedInChunks() const { return chunkBytes_; }
    // The roots of every walk so far, in order.
    const std::vector<Path>& walkedRoots() const { return walkedRoots_; }

    // Runs after each successful copyItem, to tamper with what was copied.
    std::function<void(const Path& from, const Path& to)> afterCopy;
    // Runs after each chunk, with the offset reached.
    std::function<void(std::int64_t reached)> afterChunk;

    CopiedItem copyItem(const ItemRef& from, const ItemRef& to, std::stop_token stop = {},
                        std::optional<FileInfo::Type> known = std::nullopt) override {
        enter(Operation::copyItem);
        CopiedItem made = ForwardingFileSystem::copyItem(from, to, stop, known);
        if (!afterCopy) return made;
        afterCopy(pathOf(from), pathOf(to));
        // The copy is what the tampering left.
        std::error_code error;
        const auto size = std::filesystem::file_size(pathOf(to), error);
        if (!error) made.size = std::int64_t(size);
        return made;
    }
    void replaceItem(const ItemRef& target, const ItemRef& with) override {
        enter(Operation::replaceItem);
        ForwardingFileSystem::replaceItem(target, with);
    }
    void flushVolume(const ItemRef& anyPathOnVolume) override {
        enter(Operation::flushVolume);
        ForwardingFileSystem::flushVolume(anyPathOnVolume);
    }
    void flushFile(const ItemRef& file) override {
        enter(Operation::flushFile);
        ForwardingFileSystem::flushFile(file);
    }
    std::size_t copyChunk(int from, int to, std::int64_t offset, std::size_t length) override {
        enter(Operation::copyChunk);
        const std::size_t copied = ForwardingFileSystem::copyChunk(from, to, offset, length);
        chunkBytes_ += std::int64_t(copied);
        if (afterChunk && copied > 0) afterChunk(offset + std::int64_t(copied));
        return copied;
    }
    bool walkTree(const Path& root, WalkDetail detail, const ChoosingVisitor& visit,
                  const OnUnreadableFolder& onUnreadable) override {
        {
            const std::lock_guard lock(walksMutex_);
            walkedRoots_.push_back(root);
        }
        return ForwardingFileSystem::walkTree(root, detail, visit, onUnreadable);
    }

  private:
    struct Fault {
        int errnoValue = 0;
        int remaining = 0;
        int after = 0;
    };

    void enter(Operation operation) {
        ++calls_[std::size_t(operation)];
        const auto found = faults_.find(operation);
        if (found == faults_.end()) return;
        Fault& fault = found->second;
        if (fault.after > 0) {
            --fault.after;
        } else if (fault.remaining > 0) {
            --fault.remaining;
            throwPosix(fault.errnoValue);
        }
    }

    LocalFileSystem real_;
    std::map<Operation, Fault> faults_;
    std::array<int, 5> calls_{};
    std::int64_t chunkBytes_ = 0;
    // The two walks of a pass run on two threads.
    std::mutex walksMutex_;
    std::vector<Path> walkedRoots_;
};

}  // namespace quillstow::testing
