#pragma once

// The entries a walk of a source or a mirror met, held compactly, since a pass keeps one for
// every item of trees that may have millions: the paths in large blocks of text, and per entry
// 32 bytes with only what a pass reads of it (kind, size, date). Nothing moves once added, so
// an entry's path and address stay valid as more are added and when the whole is moved.
//
// Built and read on one thread.

#include <cstdint>
#include <deque>
#include <memory>
#include <string_view>
#include <vector>

#include "support/FileInfo.hpp"

namespace quillstow {

struct WalkedEntry {
    WalkedEntry(std::string_view keptPath, const FileInfo& info);

    // Below the walk's root, components joined by "/".
    std::string_view relativePath() const { return {pathStart, pathLength}; }
    // What the change test reads: kind, size and date; no device, no inode.
    FileInfo info() const;
    // Its size, 0 for one without a size of its own (a folder copied whole).
    std::int64_t byteCount() const { return hasSize ? fileSize : 0; }
    bool isDirectory() const { return type == FileInfo::Type::directory; }
    bool isSymbolicLink() const { return type == FileInfo::Type::symbolicLink; }

    const char* pathStart;
    std::int64_t fileSize;
    // Nanoseconds since the epoch.
    std::int64_t modifiedAt;
    std::uint32_t pathLength;
    // Three bits hold the four kinds of a signed enum.
    FileInfo::Type type : 3;
    bool hasSize : 1;
    bool hasDate : 1;
    // Marks a plan sets on a mirror's entries. An item of a pass: a regular file, or a folder
    // copied whole.
    bool isItem : 1 = false;
    // An item of the source has the same path: the entry is no orphan.
    bool hasSourceItem : 1 = false;
    // That item needs no copy: the pass leaves the entry as it is.
    bool isUnchanged : 1 = false;
};

class WalkedEntries {
  public:
    // The path is copied; an entry may be added at a path added before.
    WalkedEntry& add(std::string_view relativePath, const FileInfo& info);

    const WalkedEntry& operator[](std::size_t index) const { return entries_[index]; }
    WalkedEntry& operator[](std::size_t index) { return entries_[index]; }
    std::size_t size() const { return entries_.size(); }
    bool empty() const { return entries_.empty(); }
    // In the order they were added.
    auto begin() const { return entries_.begin(); }
    auto end() const { return entries_.end(); }

  private:
    std::string_view keep(std::string_view path);

    std::deque<WalkedEntry> entries_;
    // Blocks of path text that never move.
    std::vector<std::unique_ptr<char[]>> blocks_;
    std::size_t blockUsed_ = 0;
    std::size_t blockSize_ = 0;
};

}  // namespace quillstow
