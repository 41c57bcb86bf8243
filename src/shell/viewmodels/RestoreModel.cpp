#include "shell/viewmodels/RestoreModel.hpp"

#include <utility>

namespace quillstow::shell {

namespace fs = std::filesystem;

RestoreRun::RestoreRun(QObject* parent) : QObject(parent) {}

RestoreRun::~RestoreRun() {
    // The task calls back into this object until it has ended.
    task_.request_stop();
    if (task_.joinable()) task_.join();
}

bool RestoreRun::start(std::vector<RestoreJob> jobs, fs::path destination) {
    if (inProgress_ || jobs.empty()) return false;
    if (task_.joinable()) task_.join();  // the last one has delivered; its thread may linger
    inProgress_ = true;
    message_.clear();
    progress_ = {0, std::int64_t(jobs.size()), 0, 0};
    for (const auto& job : jobs)
        progress_.bytesTotal += job.size;
    emit changed();
    task_ = std::jthread([this, jobs = std::move(jobs),
                          destination = std::move(destination)](std::stop_token stop) {
        lowerToUtilityPriority();
        // Chunks of a large file report often: the latest figures wait for the one call that
        // is already queued rather than flooding the main thread.
        const auto report = [this](const RestoreProgress& progress) {
            {
                const std::lock_guard lock(latestMutex_);
                latest_ = progress;
            }
            if (progressQueued_.exchange(true)) return;
            QMetaObject::invokeMethod(
                this,
                [this] {
                    progressQueued_ = false;
                    if (!inProgress_) return;
                    const std::lock_guard lock(latestMutex_);
                    progress_ = latest_;
                    emit changed();
                },
                Qt::QueuedConnection);
        };
        const RestoreOutcome outcome = restoreFiles(fileSystem_, jobs, destination, report, stop);
        QMetaObject::invokeMethod(
            this, [this, outcome] { finish(outcome); }, Qt::QueuedConnection);
    });
    return true;
}

void RestoreRun::cancel() {
    if (inProgress_) task_.request_stop();
}

void RestoreRun::finish(RestoreOutcome outcome) {
    inProgress_ = false;
    message_ = outcome.message();
    emit changed();
}

RestoreModel::RestoreModel(BackupPair pair, QObject* parent)
    : QObject(parent), pair_(std::move(pair)), backupRoot_(backupRootOf(pair_)) {
    connect(&run_, &RestoreRun::changed, this, &RestoreModel::changed);
    scan_ = startTask<std::vector<RestoreFileItem>>(
        this, [root = backupRoot_](std::stop_token stop) { return scanBackup(root, stop); },
        [this](std::vector<RestoreFileItem> files) {
            items_ = std::move(files);
            isLoading_ = false;
            shown_ = filteredIndices(items_, searchText_);
            emit rowsChanged();
            emit changed();
        });
}

RestoreModel::~RestoreModel() = default;

void RestoreModel::setSearchText(std::string text) {
    if (text == searchText_) return;
    searchText_ = std::move(text);
    shown_ = filteredIndices(items_, searchText_);
    emit rowsChanged();
    emit changed();
}

void RestoreModel::restoreToOriginal() {
    restoreTo(pair_.sourceURL);
}

void RestoreModel::restoreTo(const fs::path& folder) {
    if (!canRestore()) return;
    // A snapshot of the selection: later clicks in the list don't reach the running restore.
    run_.start(restoreJobs(items_, backupRoot_), folder);
}

}  // namespace quillstow::shell
