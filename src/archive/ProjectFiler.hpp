#pragma once

// Files one finished project into the archive under its year, and proves the copy against a
// manifest taken from the original before the first byte moved.
//
// The copy is made by the pass (each file under a temporary name, flushed, size-checked and
// swapped) into a hidden folder beside the final one, ".quillstowtmp-…-{name}", and the proof
// runs there. Then the copy takes its final name, renamed and never over anything: a proven
// one, and also one that failed or doesn't match, so that the result sentence ("Copied … but
// the copy doesn't match") is true and the next attempt with the same plan finds something
// already filed there. Only a stopped copy is removed again, so a filing stopped by the
// program's quit leaves no half-filed project under its name; what its moment of removing
// leaves stays hidden for the next filing into that year to sweep (StagingFolder). The original
// is only read. Every ending is an Outcome with words for the user; `file` never throws.
//
// `file` runs on a task of its own and polls its stop token between the files of its walks,
// its copy and its removals, and between the chunks of one file, so it returns within a second
// of a stop. onProgress is called on that task, at most ten times a second: from the sweep and
// the walk of the original (at 0), from the copy (between files and from inside a large one),
// and from the proof (at 1).

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "archive/ProjectManifest.hpp"
#include "copy/FileCopier.hpp"
#include "support/Clock.hpp"

namespace quillstow {

class StagingFolder;

struct ProjectFilingPlan {
    std::filesystem::path source;
    std::filesystem::path destination;  // {archive root}/{year}/{name}
    int year = 0;
    std::string name;

    bool operator==(const ProjectFilingPlan&) const = default;
};

struct ProjectFilingOutcome {
    ProjectFilingPlan plan;
    std::size_t filesCopied = 0;  // what the manifest expected; 0 if the copy never ran
    std::int64_t bytesCopied = 0;
    std::optional<ProjectCheckResult> check;  // when the copy ran to its end
    std::vector<std::string> problems;        // in words for the user

    bool isSuccess() const { return problems.empty() && check && check->passes(); }
};

class ProjectFiler {
  public:
    using Plan = ProjectFilingPlan;
    using Outcome = ProjectFilingOutcome;
    // The fraction of the whole filing, 0 to 1, and the name of the file in hand.
    using Progress = std::function<void(double fraction, const std::string& text)>;
    // Sees the copy between its making and its proof: the place for a test's fault.
    using BeforeProof = std::function<void(const std::filesystem::path& stagedCopy)>;
    // Hears the outcome as soon as it is known, on the filing's task.
    using Ended = std::function<void(const ProjectFilingOutcome& outcome)>;

    // The copy is the pass's, on `fileManager`, which also makes, moves and removes the
    // filing's own folders; `clock` spaces the progress reports.
    ProjectFiler(FileSystem& fileManager, ProjectManifestWriter manifests,
                 const WallClock& wallClock, const Clock& clock);

    void setBeforeProof(BeforeProof hook) { beforeProof_ = std::move(hook); }

    // `onEnded` hears the outcome before a stopped copy is removed again; `file` returns once
    // it is gone, or a moment after the stop (StagingFolder).
    Outcome file(const Plan& plan, const Progress& onProgress, std::stop_token stop = {},
                 const Ended& onEnded = nullptr) const;

    // The result sentence.
    static std::string summary(const Outcome& outcome);

  private:
    // Why the plan can't be filed before anything is made; nothing when it can.
    static std::optional<std::string> refusalOf(const Plan& plan);
    struct Proof {
        Outcome outcome;
        bool cancelled = false;
    };
    Proof copyAndProve(const Plan& plan, StagingFolder& staging, const Progress& onProgress,
                       std::stop_token stop) const;

    FileSystem& fileManager_;
    FileCopier copier_;
    ProjectManifestWriter manifests_;
    const WallClock& wallClock_;
    const Clock& clock_;
    BeforeProof beforeProof_;
};

}  // namespace quillstow
