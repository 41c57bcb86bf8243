#pragma once

// The recovery window's state: the files that left a pair's source and wait in its deletion
// archive, grouped by the day they left, newest first; the filter and a range of days; the
// selection; and a recovery of the selected files to their original paths or to a chosen
// folder. The archive itself is only read.
//
// Threading: main thread only. The scan and the recovery run on tasks of their own, as in
// RestoreModel, and the model waits for them when it goes.

#include <QObject>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "archive/DeletedFiles.hpp"
#include "shell/viewmodels/RestoreModel.hpp"

namespace quillstow::shell {

class DeletedFilesModel : public QObject, public SelectableList<DeletedFileItem> {
    Q_OBJECT

  public:
    // The scan starts at once. With a shared archive, the files go only to a chosen folder.
    DeletedFilesModel(BackupPair pair, bool archiveIsShared, QObject* parent = nullptr);
    ~DeletedFilesModel() override;

    const BackupPair& pair() const { return pair_; }
    const std::filesystem::path& archiveRoot() const { return archiveRoot_; }

    // The shown rows by day, newest day first.
    std::vector<DayGroup> groups() const { return groupedByDay(items_, shown_); }
    // The days that hold files, newest first: the choices of the range.
    const std::vector<std::string>& days() const { return days_; }
    // "Deleted at 14:05" beside a file that left more than once on its day, so that the
    // copies can be told apart; empty for the others.
    std::string timeShownBeside(std::size_t index) const;

    void setSearchText(std::string text);
    const DayRange& dayRange() const { return range_; }
    void setDayRange(DayRange range);

    // The selected files back to where they were in the source, unless the archive is shared.
    void restoreToOriginal();
    // Empty, or why the files can't go back to where they were.
    std::string whyNotToOriginal() const;
    void restoreTo(const std::filesystem::path& folder);

  signals:
    // The rows to show changed: the scan ended, the filter or the range changed.
    void rowsChanged();
    // Selection, counters or the recovery changed.
    void changed();

  private:
    void selectionChanged() override { emit changed(); }
    void markTwins();
    void refilter();

    const BackupPair pair_;
    const std::filesystem::path archiveRoot_;
    const bool archiveIsShared_;
    std::vector<std::string> days_;
    // Per item: another copy of the same file left on the same day.
    std::vector<bool> hasTwin_;
    DayRange range_;
    std::jthread scan_;
};

}  // namespace quillstow::shell
