#pragma once

// The file watcher's table of the folders it watches: for every inotify watch, the watch of the
// folder that holds it and its own name, so that a folder's path is joined when it is needed (a
// new folder appeared in it) and follows a folder above it that was moved and watched again.
// It lives as long as the watch, for hours over tens of thousands of folders, so it is kept
// compact: about 16 bytes a folder and its name, in two flat arrays, instead of a hash node and
// a whole path for each.
//
// Not thread-safe: the watcher touches it from one thread at a time.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillstow {

class WatchedFolders {
  public:
    // The watch of the source, which has no folder above it in the table.
    static constexpr int noParent = -1;

    // The folder watched by `watch`: `name` in the folder watched by `parent`, or with
    // `noParent` the whole path of the source. A watch the table holds already (inotify gives
    // a folder watched again its old watch) takes the new place and name.
    void add(int watch, int parent, std::string_view name);
    void remove(int watch);
    void clear();
    // Gives back what the arrays hold beyond their contents, after a burst of additions.
    void shrinkToFit();

    bool contains(int watch) const;
    // The folder's path now; nothing when it, or a folder above it, is no longer watched.
    std::optional<std::string> pathOf(int watch) const;
    std::size_t size() const { return entries_.size() - removed_; }
    // Every watch the table holds.
    std::vector<int> watches() const;
    // The bytes its arrays take.
    std::size_t bytesHeld() const;

  private:
    struct Entry {
        int watch;
        int parent;
        std::uint32_t nameAt;
        std::uint32_t nameLength;
    };
    static constexpr int removedMark = -2;

    const Entry* find(int watch) const;
    Entry* find(int watch);
    std::string_view nameOf(const Entry& entry) const;
    void compactIfWasteful();

    // Ordered by watch: inotify hands out ever larger numbers, so an addition is appended.
    std::vector<Entry> entries_;
    std::string names_;
    std::size_t removed_ = 0;
    std::size_t unusedNameBytes_ = 0;
};

}  // namespace quillstow
