#pragma once

// What the restore and the recovery windows share: the three states (scanning, empty, the
// list), the filter, "Select All" and the counters, the rows with their check boxes and icons,
// progress with a cancel, the summary, and the two restore buttons with their help texts. A
// window names its words and adds what only it has (the range of days, the day headings).
//
// Threading: main thread only.

#include <QAbstractTableModel>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "archive/FileRestorer.hpp"
#include "archive/RestoreListing.hpp"

class QCheckBox;
class QHBoxLayout;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QTreeView;

namespace quillstow::shell {

// One line of the list: a file of the model's list, or a heading above a group.
struct FileRow {
    std::size_t index = 0;
    std::optional<std::string> heading;
};

// The rows as a table: check box, icon and name; the relative path; optionally a time; the
// size. A heading spans the row.
class FileRowsModel final : public QAbstractTableModel {
  public:
    struct Source {
        std::function<const RestoreFileItem&(std::size_t index)> file;
        std::function<void(std::size_t index)> toggle;
        // The time beside a file, if the list shows one.
        std::function<QString(std::size_t index)> time;
    };
    enum Column { name, path, time, size };

    explicit FileRowsModel(Source source, QObject* parent = nullptr);

    void setRows(std::vector<FileRow> rows);
    // Check boxes changed outside the view.
    void selectionChanged();
    bool isHeading(int row) const { return rows_[std::size_t(row)].heading.has_value(); }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

  private:
    Source source_;
    std::vector<FileRow> rows_;
};

// A text of restoretext as Qt shows it.
QString uiText(std::string_view words);

// The icon of a symbol name of the restore texts: our own symbolic icon, else the desktop
// theme's counterpart, else Qt's own.
QIcon restoreSymbol(std::string_view symbol);

class RestoreFrame : public QWidget {
  public:
    struct Words {
        QString title;
        QString scanning;
        QString emptyTitle;
        QString emptyDetail;
    };
    // What the frame asks of its model.
    struct Model {
        std::function<RestoreWindowState()> state;
        std::function<std::int64_t()> selectedCount;
        std::function<std::int64_t()> shownCount;
        std::function<bool()> isAllSelected;
        std::function<void(bool)> setAllSelected;
        std::function<void(std::string)> setSearchText;
        std::function<bool()> canRestore;
        std::function<void()> restoreToOriginal;
        // Why the files can't go back to where they were; empty when they can.
        std::function<std::string()> whyNotToOriginal;
        std::function<void(const std::filesystem::path&)> restoreTo;
        std::function<std::filesystem::path()> folderToShow;
        // The restore under way.
        std::function<bool()> inProgress;
        std::function<RestoreProgress()> progress;
        std::function<std::string()> message;
        std::function<void()> cancel;
    };

    // The content size of the restore window.
    static constexpr int width = 480;
    static constexpr int height = 520;

  protected:
    RestoreFrame(Words words, Model model, FileRowsModel::Source source, bool showsTime,
                 QWidget* parent);

    // The bar above "Select All", where a window adds what it filters by.
    QHBoxLayout* filterBar() const { return filterBar_; }
    // The model's rows changed: the list shows `rows`.
    void showRows(std::vector<FileRow> rows);
    // Anything else changed: state, counters, buttons, progress, summary.
    void refresh();

  private:
    QWidget* statePage(const QString& words, const QString& detail, bool isBusy);
    QWidget* listPage(FileRowsModel::Source source, bool showsTime);
    QWidget* footer();
    void chooseFolder();

    const Words words_;
    const Model model_;
    FileRowsModel* rows_ = nullptr;
    QStackedWidget* pages_ = nullptr;
    QHBoxLayout* filterBar_ = nullptr;
    QLineEdit* filter_ = nullptr;
    QCheckBox* selectAll_ = nullptr;
    QLabel* selectedCounter_ = nullptr;
    QLabel* fileCounter_ = nullptr;
    QTreeView* list_ = nullptr;
    QLabel* noMatch_ = nullptr;
    QWidget* footer_ = nullptr;
    QWidget* progressRow_ = nullptr;
    QProgressBar* progressBar_ = nullptr;
    QLabel* progressText_ = nullptr;
    QWidget* messageRow_ = nullptr;
    QLabel* messageIcon_ = nullptr;
    QLabel* message_ = nullptr;
    QPushButton* restoreTo_ = nullptr;
    QPushButton* restoreToOriginal_ = nullptr;
    QProgressBar* originalBusy_ = nullptr;
};

// What the frame asks of a list model (RestoreModel, DeletedFilesModel), which outlives it.
template <class ListModel>
RestoreFrame::Model frameModelOf(ListModel& model, std::filesystem::path folderToShow) {
    return {
        .state = [&model] { return model.state(); },
        .selectedCount = [&model] { return model.selectedCount(); },
        .shownCount = [&model] { return std::int64_t(model.shown().size()); },
        .isAllSelected = [&model] { return model.isAllSelected(); },
        .setAllSelected = [&model](bool selected) { model.setAllSelected(selected); },
        .setSearchText = [&model](std::string words) { model.setSearchText(std::move(words)); },
        .canRestore = [&model] { return model.canRestore(); },
        .restoreToOriginal = [&model] { model.restoreToOriginal(); },
        .whyNotToOriginal = [&model] { return model.whyNotToOriginal(); },
        .restoreTo = [&model](const std::filesystem::path& folder) { model.restoreTo(folder); },
        .folderToShow = [folderToShow] { return folderToShow; },
        .inProgress = [&model] { return model.run().inProgress(); },
        .progress = [&model] { return model.run().progress(); },
        .message = [&model] { return model.run().message(); },
        .cancel = [&model] { model.run().cancel(); },
    };
}

}  // namespace quillstow::shell
