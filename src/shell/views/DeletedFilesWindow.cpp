#include "shell/views/DeletedFilesWindow.hpp"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>

#include "archive/RestoreTexts.hpp"

namespace quillstow::shell {

namespace texts = restoretext;

namespace {

FileRowsModel::Source rowsOf(DeletedFilesModel& model) {
    return {
        [&model](std::size_t index) -> const RestoreFileItem& { return model.items()[index].file; },
        [&model](std::size_t index) { model.toggle(index); },
        [&model](std::size_t index) { return uiText(model.timeShownBeside(index)); }};
}

}  // namespace

DeletedFilesWindow::DeletedFilesWindow(const BackupPair& pair,
                                       const std::vector<BackupPair>& allPairs, QWidget* parent)
    : DeletedFilesWindow(new DeletedFilesModel(pair, sharesArchive(pair, allPairs)), parent) {}

DeletedFilesWindow::DeletedFilesWindow(DeletedFilesModel* model, QWidget* parent)
    : RestoreFrame(
          {uiText(texts::recoveryWindowTitle(model->pair().name)), uiText(texts::recoveryScanning),
           uiText(texts::recoveryEmptyTitle), uiText(texts::recoveryEmptyDetail)},
          frameModelOf(*model, model->archiveRoot()), rowsOf(*model), true, parent),
      model_(model) {
    model_->setParent(this);
    addRangeChoice();
    connect(model_, &DeletedFilesModel::rowsChanged, this, [this] {
        if (firstDay_->count() == 1 && !model_->days().empty()) showDays();
        showGroups();
    });
    connect(model_, &DeletedFilesModel::changed, this, &DeletedFilesWindow::refresh);
}

// "From [the first day] to [today]": the days that hold files, oldest at the top.
void DeletedFilesWindow::addRangeChoice() {
    firstDay_ = new QComboBox;
    firstDay_->setObjectName("firstDay");
    firstDay_->addItem(uiText(texts::earliestDay), QString());
    lastDay_ = new QComboBox;
    lastDay_->setObjectName("lastDay");
    lastDay_->addItem(uiText(texts::latestDay), QString());
    auto* bar = filterBar();
    bar->addWidget(new QLabel(uiText(texts::rangeFrom)));
    bar->addWidget(firstDay_);
    bar->addWidget(new QLabel(uiText(texts::rangeTo)));
    bar->addWidget(lastDay_);
    const auto choose = [this] {
        model_->setDayRange({firstDay_->currentData().toString().toStdString(),
                             lastDay_->currentData().toString().toStdString()});
    };
    connect(firstDay_, &QComboBox::currentIndexChanged, this, choose);
    connect(lastDay_, &QComboBox::currentIndexChanged, this, choose);
}

void DeletedFilesWindow::showDays() {
    const auto& days = model_->days();
    for (auto day = days.rbegin(); day != days.rend(); ++day) {
        firstDay_->addItem(uiText(*day), uiText(*day));
        lastDay_->addItem(uiText(*day), uiText(*day));
    }
}

void DeletedFilesWindow::showGroups() {
    std::vector<FileRow> rows;
    for (const auto& group : model_->groups()) {
        rows.push_back({0, texts::dayHeading(group.day)});
        for (const std::size_t index : group.indices)
            rows.push_back({index, {}});
    }
    showRows(std::move(rows));
}

}  // namespace quillstow::shell
