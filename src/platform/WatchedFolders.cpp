#include "platform/WatchedFolders.hpp"

#include <algorithm>
#include <utility>

namespace quillstow {

namespace {

// Past this many removed entries or unused name bytes, and past half of what is held, the arrays
// are rewritten: a removal costs nothing more than a mark, and a tree removed whole costs one
// rewrite per halving.
constexpr std::size_t wasteWorthRewriting = 4096;

constexpr auto isBefore = [](const auto& entry, int watch) { return entry.watch < watch; };

}  // namespace

const WatchedFolders::Entry* WatchedFolders::find(int watch) const {
    const auto at = std::lower_bound(entries_.begin(), entries_.end(), watch, isBefore);
    if (at == entries_.end() || at->watch != watch || at->parent == removedMark) return nullptr;
    return &*at;
}

WatchedFolders::Entry* WatchedFolders::find(int watch) {
    return const_cast<Entry*>(std::as_const(*this).find(watch));
}

void WatchedFolders::add(int watch, int parent, std::string_view name) {
    const auto at = entries_.empty() || entries_.back().watch < watch
                        ? entries_.end()
                        : std::lower_bound(entries_.begin(), entries_.end(), watch, isBefore);
    const bool isHeld = at != entries_.end() && at->watch == watch;
    if (isHeld && at->parent == parent && nameOf(*at) == name) return;
    const Entry entry{watch, parent, std::uint32_t(names_.size()), std::uint32_t(name.size())};
    names_.append(name);
    if (!isHeld) {
        entries_.insert(at, entry);
        return;
    }
    if (at->parent == removedMark) {
        --removed_;
    } else {
        unusedNameBytes_ += at->nameLength;
    }
    *at = entry;
    compactIfWasteful();
}

void WatchedFolders::remove(int watch) {
    Entry* entry = find(watch);
    if (!entry) return;
    entry->parent = removedMark;
    unusedNameBytes_ += entry->nameLength;
    ++removed_;
    compactIfWasteful();
}

void WatchedFolders::clear() {
    entries_ = {};
    names_ = {};
    removed_ = unusedNameBytes_ = 0;
}

void WatchedFolders::compactIfWasteful() {
    const bool manyRemoved = removed_ > wasteWorthRewriting && removed_ * 2 > entries_.size();
    const bool manyUnusedBytes =
        unusedNameBytes_ > wasteWorthRewriting && unusedNameBytes_ * 2 > names_.size();
    if (!manyRemoved && !manyUnusedBytes) return;
    std::vector<Entry> entries;
    entries.reserve(size());
    std::string names;
    names.reserve(names_.size() - unusedNameBytes_);
    for (const Entry& entry : entries_) {
        if (entry.parent == removedMark) continue;
        entries.push_back(
            {entry.watch, entry.parent, std::uint32_t(names.size()), entry.nameLength});
        names.append(names_, entry.nameAt, entry.nameLength);
    }
    entries_ = std::move(entries);
    names_ = std::move(names);
    removed_ = unusedNameBytes_ = 0;
}

void WatchedFolders::shrinkToFit() {
    entries_.shrink_to_fit();
    names_.shrink_to_fit();
}

std::string_view WatchedFolders::nameOf(const Entry& entry) const {
    return std::string_view(names_).substr(entry.nameAt, entry.nameLength);
}

bool WatchedFolders::contains(int watch) const {
    return find(watch) != nullptr;
}

std::optional<std::string> WatchedFolders::pathOf(int watch) const {
    std::vector<const Entry*> chain;
    for (const Entry* entry = find(watch); entry; entry = find(entry->parent)) {
        chain.push_back(entry);
        if (entry->parent == noParent) break;
        // A table that is no tree (never made by the watcher) must not loop.
        if (chain.size() > entries_.size()) return std::nullopt;
    }
    if (chain.empty() || chain.back()->parent != noParent) return std::nullopt;
    std::string path;
    for (auto entry = chain.rbegin(); entry != chain.rend(); ++entry) {
        if (!path.empty()) path += '/';
        path += nameOf(**entry);
    }
    return path;
}

std::vector<int> WatchedFolders::watches() const {
    std::vector<int> watches;
    watches.reserve(size());
    for (const Entry& entry : entries_) {
        if (entry.parent != removedMark) watches.push_back(entry.watch);
    }
    return watches;
}

std::size_t WatchedFolders::bytesHeld() const {
    return entries_.capacity() * sizeof(Entry) + names_.capacity();
}

}  // namespace quillstow
