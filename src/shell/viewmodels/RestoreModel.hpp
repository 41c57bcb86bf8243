#pragma once

// The restore window's state: what a pair's backup holds, the filter, the selection, and a
// restore of the selected files to where they came from or to a chosen folder. It makes every
// decision of the window; the window shows it and hands in what the user did.
//
// Threading: main thread only. The scan and the restore each run on a task of their own
// (std::jthread at utility priority); their results and progress are handed to the main thread
// as queued calls. The model waits for its tasks when it goes, so neither outlives it.

#include <QObject>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "archive/FileRestorer.hpp"
#include "archive/RestoreListing.hpp"
#include "model/BackupPair.hpp"
#include "support/Tasks.hpp"

namespace quillstow::shell {

// Runs `work` on a task of its own at utility priority and hands its result to `deliver` on the
// thread of `context`. Nothing is delivered once the task was asked to stop. The context must
// keep the returned thread, so that the task ends before the context goes.
template <class Result>
std::jthread startTask(QObject* context, std::function<Result(std::stop_token)> work,
                       std::function<void(Result)> deliver) {
    return std::jthread(
        [context, work = std::move(work), deliver = std::move(deliver)](std::stop_token stop) {
            lowerToUtilityPriority();
            Result result = work(stop);
            if (stop.stop_requested()) return;
            QMetaObject::invokeMethod(
                context,
                [deliver, result = std::move(result)]() mutable { deliver(std::move(result)); },
                Qt::QueuedConnection);
        });
}

// One restore at a time: the jobs are copied in order on a task, progress in files and bytes
// comes back to the main thread, and a cancel stops it between files. The summary stays until
// the next restore starts.
class RestoreRun : public QObject {
    Q_OBJECT

  public:
    explicit RestoreRun(QObject* parent = nullptr);
    ~RestoreRun() override;

    bool inProgress() const { return inProgress_; }
    const RestoreProgress& progress() const { return progress_; }
    // The summary of the last restore; empty before the first and while one runs.
    const std::string& message() const { return message_; }

    // Starts unless one runs or there is nothing to restore; answers whether it started.
    bool start(std::vector<RestoreJob> jobs, std::filesystem::path destination);
    // The file being copied is left out; those before it stay restored.
    void cancel();

  signals:
    void changed();

  private:
    void finish(RestoreOutcome outcome);

    bool inProgress_ = false;
    RestoreProgress progress_;
    std::string message_;
    LocalFileSystem fileSystem_;
    // The task's latest figures, and whether a call to take them is queued.
    std::mutex latestMutex_;
    RestoreProgress latest_;
    std::atomic<bool> progressQueued_ = false;
    std::jthread task_;
};

// What both windows' models share: the rows after the scan, the ones the filter shows, the
// selection in which "Select All" writes to the shown rows only, and the restore of the selected
// ones. A model adds its scan, its filter and where its files go; selectionChanged() tells it
// that a row's box or "Select All" moved.
template <class Item>
class SelectableList {
  public:
    RestoreWindowState state() const { return restoreWindowState(isLoading_, items_.size()); }
    const std::vector<Item>& items() const { return items_; }
    // The positions in items() that the filter shows, in list order.
    const std::vector<std::size_t>& shown() const { return shown_; }
    const std::string& searchText() const { return searchText_; }

    // Shown by the filter or not.
    std::int64_t selectedCount() const { return quillstow::selectedCount(items_); }
    bool isAllSelected() const { return quillstow::isAllSelected(items_, shown_); }
    void setAllSelected(bool selected) {
        quillstow::setAllSelected(items_, shown_, selected);
        selectionChanged();
    }
    void toggle(std::size_t index) {
        if (index >= items_.size()) return;
        RestoreFileItem& file = fileOf(items_[index]);
        file.isSelected = !file.isSelected;
        selectionChanged();
    }

    bool canRestore() const { return canStartRestore(selectedCount(), run_.inProgress()); }
    RestoreRun& run() { return run_; }
    const RestoreRun& run() const { return run_; }

  protected:
    ~SelectableList() = default;
    virtual void selectionChanged() = 0;

    bool isLoading_ = true;
    std::vector<Item> items_;
    std::vector<std::size_t> shown_;
    std::string searchText_;
    RestoreRun run_;
};

class RestoreModel : public QObject, public SelectableList<RestoreFileItem> {
    Q_OBJECT

  public:
    // The scan starts at once.
    explicit RestoreModel(BackupPair pair, QObject* parent = nullptr);
    ~RestoreModel() override;

    const BackupPair& pair() const { return pair_; }
    const std::filesystem::path& backupRoot() const { return backupRoot_; }

    void setSearchText(std::string text);
    // The selected files, hidden ones too, back into the pair's source.
    void restoreToOriginal();
    std::string whyNotToOriginal() const { return {}; }
    void restoreTo(const std::filesystem::path& folder);

  signals:
    // The rows to show changed: the scan ended or the filter changed.
    void rowsChanged();
    // Selection, counters or the restore changed.
    void changed();

  private:
    void selectionChanged() override { emit changed(); }

    const BackupPair pair_;
    const std::filesystem::path backupRoot_;
    std::jthread scan_;
};

}  // namespace quillstow::shell
