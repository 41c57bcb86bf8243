#include "archive/ProjectFiler.hpp"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "archive/FilingTexts.hpp"
#include "archive/StagingFolder.hpp"
#include "copy/PathRules.hpp"
#include "environment/MountTable.hpp"
#include "support/AtomicFile.hpp"
#include "support/FileHandle.hpp"
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

// Lets through at most ten reports a second: the copy's, from between files and from inside a
// large one, and the walks' of the manifest and the proof, which name each file as they list it.
// Called on the filing's task only.
class ThrottledProgress {
  public:
    ThrottledProgress(const ProjectFiler::Progress& onProgress, const Clock& clock)
        : onProgress_(onProgress), clock_(clock) {}

    FileCopier::ProgressCallback copy() {
        return [this](double fraction, const std::string& text) { report(fraction, text); };
    }

    // A walk that stands at `fraction` of the whole filing while it lists.
    ManifestWalk walk(double fraction, std::stop_token stop) {
        return {[this, fraction](const std::string& relativePath) {
                    report(fraction, std::string(lastComponent(relativePath)));
                },
                std::move(stop)};
    }

  private:
    void report(double fraction, const std::string& text) {
        if (!onProgress_) return;
        const double now = clock_.now();
        if (now - lastReport_ < secondsBetweenReports) return;
        lastReport_ = now;
        onProgress_(std::clamp(fraction, 0.0, 1.0), text);
    }

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
            staging.emplace(fileManager_, plan.destination, plan.name, stop, clock_);
        } catch (const Failure& failure) {
            return endedWith(plan,
                             filingtext::folderNotCreated(plan.year, failure.error().description));
        }
        auto proof = copyAndProve(plan, *staging, onProgress, stop);
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

ProjectFiler::Proof ProjectFiler::copyAndProve(const Plan& plan, StagingFolder& staging,
                                               const Progress& onProgress,
                                               std::stop_token stop) const {
    ThrottledProgress progress(onProgress, clock_);
    const Path& stagedCopy = staging.path();
    // What stopped filings left here makes room first. It and the walks of the original and of
    // the proof take a while on a large project: they report at the ends of the copy's
    // progress, and stop with it.
    staging.sweepLeftovers(progress.walk(0, stop).onFile);
    if (stop.stop_requested()) return {cancelled(plan), true};
    const ProjectManifest manifest =
        manifests_.scan(plan.source, plan.name, wallClock_.now(), progress.walk(0, stop));
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
    outcome.check = manifests_.check(stagedCopy, manifest, progress.walk(1, stop));
    if (stop.stop_requested()) return {cancelled(plan), true};
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
