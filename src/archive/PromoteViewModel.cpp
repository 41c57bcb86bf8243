#include "archive/PromoteViewModel.hpp"

#include <ctime>

#include "archive/FilingTexts.hpp"
#include "support/Paths.hpp"

namespace quillstow {

namespace {

using Path = std::filesystem::path;

}  // namespace

std::shared_ptr<PromoteViewModel> PromoteViewModel::make(Services services) {
    return std::shared_ptr<PromoteViewModel>(new PromoteViewModel(std::move(services)));
}

PromoteViewModel::PromoteViewModel(Services services)
    : services_(std::move(services)), today_(services_.wallClock.now()), year_(currentYear()) {}

int PromoteViewModel::currentYear() const {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(
        std::chrono::time_point_cast<std::chrono::system_clock::duration>(today_));
    std::tm local{};
    ::localtime_r(&seconds, &local);
    return local.tm_year + 1900;
}

Subscription PromoteViewModel::observe(std::function<void()> observer) {
    return observers_.subscribe([observer = std::move(observer)](const int&) { observer(); });
}

void PromoteViewModel::changed() {
    observers_.notify(0);
}

void PromoteViewModel::choose(const Path& project) {
    project_ = project;
    inspection_ = services_.inspector.inspect(project);
    name_ = inspection_->tidiedName;
    year_ = inspection_->suggestedYear.value_or(currentYear());
    const ProjectSlimmer slimmer(BackupProfile::film, services_.trash);
    rebuildable_ = ProjectSlimmer::Report{slimmer.findings(project)};
    removeRebuildable_ = false;
    step_ = Step::review;
    changed();
}

void PromoteViewModel::chooseArchive(const Path& archiveRoot) {
    archiveRoot_ = archiveRoot;
    changed();
}

void PromoteViewModel::setName(std::string name) {
    name_ = std::move(name);
    changed();
}

bool PromoteViewModel::setYear(int year) {
    if (year < earliestTypedYear || year > latestTypedYear) return false;
    year_ = year;
    changed();
    return true;
}

void PromoteViewModel::setRemoveRebuildable(bool remove) {
    removeRebuildable_ = remove;
    changed();
}

bool PromoteViewModel::canFile() const {
    return project_ && archiveRoot_ && !projectnames::trimmedOfSpaces(name_).empty();
}

std::string PromoteViewModel::destinationPreview() const {
    if (!archiveRoot_) return {};
    return paths::appending(paths::appending(*archiveRoot_, std::to_string(year_)), name_).string();
}

void PromoteViewModel::file() {
    if (!project_ || !canFile() || step_ != Step::review) return;
    step_ = Step::filing;
    progress_ = 0;
    progressLabel_.clear();
    changed();
    if (removeRebuildable_ && rebuildable_) {
        progressLabel_ = filingtext::tidyingUp;
        changed();
        // What failed to move simply travels with the copy; the slimmer logs it.
        (void)ProjectSlimmer(BackupProfile::film, services_.trash).remove(rebuildable_->items);
    }
    const std::string name = projectnames::trimmedOfSpaces(name_);
    const ProjectFilingPlan plan{
        *project_, paths::appending(paths::appending(*archiveRoot_, std::to_string(year_)), name),
        year_, name};

    std::weak_ptr<PromoteViewModel> weak = weak_from_this();
    MainQueue& mainQueue = services_.mainQueue;
    services_.tasks.start([weak, &mainQueue, filer = services_.filer, plan](std::stop_token stop) {
        const auto onProgress = [weak, &mainQueue](double fraction, const std::string& text) {
            mainQueue.post([weak, fraction, text] {
                if (auto model = weak.lock()) model->showProgress(fraction, text);
            });
        };
        // The finished screen comes as soon as the outcome is known; removing a copy that
        // didn't succeed goes on behind it.
        const auto onEnded = [weak, &mainQueue](const ProjectFilingOutcome& outcome) {
            mainQueue.post([weak, outcome] {
                if (auto model = weak.lock()) model->finish(outcome);
            });
        };
        filer->file(plan, onProgress, stop, onEnded);
    });
}

void PromoteViewModel::showProgress(double fraction, const std::string& text) {
    progress_ = fraction;
    progressLabel_ = text;
    changed();
}

void PromoteViewModel::finish(ProjectFilingOutcome outcome) {
    outcome_ = std::move(outcome);
    progress_ = 1;
    step_ = Step::finished;
    changed();
}

void PromoteViewModel::reset() {
    // A filing under way ends on the finished screen, never under another project's.
    if (step_ == Step::filing) return;
    step_ = Step::choose;
    project_.reset();
    inspection_.reset();
    rebuildable_.reset();
    outcome_.reset();
    name_.clear();
    removeRebuildable_ = false;
    progress_ = 0;
    progressLabel_.clear();
    year_ = currentYear();
    changed();
}

std::string PromoteViewModel::resultSentence() const {
    return outcome_ ? ProjectFiler::summary(*outcome_) : std::string();
}

}  // namespace quillstow
