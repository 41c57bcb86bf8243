#include "copy/MirrorIndex.hpp"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <utility>

namespace quillstow {

namespace {

constexpr std::size_t pathBlockSize = std::size_t(1) << 20;

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

FileInfo MirrorEntry::info() const {
    FileInfo info;
    info.type = type;
    if (hasSize) info.fileSize = fileSize;
    if (hasDate) info.modificationDate = Date(std::chrono::nanoseconds(modifiedAt));
    return info;
}

std::string_view MirrorIndex::keep(std::string_view path) {
    if (blocks_.empty() || blockUsed_ + path.size() > blockSize_) {
        blockSize_ = std::max(pathBlockSize, path.size());
        blocks_.push_back(std::make_unique_for_overwrite<char[]>(blockSize_));
        blockUsed_ = 0;
    }
    char* start = blocks_.back().get() + blockUsed_;
    std::memcpy(start, path.data(), path.size());
    blockUsed_ += path.size();
    return {start, path.size()};
}

MirrorEntry& MirrorIndex::add(std::string_view path, const FileInfo& info) {
    if (entries_.size() >= std::size_t(UINT32_MAX) - 1 || path.size() > UINT32_MAX) {
        throw std::length_error("too many entries in a mirror");
    }
    if ((entries_.size() + 1) * 4 > slots_.size() * 3) grow();
    const std::string_view kept = keep(path);
    MirrorEntry& entry = entries_.emplace_back();
    entry.pathStart = kept.data();
    entry.pathLength = std::uint32_t(kept.size());
    entry.type = info.type;
    entry.hasSize = info.fileSize.has_value();
    entry.fileSize = info.fileSize.value_or(0);
    entry.hasDate = info.modificationDate.has_value();
    if (entry.hasDate) entry.modifiedAt = info.modificationDate->time_since_epoch().count();
    slots_[slotOf(path)] = slotValue(hashOf(path), entries_.size() - 1);
    return entry;
}

// The slot that holds `path`, or the free one where it would go.
std::size_t MirrorIndex::slotOf(std::string_view path) const {
    const std::uint32_t hash = hashOf(path);
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
        const std::uint64_t value = slots_[slot];
        if (value == 0) return slot;
        if (hashIn(value) == hash && entries_[indexIn(value)].path() == path) return slot;
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

MirrorEntry* MirrorIndex::find(std::string_view path) {
    return const_cast<MirrorEntry*>(std::as_const(*this).find(path));
}

const MirrorEntry* MirrorIndex::find(std::string_view path) const {
    if (slots_.empty()) return nullptr;
    const std::uint64_t value = slots_[slotOf(path)];
    return value == 0 ? nullptr : &entries_[indexIn(value)];
}

}  // namespace quillstow
