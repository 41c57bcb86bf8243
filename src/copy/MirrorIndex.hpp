#pragma once

// The entries of a mirror that one walk met, held compactly (WalkedEntries), found by path
// through an open-addressed table of indices. Nothing moves once added, so an entry's path and
// address stay valid as the index grows.
//
// Built and read on one thread.

#include <cstdint>
#include <string_view>
#include <vector>

#include "copy/WalkedEntries.hpp"

namespace quillstow {

// An entry of the mirror: an item, a folder the walk went into, a link, a file it leaves alone.
using MirrorEntry = WalkedEntry;

class MirrorIndex {
  public:
    // Adds an entry at a path not added before.
    MirrorEntry& add(std::string_view path, const FileInfo& info);

    MirrorEntry* find(std::string_view path);
    const MirrorEntry* find(std::string_view path) const;

    // Starts bringing where `path` would be found into the cache. The slots of paths lie far
    // apart, so a loop that finds a million paths waits on memory unless it asks a few ahead.
    void prefetch(std::string_view path) const;

    // In the order they were added.
    const WalkedEntries& entries() const { return entries_; }
    std::size_t size() const { return entries_.size(); }

  private:
    std::size_t slotOf(std::string_view path, std::uint32_t hash) const;
    void grow();

    WalkedEntries entries_;
    // Per slot, the hash of the entry's path above its index + 1; 0 is free. A probe compares
    // paths only where the hashes agree, and growing needs no path again. A power of two, never
    // more than 3/4 full.
    std::vector<std::uint64_t> slots_;
};

}  // namespace quillstow
