#pragma once

// "Recover Deleted Files…": the files that left a pair's source and wait in its deletion
// archive, grouped under the day they left, newest first, with the filter, a range of days,
// "Select All" and the counters; a file archived more than once on a day shows its time. The
// selected files go back to their original paths or into a chosen folder, as in the restore
// window. Every decision is the model's; the archive is only read.
//
// Threading: main thread only.

#include "model/BackupPair.hpp"
#include "shell/viewmodels/DeletedFilesModel.hpp"
#include "shell/views/RestoreFrame.hpp"

class QComboBox;

namespace quillstow::shell {

class DeletedFilesWindow final : public RestoreFrame {
  public:
    // The archive is read from here on.
    // When another of `allPairs` shares the archive, the files go only to a chosen folder.
    DeletedFilesWindow(const BackupPair& pair, const std::vector<BackupPair>& allPairs,
                       QWidget* parent = nullptr);

    DeletedFilesModel& model() { return *model_; }

  private:
    // The window owns the model, which its frame reads from the start.
    DeletedFilesWindow(DeletedFilesModel* model, QWidget* parent);
    void addRangeChoice();
    void showDays();
    void showGroups();

    DeletedFilesModel* model_;
    QComboBox* firstDay_ = nullptr;
    QComboBox* lastDay_ = nullptr;
};

}  // namespace quillstow::shell
