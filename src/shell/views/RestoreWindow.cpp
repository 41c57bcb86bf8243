#include "shell/views/RestoreWindow.hpp"

#include "archive/RestoreTexts.hpp"

namespace quillstow::shell {

namespace texts = restoretext;

namespace {

QString text(std::string_view words) {
    return QString::fromUtf8(words.data(), qsizetype(words.size()));
}

FileRowsModel::Source rowsOf(RestoreModel& model) {
    return {[&model](std::size_t index) -> const RestoreFileItem& { return model.files()[index]; },
            [&model](std::size_t index) { model.toggle(index); },
            {}};
}

}  // namespace

RestoreFrame::Model RestoreWindow::frameModel(RestoreModel& model) {
    return {
        .state = [&model] { return model.state(); },
        .selectedCount = [&model] { return model.selectedCount(); },
        .shownCount = [&model] { return std::int64_t(model.shown().size()); },
        .isAllSelected = [&model] { return model.isAllSelected(); },
        .setAllSelected = [&model](bool selected) { model.setAllSelected(selected); },
        .setSearchText = [&model](std::string words) { model.setSearchText(std::move(words)); },
        .canRestore = [&model] { return model.canRestore(); },
        .restoreToOriginal = [&model] { model.restoreToOriginal(); },
        .restoreTo = [&model](const std::filesystem::path& folder) { model.restoreTo(folder); },
        .folderToShow = [&model] { return model.backupRoot(); },
        .inProgress = [&model] { return model.run().inProgress(); },
        .progress = [&model] { return model.run().progress(); },
        .message = [&model] { return model.run().message(); },
        .cancel = [&model] { model.run().cancel(); },
    };
}

RestoreWindow::RestoreWindow(const BackupPair& pair, QWidget* parent)
    : RestoreWindow(new RestoreModel(pair), parent) {}

RestoreWindow::RestoreWindow(RestoreModel* model, QWidget* parent)
    : RestoreFrame({text(texts::windowTitle(model->pair().name)), text(texts::scanning),
                    text(texts::emptyTitle), text(texts::emptyDetail)},
                   frameModel(*model), rowsOf(*model), false, parent),
      model_(model) {
    model_->setParent(this);
    connect(model_, &RestoreModel::rowsChanged, this, [this] {
        std::vector<FileRow> rows;
        rows.reserve(model_->shown().size());
        for (const std::size_t index : model_->shown())
            rows.push_back({index, {}});
        showRows(std::move(rows));
    });
    connect(model_, &RestoreModel::changed, this, &RestoreWindow::refresh);
}

}  // namespace quillstow::shell
