#pragma once

// How safe the data of each pair is: how many separate copies of its source exist across all
// pairs, and whether the source itself is still there. Pairs of one source share one verdict; two
// pairs backing up to one place count once, and an offsite folder counts as a copy of its own.
// A source is taken for gone only when its own volume is there and the folder is not, so that
// an unplugged drive never reads as a lost source. Pure; any thread.

#include <map>
#include <vector>

#include "environment/MountTable.hpp"
#include "model/BackupPair.hpp"

namespace quillstow {

struct CopyRedundancy {
    enum class Case { redundant, noBackup, onlyCopy, singleBackup };

    Case kind = Case::noBackup;
    int copies = 0;  // for redundant

    static CopyRedundancy redundant(int copies) { return {Case::redundant, copies}; }
    static CopyRedundancy noBackup() { return {Case::noBackup, 0}; }
    static CopyRedundancy onlyCopy() { return {Case::onlyCopy, 0}; }
    static CopyRedundancy singleBackup() { return {Case::singleBackup, 0}; }

    bool operator==(const CopyRedundancy&) const = default;
};

std::map<Uuid, CopyRedundancy> computeCopyRedundancy(
    const std::vector<BackupPair>& pairs, const std::vector<MountTable::Mount>& mounts,
    const std::vector<std::string>& roots = removableMediaRoots());

}  // namespace quillstow
