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

// The mirror's half of a plan: every entry met, in walk order, and the temporaries.
struct MirrorWalk {
    MirrorIndex entries;
    std::size_t itemCount = 0;
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
        MirrorEntry& placed = walk.entries.add(entry.relativePath, entry.info);
        const EntryRole role = roleOf(entry.name, entry.info, filter, true);
        if (role == EntryRole::folder) return WalkDetail::metadata;
        if (role == EntryRole::item) {
            placed.isItem = true;
            ++walk.itemCount;
        }
        if (!isFolder) return std::nullopt;
        namesOnlyBelow = entry.relativePath;
        return WalkDetail::typeOnly;
    };
    fileSystem.walkTree(paths::resolved(destination), WalkDetail::metadata, visit, nullptr);
    return walk;
}

std::optional<std::string> obstacleFor(const ListedItem& item, const MirrorIndex& entries) {
    const std::string_view relative = item.relativePath();
    for (auto slash = relative.find('/'); slash != std::string_view::npos;
         slash = relative.find('/', slash + 1)) {
        const MirrorEntry* folder = entries.find(relative.substr(0, slash));
        if (!folder) return std::nullopt;
        if (!folder->isDirectory()) return std::string(relative.substr(0, slash));
    }
    const MirrorEntry* inMirror = entries.find(relative);
    if (!inMirror) return std::nullopt;
    if (inMirror->isSymbolicLink() || inMirror->isDirectory() != item.isDirectory()) {
        return std::string(relative);
    }
    return std::nullopt;
}

// The change test of every item against the mirror's entry at its path, and the marks that
// leave the mirror's orphans unmarked.
void decideCopies(PassPlan& plan) {
    const auto& items = plan.listing.items;
    constexpr std::size_t lookAhead = 8;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i + lookAhead < items.size()) plan.mirror.prefetch(items[i + lookAhead].relativePath());
        const ListedItem& item = items[i];
        std::optional<FileInfo> inMirror;
        MirrorEntry* entry = plan.mirror.find(item.relativePath());
        if (entry) {
            entry->hasSourceItem = entry->isItem;
            inMirror = entry->info();
        }
        if (!needsCopy(item.info(), inMirror)) {
            if (entry) entry->isUnchanged = entry->isItem;
            continue;
        }
        plan.copies.push_back({i, obstacleFor(item, plan.mirror)});
        plan.bytesToCopy += item.byteCount();
    }
}

std::vector<std::string> orphansOf(const MirrorIndex& mirror,
                                   const std::vector<UnreadableFolder>& unreadable) {
    const auto isUnknown = [&](std::string_view path) {
        return std::any_of(unreadable.begin(), unreadable.end(), [&](const auto& folder) {
            return isAtOrBelow(path, folder.relativePath);
        });
    };
    std::vector<std::string> orphans;
    for (const MirrorEntry& entry : mirror.entries()) {
        if (entry.isItem && !entry.hasSourceItem && !isUnknown(entry.relativePath())) {
            orphans.emplace_back(entry.relativePath());
        }
    }
    return orphans;
}

}  // namespace

bool isKeptUnchanged(const PassPlan& plan, std::string_view relativePath) {
    const MirrorEntry* found = plan.mirror.find(relativePath);
    return found && found->isUnchanged;
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
    plan.mirrorItemCount = mirror.itemCount;
    plan.staleTemporaries = std::move(mirror.staleTemporaries);
    decideCopies(plan);
    plan.orphans = orphansOf(plan.mirror, plan.listing.unreadableFolders);
    return plan;
}

}  // namespace quillstow
