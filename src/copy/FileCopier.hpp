#pragma once

// One pass over a source folder, in the steps of its data: the plan (one walk of the source and
// one of the mirror, side by side), the checks, a copy of every item the plan names, the archive
// of what left the source, and the result. The pass is one-way and never deletes: the source is
// only read, and the mirror changes only by swaps of whole items and moves into the archive.
//
// A FileCopier has no state of its own, so one instance may serve many passes. A pass and its
// plan run on one background task (the plan walks the mirror on a thread of its own meanwhile);
// the pass polls its stop token between items, and onProgress is called on that task.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "copy/ExclusionFilter.hpp"
#include "copy/FileSystem.hpp"
#include "copy/PassPlan.hpp"
#include "copy/RunningEditors.hpp"
#include "environment/Gates.hpp"
#include "model/Results.hpp"
#include "support/Clock.hpp"

namespace quillstow {

class FileCopier {
  public:
    using Path = std::filesystem::path;
    using ProgressCallback = std::function<void(double fraction, const std::string& text)>;

    FileCopier(FileSystem& fileManager, const RunningEditors& editors, const WallClock& wallClock,
               const Clock& clock, const ActivityGate& gate = defaultActivityGate());
    // The local disk and the platform's clocks, with no editors reported.
    explicit FileCopier(FileSystem& fileManager);

    // Walks `source` and its mirror `destination` once each, side by side, into the plan of a
    // pass: what a pass would copy, archive and sweep. Never fails; a tree that can't be read
    // lists nothing, which the pass's checks and rails then judge.
    PassPlan planPass(const Path& source, const Path& destination,
                      const ExclusionFilter& filter) const;

    // Mirrors `plan.source` into `plan.destination` as the plan says. Raises FileOperationFailure
    // when a check before the first file fails; after that every failure is an entry of the
    // result's errors. Cancellation ends the pass early with a normal result.
    BackupResult scanAndCopy(const PassPlan& plan, const Path& trashRoot,
                             const ProgressCallback& onProgress, std::stop_token stop = {}) const;

    // The same with a plan of its own, for a caller that has none.
    BackupResult scanAndCopy(const Path& source, const Path& destination, const Path& trashRoot,
                             const ExclusionFilter& filter, const ProgressCallback& onProgress,
                             std::stop_token stop = {}) const;

    // The relative paths whose items differ in size between the two sides, in the given order.
    // A size that can't be read, on either side, differs; so a folder copied whole always does.
    std::vector<std::string> differingSizes(const Path& source, const Path& destination,
                                            const std::vector<std::string>& relativePaths) const;

    // Removes the temporaries of interrupted copies that the plan found in the mirror, once the
    // path rules accept the two folders: a sweep never runs in a source or a system folder, and
    // never through a link. Never raises.
    void removeStaleTemporaries(const PassPlan& plan) const;

    // Copies one item into place, flushed and swapped; one more attempt after a transient error.
    // Returns the source's size as read at the start. A large file reports its progress as
    // "{name} ({done}/{total})" with the item's `fraction`.
    std::int64_t copyFile(const Path& source, const Path& destination,
                          const ProgressCallback& onProgress = nullptr, double fraction = 0,
                          std::stop_token stop = {}) const;

    // The gate of the platform's readings, with no user input reported.
    static const ActivityGate& defaultActivityGate();

  private:
    FileSystem& fileManager_;
    const RunningEditors& editors_;
    const WallClock& wallClock_;
    const Clock& clock_;
    const ActivityGate& gate_;
};

}  // namespace quillstow
