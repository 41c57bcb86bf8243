#pragma once

// The weekly second copy: the pair's folder on the destination brought up to date in an offsite
// folder, usually one a cloud client keeps in sync. It only adds and overwrites; nothing in the
// offsite folder is ever deleted, so a file removed from the backup stays there. Each file is
// written beside its target, checked by size, flushed and swapped in.
//
// No state. Runs on a run's task and tests its stop token between files.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "control/EngineStages.hpp"
#include "copy/FileSystem.hpp"
#include "environment/Gates.hpp"
#include "support/Clock.hpp"
#include "support/Sleeper.hpp"

namespace quillstow {

class OffsiteSyncer final : public OffsiteStage {
  public:
    static constexpr std::int64_t freeSpaceMargin = 524288000;
    static constexpr int reachabilityInterval = 25;
    static constexpr int copyAttempts = 3;
    static constexpr double retryDelay = 0.5;  // before attempt n, n times this

    // `isFolder` is the test that the offsite folder is still there, every 25 files.
    using FolderTest = std::function<bool(const std::filesystem::path&)>;
    OffsiteSyncer(FileSystem& fileSystem, const ActivityGate& gate, const Sleeper& sleeper,
                  const Clock& clock, FolderTest isFolder = nullptr);

    OffsiteSyncResult sync(const std::filesystem::path& backupRoot,
                           const std::filesystem::path& offsiteRoot, const ExclusionFilter& filter,
                           const ProgressCallback& progress, std::stop_token stop) override;

    // The regular files of the backup to consider, relative to it: no links, no bookkeeping
    // files, no unfinished copies, nothing excluded.
    std::vector<std::string> scan(const std::filesystem::path& backupRoot,
                                  const ExclusionFilter& filter) const;

    // Copies a file to `target` through a temporary name, up to three times; returns the size of
    // the source. Throws Failure with the last attempt's error.
    std::int64_t copyFile(const std::filesystem::path& source, const std::filesystem::path& target,
                          std::stop_token stop = {}) const;

  private:
    // One attempt: copy beside the target, check the size, flush, swap; on a failure the
    // temporary copy goes.
    void copyOnce(const std::filesystem::path& source, const std::filesystem::path& target,
                  std::int64_t size) const;

    FileSystem& fileSystem_;
    const ActivityGate& gate_;
    const Sleeper& sleeper_;
    const Clock& clock_;
    FolderTest isFolder_;
};

// Whether the copy at `target` still stands for `source`: there, with the same size, and a date
// no more than 2.0 seconds away. Any doubt means copy.
bool isUnchanged(const std::filesystem::path& source, const std::filesystem::path& target);

}  // namespace quillstow
