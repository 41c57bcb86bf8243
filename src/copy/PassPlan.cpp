#include "copy/PassPlan.hpp"

#include <algorithm>
#include <thread>

#include "copy/FileTransfer.hpp"
#include "support/Paths.hpp"

namespace quillstow {

bool isAtOrBelow(std::string_view path, std::string_view folder) {
    if (folder.empty() || path == folder) return true;
    return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

namespace {

// The mirror's half of a plan: every entry met, the items in walk order, and the temporaries.
struct MirrorWalk {
    MirrorEntries entries;
    // Into `entries`, whose nodes stay where they are while it grows.
    std::vector<MirrorEntries::value_type*> items;
    std::vector<std::string> staleTemporaries;
};

// Items and folders are read whole; inside an item and an excluded folder only names matter, to
// find temporaries everywhere a sweep of the whole tree would, so no metadata is read there.
MirrorWalk walkMirror(FileSystem& fileSystem, const std::filesystem::path& destination,
                      const ExclusionFilter& filter) {
    MirrorWalk walk;
    // The folder whose entries are looked at for their names only; the walk is depth first, so
    // the first entry outside it leaves it for good.
    std::string namesOnlyBelow;
    const auto visit = [&](const WalkEntry& entry) -> std::optional<WalkDetail> {
        if (!namesOnlyBelow.empty() && !isAtOrBelow(entry.relativePath, namesOnlyBelow)) {
            namesOnlyBelow.clear();
        }
        if (transfer::isReservedName(entry.name)) {
            walk.staleTemporaries.push_back(entry.relativePath);
            return std::nullopt;
        }
        const bool isFolder = entry.info.isDirectory();
        if (!namesOnlyBelow.empty()) {
            return isFolder ? std::optional(WalkDetail::typeOnly) : std::nullopt;
        }
        auto& placed = *walk.entries.emplace(entry.relativePath, MirrorEntry{entry.info}).first;
        const EntryRole role = roleOf(entry.name, entry.info, filter, true);
        if (role == EntryRole::folder) return WalkDetail::metadata;
        if (role == EntryRole::item) {
            placed.second.isItem = true;
            walk.items.push_back(&placed);
        }
        if (!isFolder) return std::nullopt;
        namesOnlyBelow = entry.relativePath;
        return WalkDetail::typeOnly;
    };
    fileSystem.walkTree(paths::resolved(destination), WalkDetail::metadata, visit, nullptr);
    return walk;
}

std::optional<std::string> obstacleFor(const std::string& relative, const FileInfo& sourceInfo,
                                       const MirrorEntries& entries) {
    for (auto slash = relative.find('/'); slash != std::string::npos;
         slash = relative.find('/', slash + 1)) {
        const auto folder = entries.find(std::string_view(relative).substr(0, slash));
        if (folder == entries.end()) return std::nullopt;
        if (!folder->second.info.isDirectory()) return relative.substr(0, slash);
    }
    const auto found = entries.find(relative);
    if (found == entries.end()) return std::nullopt;
    const FileInfo& inMirror = found->second.info;
    if (inMirror.isSymbolicLink() || inMirror.isDirectory() != sourceInfo.isDirectory()) {
        return relative;
    }
    return std::nullopt;
}

// The change test of every item against the mirror's entry at its path, and the marks that
// leave the mirror's orphans unmarked.
void decideCopies(PassPlan& plan) {
    const auto& items = plan.listing.items;
    for (std::size_t i = 0; i < items.size(); ++i) {
        const ListedItem& item = items[i];
        std::optional<FileInfo> inMirror;
        MirrorEntry* entry = nullptr;
        if (const auto found = plan.mirror.find(item.relativePath); found != plan.mirror.end()) {
            entry = &found->second;
            entry->hasSourceItem = entry->isItem;
            inMirror = entry->info;
        }
        if (!needsCopy(item.info, inMirror)) {
            if (entry) entry->isUnchanged = entry->isItem;
            continue;
        }
        plan.copies.push_back({i, obstacleFor(item.relativePath, item.info, plan.mirror)});
        plan.bytesToCopy += item.info.fileSize.value_or(0);
    }
}

std::vector<std::string> orphansOf(const std::vector<MirrorEntries::value_type*>& items,
                                   const std::vector<UnreadableFolder>& unreadable) {
    const auto isUnknown = [&](const std::string& path) {
        return std::any_of(unreadable.begin(), unreadable.end(), [&](const auto& folder) {
            return isAtOrBelow(path, folder.relativePath);
        });
    };
    std::vector<std::string> orphans;
    for (const auto* item : items) {
        if (!item->second.hasSourceItem && !isUnknown(item->first)) orphans.push_back(item->first);
    }
    return orphans;
}

}  // namespace

bool isKeptUnchanged(const PassPlan& plan, std::string_view relativePath) {
    const auto found = plan.mirror.find(relativePath);
    return found != plan.mirror.end() && found->second.isUnchanged;
}

PassPlan planPass(FileSystem& fileSystem, const std::filesystem::path& source,
                  const std::filesystem::path& destination, const ExclusionFilter& filter) {
    PassPlan plan;
    plan.source = source;
    plan.destination = destination;
    MirrorWalk mirror;
    {
        // As the two halves of rsync do: an unchanged tree then costs little more than the
        // longer of the two walks.
        const std::jthread mirrorWalk(
            [&] { mirror = walkMirror(fileSystem, destination, filter); });
        plan.listing = readSource(fileSystem, source, filter);
    }
    plan.mirror = std::move(mirror.entries);
    plan.mirrorItemCount = mirror.items.size();
    plan.staleTemporaries = std::move(mirror.staleTemporaries);
    decideCopies(plan);
    plan.orphans = orphansOf(mirror.items, plan.listing.unreadableFolders);
    return plan;
}

}  // namespace quillstow
