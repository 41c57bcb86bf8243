#pragma once

// What one pass is to do, read from one walk of the source and one of its mirror, made side by
// side: every item in the order of copying, which of them to copy and the bytes that takes, the
// mirror's items that left the source, and the temporaries interrupted copies left behind. The
// space estimate, the sweep, the copy loop and the archive phase read the plan; none walks a
// tree again, and the change test of each item is decided here once.
//
// A plan is a value that describes the two trees as they were when walked: whatever moves or
// removes something re-reads it first. It is built and read on one task; the mirror is walked
// on a thread of its own while the source is listed.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "copy/ExclusionFilter.hpp"
#include "copy/FileSystem.hpp"
#include "copy/MirrorIndex.hpp"
#include "copy/SourceListing.hpp"

namespace quillstow {

// An item of the source whose copy in the mirror is missing or stale.
struct PlannedCopy {
    // Its index in the listing's items.
    std::size_t item = 0;
    // The mirror's item that stands where the copy must go: a file or a link where one of its
    // folders belongs, or an item of another kind at its own path. It holds backups of its own,
    // so it goes to the archive, never away.
    std::optional<std::string> obstacle;
};

struct PassPlan {
    std::filesystem::path source;
    std::filesystem::path destination;
    SourceListing listing;
    // In the order of the items.
    std::vector<PlannedCopy> copies;
    // What the copies add up to; an item without a size of its own adds nothing.
    std::int64_t bytesToCopy = 0;
    // Every entry of the mirror that the walk met: items, the folders it went into, links, files
    // it leaves alone. Temporaries, and what lies inside items and excluded folders, are none.
    MirrorIndex mirror;
    std::size_t mirrorItemCount = 0;
    // The mirror's items, in its walk's order, that have no item in the source; what lies below
    // a source folder that couldn't be read is unknown, not gone, and is left out.
    std::vector<std::string> orphans;
    // Relative paths of the entries of the mirror named as temporaries, wherever they lie.
    std::vector<std::string> staleTemporaries;
    // How long the two walks took: part of the pass's duration.
    double walkSeconds = 0;
};

// Walks `source` and `destination` once each, side by side. A tree that can't be opened lists
// nothing: a missing mirror plans a copy of everything.
PassPlan planPass(FileSystem& fileSystem, const std::filesystem::path& source,
                  const std::filesystem::path& destination, const ExclusionFilter& filter);

// Whether the plan leaves the mirror's item at `relativePath` as it found it: an item of the
// source whose copy was already up to date.
bool isKeptUnchanged(const PassPlan& plan, std::string_view relativePath);

// Whether `path` is `folder` or lies below it; "" holds everything.
bool isAtOrBelow(std::string_view path, std::string_view folder);

}  // namespace quillstow
