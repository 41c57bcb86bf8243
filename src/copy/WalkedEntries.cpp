#include "copy/WalkedEntries.hpp"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <stdexcept>

namespace quillstow {

namespace {

constexpr std::size_t pathBlockSize = std::size_t(1) << 20;

}  // namespace

static_assert(sizeof(WalkedEntry) == 32, "a pass keeps one per entry of trees of millions");

WalkedEntry::WalkedEntry(std::string_view keptPath, const FileInfo& info)
    : pathStart(keptPath.data()),
      fileSize(info.fileSize.value_or(0)),
      modifiedAt(info.modificationDate ? info.modificationDate->time_since_epoch().count() : 0),
      pathLength(std::uint32_t(keptPath.size())),
      type(info.type),
      hasSize(info.fileSize.has_value()),
      hasDate(info.modificationDate.has_value()) {}

FileInfo WalkedEntry::info() const {
    FileInfo info;
    info.type = type;
    if (hasSize) info.fileSize = fileSize;
    if (hasDate) info.modificationDate = Date(std::chrono::nanoseconds(modifiedAt));
    return info;
}

std::string_view WalkedEntries::keep(std::string_view path) {
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

WalkedEntry& WalkedEntries::add(std::string_view relativePath, const FileInfo& info) {
    if (relativePath.size() > UINT32_MAX) throw std::length_error("a path too long to keep");
    return entries_.emplace_back(keep(relativePath), info);
}

}  // namespace quillstow
