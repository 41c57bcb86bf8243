#pragma once

// The entries of a mirror that one walk met, held compactly, since a pass keeps one for every
// entry of a tree that may have millions: the paths in one arena of large blocks, a few small
// fields each, found by path through an open-addressed table of indices. Nothing moves once
// added, so an entry's path and address stay valid as the index grows.
//
// Built and read on one thread.

#include <cstdint>
#include <deque>
#include <memory>
#include <string_view>
#include <vector>

#include "support/FileInfo.hpp"

namespace quillstow {

// An entry of the mirror: an item, a folder the walk went into, a link, a file it leaves alone.
struct MirrorEntry {
    const char* pathStart = nullptr;
    std::uint32_t pathLength = 0;
    FileInfo::Type type = FileInfo::Type::other;
    bool hasSize = false;
    bool hasDate = false;
    // An item of a pass: a regular file, or a folder copied whole.
    bool isItem = false;
    // An item of the source has the same path: the entry is no orphan.
    bool hasSourceItem = false;
    // That item needs no copy: the pass leaves the entry as it is.
    bool isUnchanged = false;
    std::int64_t fileSize = 0;
    // Nanoseconds since the epoch.
    std::int64_t modifiedAt = 0;

    std::string_view path() const { return {pathStart, pathLength}; }
    bool isDirectory() const { return type == FileInfo::Type::directory; }
    bool isSymbolicLink() const { return type == FileInfo::Type::symbolicLink; }
    // What the change test reads: kind, size and date.
    FileInfo info() const;
};

class MirrorIndex {
  public:
    MirrorIndex() = default;
    MirrorIndex(MirrorIndex&&) noexcept = default;
    MirrorIndex& operator=(MirrorIndex&&) noexcept = default;

    // Adds an entry at a path not added before.
    MirrorEntry& add(std::string_view path, const FileInfo& info);

    MirrorEntry* find(std::string_view path);
    const MirrorEntry* find(std::string_view path) const;

    // In the order they were added.
    const std::deque<MirrorEntry>& entries() const { return entries_; }
    std::size_t size() const { return entries_.size(); }

  private:
    std::string_view keep(std::string_view path);
    std::size_t slotOf(std::string_view path) const;
    void grow();

    std::deque<MirrorEntry> entries_;
    // Blocks of path text that never move.
    std::vector<std::unique_ptr<char[]>> blocks_;
    std::size_t blockUsed_ = 0;
    std::size_t blockSize_ = 0;
    // Per slot, the hash of the entry's path above its index + 1; 0 is free. A probe compares
    // paths only where the hashes agree, and growing needs no path again. A power of two, never
    // more than 3/4 full.
    std::vector<std::uint64_t> slots_;
};

}  // namespace quillstow
