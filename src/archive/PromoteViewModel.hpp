#pragma once

// The state of the window that files a finished project: pick the folder, look at what the
// inspector found, choose name, year and archive folder, watch the copy, read the result. The
// window shows one screen per Step and calls these operations; it redraws when told of a change.
//
// Lives on the main thread: every operation and every observer call happen there. `file` hands
// the filing to a task and comes back through the main queue, holding the model weakly, so a
// window that closes neither stops the filing nor is reached by it. Nothing here stops a filing:
// once begun, it ends on its own, or when the program quits and the task runner is told to stop
// its tasks. Make it with `make`.

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "archive/ProjectFiler.hpp"
#include "archive/ProjectInspector.hpp"
#include "archive/ProjectSlimmer.hpp"
#include "support/Clock.hpp"
#include "support/MainQueue.hpp"
#include "support/Observable.hpp"
#include "support/Tasks.hpp"

namespace quillstow {

class PromoteViewModel : public std::enable_shared_from_this<PromoteViewModel> {
  public:
    enum class Step { choose, review, filing, finished };

    // The years the year field takes.
    static constexpr int earliestTypedYear = 1990;
    static constexpr int latestTypedYear = 2100;

    struct Services {
        MainQueue& mainQueue;
        TaskRunner& tasks;  // outlives the model and its filings
        const WallClock& wallClock;
        Trash& trash;
        std::shared_ptr<const ProjectFiler> filer;
        ProjectInspector inspector = {};
    };

    static std::shared_ptr<PromoteViewModel> make(Services services);
    PromoteViewModel(const PromoteViewModel&) = delete;
    PromoteViewModel& operator=(const PromoteViewModel&) = delete;

    Step step() const { return step_; }
    const std::optional<std::filesystem::path>& project() const { return project_; }
    const std::optional<ProjectInspection>& inspection() const { return inspection_; }
    const std::optional<ProjectSlimmer::Report>& rebuildable() const { return rebuildable_; }
    const std::optional<ProjectFilingOutcome>& outcome() const { return outcome_; }
    const std::optional<std::filesystem::path>& archiveRoot() const { return archiveRoot_; }
    int year() const { return year_; }
    const std::string& name() const { return name_; }
    bool removeRebuildable() const { return removeRebuildable_; }
    double progress() const { return progress_; }
    const std::string& progressLabel() const { return progressLabel_; }

    // Inspects the folder, proposes name and year, finds what could be tidied; on to review.
    void choose(const std::filesystem::path& project);
    void chooseArchive(const std::filesystem::path& archiveRoot);
    void setName(std::string name);
    // A year outside 1990 to 2100 isn't taken; answers whether it was.
    bool setYear(int year);
    void setRemoveRebuildable(bool remove);

    // A project, an archive folder, and a name that isn't only blanks.
    bool canFile() const;
    // "{archive root}/{year}/{name}" with the name as typed; empty without an archive folder.
    std::string destinationPreview() const;

    // Tidies up first if the user asked, then files on a task; on to filing, then finished.
    void file();
    // Back to choose; the archive folder stays. Not while filing: that step ends only with the
    // filing.
    void reset();

    // The sentence of the finished screen, and whether it is a success.
    std::string resultSentence() const;
    bool isSuccess() const { return outcome_ && outcome_->isSuccess(); }

    // Told of every change, on the main thread.
    [[nodiscard]] Subscription observe(std::function<void()> observer);

  private:
    explicit PromoteViewModel(Services services);

    int currentYear() const;
    void changed();
    void showProgress(double fraction, const std::string& text);
    void finish(ProjectFilingOutcome outcome);

    Services services_;
    const Date today_;
    Observers<int> observers_;

    Step step_ = Step::choose;
    std::optional<std::filesystem::path> project_;
    std::optional<ProjectInspection> inspection_;
    std::optional<ProjectSlimmer::Report> rebuildable_;
    std::optional<ProjectFilingOutcome> outcome_;
    std::optional<std::filesystem::path> archiveRoot_;
    int year_ = 0;
    std::string name_;
    bool removeRebuildable_ = false;
    double progress_ = 0;
    std::string progressLabel_;
};

}  // namespace quillstow
