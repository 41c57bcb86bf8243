#include "shell/views/RestoreWindow.hpp"

#include "archive/RestoreTexts.hpp"

namespace quillstow::shell {

namespace texts = restoretext;

namespace {

FileRowsModel::Source rowsOf(RestoreModel& model) {
    return {[&model](std::size_t index) -> const RestoreFileItem& { return model.items()[index]; },
            [&model](std::size_t index) { model.toggle(index); },
            {}};
}

}  // namespace

RestoreWindow::RestoreWindow(const BackupPair& pair, QWidget* parent)
    : RestoreWindow(new RestoreModel(pair), parent) {}

RestoreWindow::RestoreWindow(RestoreModel* model, QWidget* parent)
    : RestoreFrame({uiText(texts::windowTitle(model->pair().name)), uiText(texts::scanning),
                    uiText(texts::emptyTitle), uiText(texts::emptyDetail)},
                   frameModelOf(*model, model->backupRoot()), rowsOf(*model), false, parent),
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
