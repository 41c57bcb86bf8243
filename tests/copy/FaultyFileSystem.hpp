#pragma once

// The real file operations, with faults on demand: the next calls of one operation fail with a
// chosen errno, and every call is counted. Everything else reaches the disk.

#include <array>
#include <functional>
#include <map>

#include "copy/FileSystem.hpp"
#include "support/Error.hpp"

namespace quillstow::testing {

class FaultyFileSystem final : public FileSystem {
  public:
    enum class Operation {
        copyItem,
        replaceItem,
        moveItem,
        createDirectories,
        removeItem,
        flushVolume
    };

    // The next `times` calls of `operation` fail with `errnoValue` before touching the disk.
    void failNext(Operation operation, int errnoValue, int times = 1) {
        faults_[operation] = {errnoValue, times};
    }
    int calls(Operation operation) const { return calls_[std::size_t(operation)]; }

    // Runs after each successful copyItem, to tamper with what was copied.
    std::function<void(const Path& from, const Path& to)> afterCopy;

    void copyItem(const Path& from, const Path& to) override {
        enter(Operation::copyItem);
        real_.copyItem(from, to);
        if (afterCopy) afterCopy(from, to);
    }
    void replaceItem(const Path& target, const Path& with) override {
        enter(Operation::replaceItem);
        real_.replaceItem(target, with);
    }
    void moveItem(const Path& from, const Path& to) override {
        enter(Operation::moveItem);
        real_.moveItem(from, to);
    }
    void createDirectories(const Path& folder) override {
        enter(Operation::createDirectories);
        real_.createDirectories(folder);
    }
    void removeItem(const Path& path) override {
        enter(Operation::removeItem);
        real_.removeItem(path);
    }
    void flushVolume(const Path& anyPathOnVolume) override {
        enter(Operation::flushVolume);
        real_.flushVolume(anyPathOnVolume);
    }

  private:
    struct Fault {
        int errnoValue = 0;
        int remaining = 0;
    };

    void enter(Operation operation) {
        ++calls_[std::size_t(operation)];
        auto found = faults_.find(operation);
        if (found != faults_.end() && found->second.remaining > 0) {
            --found->second.remaining;
            throwPosix(found->second.errnoValue);
        }
    }

    LocalFileSystem real_;
    std::map<Operation, Fault> faults_;
    std::array<int, 6> calls_{};
};

}  // namespace quillstow::testing
