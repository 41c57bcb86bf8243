#include "archive/ProjectFiler.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "archive/FilingTexts.hpp"
#include "copy/PathRules.hpp"
#include "environment/MountTable.hpp"
#include "support/AtomicFile.hpp"
#include "support/FileInfo.hpp"
#include "support/Paths.hpp"
#include "support/TreeWalk.hpp"

namespace quillstow {

namespace {

using Path = std::filesystem::path;

constexpr const char* copyTrashName = ".Quillstow-Trash";
// Progress goes to a window, which needs no more than this many reports a second.
constexpr double secondsBetweenReports = 0.1;

ProjectFilingOutcome endedWith(const ProjectFilingPlan& plan, std::string problem) {
    return {plan, 0, 0, std::nullopt, {std::move(problem)}};
}

ProjectFilingOutcome cancelled(const ProjectFilingPlan& plan) {
    return endedWith(plan, filingtext::copyFailed(plan.name, errors::cancellation().description));
}

// Nothing, or hidden entries only: a folder the filing may fill. False when it can't be listed.
bool holdsNothingVisible(const Path& folder) {
    bool visible = false;
    const bool listed = walkTree(folder, WalkDetail::typeOnly, [&](const WalkEntry& entry) {
        if (!entry.name.starts_with('.')) visible = true;
        return false;
    });
    return listed && !visible;
}

// The hidden folder the copy is made and proven in, beside its final place. When it goes
// without having been published (a cancel, or a final name someone took meanwhile), it takes the
// copy with it, and the folders it made for the year when they are empty.
class StagingFolder {
  public:
    // Throws Failure when the year's folder or the hidden folder can't be made.
    StagingFolder(FileSystem& fileSystem, const Path& destination, const std::string& name)
        : fileSystem_(fileSystem) {
        const Path yearFolder = destination.parent_path();
        firstMadeFolder_ = yearFolder;
        while (!files::exists(firstMadeFolder_.parent_path()) &&
               firstMadeFolder_.parent_path() != firstMadeFolder_) {
            firstMadeFolder_ = firstMadeFolder_.parent_path();
        }
        if (files::exists(firstMadeFolder_)) firstMadeFolder_.clear();
        fileSystem_.createDirectories(yearFolder);
        path_ = yearFolder / atomicfile::temporaryName(name);
        if (::mkdir(path_.c_str(), 0777) != 0) {
            const int error = errno;
            removeFoldersMadeHere(yearFolder);
            throwPosix(error);
        }
    }
    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;

    ~StagingFolder() {
        if (!published_) {
            try {
                fileSystem_.removeItem(path_);
            } catch (const Failure&) {
                // What stays is hidden, and its name is one a sweep knows for a leftover.
            }
        }
        removeFoldersMadeHere(path_.parent_path());
    }

    const Path& path() const { return path_; }

    // Gives the copy its final name, never replacing anything. Into a folder that already stands
    // there (empty, or with hidden entries), the copy's entries move one by one, and back again if
    // one can't.
    void publish(const Path& destination) {
        if (!files::exists(destination)) {
            fileSystem_.moveItem(path_, destination);
        } else {
            moveEntriesInto(destination);
            ::rmdir(path_.c_str());
        }
        published_ = true;
        firstMadeFolder_.clear();
    }

  private:
    // Only empty folders go, from the year's up to the first one made here.
    void removeFoldersMadeHere(const Path& yearFolder) const {
        if (firstMadeFolder_.empty()) return;
        for (Path folder = yearFolder; ::rmdir(folder.c_str()) == 0 && folder != firstMadeFolder_;
             folder = folder.parent_path()) {
        }
    }

    void moveEntriesInto(const Path& destination) {
        std::vector<std::string> names;
        walkTree(path_, WalkDetail::typeOnly, [&](const WalkEntry& entry) {
            names.emplace_back(entry.name);
            return false;
        });
        std::vector<std::string> moved;
        try {
            for (const auto& name : names) {
                fileSystem_.moveItem(path_ / name, destination / name);
                moved.push_back(name);
            }
        } catch (const Failure&) {
            for (const auto& name : moved)
                ::rename((destination / name).c_str(), (path_ / name).c_str());
            throw;
        }
    }

    FileSystem& fileSystem_;
    Path path_;
    Path firstMadeFolder_;  // empty when the year's folder stood already
    bool published_ = false;
};

// Gives the copy its final name. When a proven one can't have it, the filing didn't succeed
// after all; a copy that failed keeps its own sentence, and goes with its hidden folder.
void publish(StagingFolder& staging, ProjectFilingOutcome& outcome) {
    const auto& plan = outcome.plan;
    const bool proven = outcome.isSuccess();
    try {
        staging.publish(plan.destination);
    } catch (const Failure& failure) {
        if (!proven) return;
        const bool taken =
            errors::isPosix(failure.error(), EEXIST) || errors::isPosix(failure.error(), ENOTEMPTY);
        outcome.problems.push_back(
            taken ? filingtext::alreadyFiled(plan.name, plan.year)
                  : filingtext::copyFailed(plan.name, failure.error().description));
    }
}

// Lets through at most ten of the copy's reports a second. Called on the filing's task only.
class ThrottledProgress {
  public:
    ThrottledProgress(const ProjectFiler::Progress& onProgress, const Clock& clock)
        : onProgress_(onProgress), clock_(clock) {}

    FileCopier::ProgressCallback copy() {
        return [this](double fraction, const std::string& text) {
            if (!onProgress_) return;
            const double now = clock_.now();
            if (now - lastReport_ < secondsBetweenReports) return;
            lastReport_ = now;
            onProgress_(std::clamp(fraction, 0.0, 1.0), text);
        };
    }

  private:
    const ProjectFiler::Progress& onProgress_;
    const Clock& clock_;
    double lastReport_ = -std::numeric_limits<double>::infinity();
};

}  // namespace

ProjectFiler::ProjectFiler(FileSystem& fileManager, ProjectManifestWriter manifests,
                           const WallClock& wallClock, const Clock& clock)
    : fileManager_(fileManager),
      copier_(fileManager),
      manifests_(std::move(manifests)),
      wallClock_(wallClock),
      clock_(clock) {}

ProjectFilingOutcome ProjectFiler::file(const Plan& plan, const Progress& onProgress,
                                        std::stop_token stop, const Ended& onEnded) const {
    // Declared first so that it goes last: a cancelled copy is removed after its outcome has
    // been told.
    std::optional<StagingFolder> staging;
    const Outcome outcome = [&] {
        if (auto refusal = refusalOf(plan)) return endedWith(plan, std::move(*refusal));
        try {
            staging.emplace(fileManager_, plan.destination, plan.name);
        } catch (const Failure& failure) {
            return endedWith(plan,
                             filingtext::folderNotCreated(plan.year, failure.error().description));
        }
        auto proof = copyAndProve(plan, staging->path(), onProgress, stop);
        if (!proof.cancelled) publish(*staging, proof.outcome);
        return proof.outcome;
    }();
    if (onEnded) onEnded(outcome);
    return outcome;
}

std::optional<std::string> ProjectFiler::refusalOf(const Plan& plan) {
    if (!files::exists(plan.source)) return filingtext::sourceMissing(plan.name);
    if (files::exists(plan.destination) && !holdsNothingVisible(plan.destination)) {
        return filingtext::alreadyFiled(plan.name, plan.year);
    }
    // A drive that isn't there leaves its bare mount point on the system's disk: never filled.
    if (destinationState(plan.destination, MountTable::snapshot()) ==
        DestinationState::notMounted) {
        return filingtext::folderNotCreated(plan.year, errors::posix(ENODEV).description);
    }
    // An archive inside the project would change the original: refused before a folder is made.
    try {
        validatePaths(plan.source, plan.destination);
    } catch (const FileOperationFailure& failure) {
        return filingtext::copyFailed(plan.name, failure.error().underlying.description);
    }
    return std::nullopt;
}

ProjectFiler::Proof ProjectFiler::copyAndProve(const Plan& plan, const Path& stagedCopy,
                                               const Progress& onProgress,
                                               std::stop_token stop) const {
    ThrottledProgress progress(onProgress, clock_);
    const ProjectManifest manifest = manifests_.scan(plan.source, plan.name, wallClock_.now());
    if (stop.stop_requested()) return {cancelled(plan), true};
    BackupResult run;
    try {
        run = copier_.scanAndCopy(plan.source, stagedCopy, stagedCopy / copyTrashName,
                                  filterForProfile(BackupProfile::standard), progress.copy(), stop);
    } catch (const FileOperationFailure& failure) {
        if (stop.stop_requested()) return {cancelled(plan), true};
        return {endedWith(plan, filingtext::copyFailed(plan.name,
                                                       failure.error().underlying.description)),
                false};
    }
    if (stop.stop_requested()) return {cancelled(plan), true};
    try {
        manifests_.write(manifest, stagedCopy);
    } catch (const Failure&) {
        // The proof uses the record in memory; a copy without its manifest file still stands.
    }
    if (beforeProof_) beforeProof_(stagedCopy);
    if (stop.stop_requested()) return {cancelled(plan), true};

    Outcome outcome{plan, manifest.files.size(), run.bytesTransferred, std::nullopt, {}};
    outcome.check = manifests_.check(stagedCopy, manifest);
    if (!run.errors.empty()) {
        outcome.problems.push_back(filingtext::filesNotCopied(run.errors.size()));
    }
    return {std::move(outcome), false};
}

std::string ProjectFiler::summary(const Outcome& outcome) {
    const auto& plan = outcome.plan;
    if (!outcome.problems.empty()) return outcome.problems.front();
    if (outcome.check && !outcome.check->passes()) {
        return filingtext::copyDoesNotMatch(plan.name, plan.year,
                                            ProjectManifestWriter::summary(*outcome.check));
    }
    if (outcome.check) return filingtext::filed(plan.name, plan.year, outcome.filesCopied);
    return filingtext::notFiled(plan.name);
}

}  // namespace quillstow
