#include "control/CopyRedundancy.hpp"

#include <set>

#include "support/Paths.hpp"

namespace quillstow {

std::map<Uuid, CopyRedundancy> computeCopyRedundancy(const std::vector<BackupPair>& pairs,
                                                     const std::vector<MountTable::Mount>& mounts,
                                                     const std::vector<std::string>& roots) {
    std::map<std::filesystem::path, std::vector<const BackupPair*>> bySource;
    for (const auto& pair : pairs)
        bySource[paths::standardized(pair.sourceURL)].push_back(&pair);

    std::map<Uuid, CopyRedundancy> verdicts;
    for (const auto& [source, group] : bySource) {
        std::set<std::filesystem::path> copies;
        for (const BackupPair* pair : group) {
            copies.insert(paths::standardized(pair->destinationURL));
            if (pair->offsiteURL) copies.insert(paths::standardized(*pair->offsiteURL));
        }
        CopyRedundancy verdict = CopyRedundancy::noBackup();
        if (copies.size() == 1) {
            const bool isGone =
                destinationState(source, mounts, roots) == DestinationState::folderMissing;
            verdict = isGone ? CopyRedundancy::onlyCopy() : CopyRedundancy::singleBackup();
        } else if (copies.size() >= 2) {
            verdict = CopyRedundancy::redundant(int(copies.size()));
        }
        for (const BackupPair* pair : group)
            verdicts[pair->id] = verdict;
    }
    return verdicts;
}

}  // namespace quillstow
