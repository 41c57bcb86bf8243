#include "copy/MirrorIndex.hpp"

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <utility>

namespace quillstow {

namespace {

std::uint32_t hashOf(std::string_view path) {
    const std::size_t hash = std::hash<std::string_view>{}(path);
    return std::uint32_t(hash ^ (hash >> 32));
}

std::uint64_t slotValue(std::uint32_t hash, std::size_t index) {
    return (std::uint64_t(hash) << 32) | std::uint64_t(index + 1);
}

std::uint32_t hashIn(std::uint64_t slot) {
    return std::uint32_t(slot >> 32);
}

std::uint32_t indexIn(std::uint64_t slot) {
    return std::uint32_t(slot) - 1;
}

}  // namespace

MirrorEntry& MirrorIndex::add(std::string_view path, const FileInfo& info) {
    if (entries_.size() >= std::size_t(UINT32_MAX) - 1) {
        throw std::length_error("too many entries in a mirror");
    }
    if ((entries_.size() + 1) * 4 > slots_.size() * 3) grow();
    const std::uint32_t hash = hashOf(path);
    MirrorEntry& entry = entries_.add(path, info);
    slots_[slotOf(path, hash)] = slotValue(hash, entries_.size() - 1);
    return entry;
}

// The slot that holds `path`, or the free one where it would go.
std::size_t MirrorIndex::slotOf(std::string_view path, std::uint32_t hash) const {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
        const std::uint64_t value = slots_[slot];
        if (value == 0) return slot;
        if (hashIn(value) == hash && entries_[indexIn(value)].relativePath() == path) return slot;
    }
}

void MirrorIndex::grow() {
    std::vector<std::uint64_t> old(std::max<std::size_t>(16, slots_.size() * 2), 0);
    old.swap(slots_);
    const std::size_t mask = slots_.size() - 1;
    for (const std::uint64_t value : old) {
        if (value == 0) continue;
        std::size_t slot = hashIn(value) & mask;
        while (slots_[slot] != 0)
            slot = (slot + 1) & mask;
        slots_[slot] = value;
    }
}

void MirrorIndex::prefetch(std::string_view path) const {
    if (!slots_.empty()) __builtin_prefetch(&slots_[hashOf(path) & (slots_.size() - 1)]);
}

MirrorEntry* MirrorIndex::find(std::string_view path) {
    return const_cast<MirrorEntry*>(std::as_const(*this).find(path));
}

const MirrorEntry* MirrorIndex::find(std::string_view path) const {
    if (slots_.empty()) return nullptr;
    const std::uint64_t value = slots_[slotOf(path, hashOf(path))];
    return value == 0 ? nullptr : &entries_[indexIn(value)];
}

}  // namespace quillstow
