#include "shell/views/RestoreFrame.hpp"

#include <QApplication>
#include <QCheckBox>
#include <QFile>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QStyle>
#include <QTreeView>
#include <QVBoxLayout>
#include <array>
#include <utility>

#include "archive/RestoreTexts.hpp"
#include "shell/app/DesktopServices.hpp"
#include "shell/views/Labels.hpp"
#include "support/ByteCount.hpp"

namespace quillstow::shell {

namespace fs = std::filesystem;
namespace texts = restoretext;

namespace {

QString shown(const std::string& path) {
    return QFile::decodeName(path.c_str());
}
fs::path pathOf(const QString& local) {
    return fs::path(QFile::encodeName(local).toStdString());
}

QLabel* plainLabel(const QString& words, const char* name) {
    auto* label = new QLabel(words);
    label->setTextFormat(Qt::PlainText);
    label->setObjectName(name);
    return label;
}

}  // namespace

QString uiText(std::string_view words) {
    return QString::fromUtf8(words.data(), qsizetype(words.size()));
}

QIcon restoreSymbol(std::string_view symbol) {
    struct Counterpart {
        std::string_view symbol;
        const char* themeName;
        QStyle::StandardPixmap standard;
    };
    static constexpr std::array<Counterpart, 10> table{{
        {"photo", "image-x-generic", QStyle::SP_FileIcon},
        {"film", "video-x-generic", QStyle::SP_MediaPlay},
        {"music.note", "audio-x-generic", QStyle::SP_MediaVolume},
        {"doc.richtext", "x-office-document", QStyle::SP_FileIcon},
        {"doc.zipper", "package-x-generic", QStyle::SP_FileIcon},
        {"chevron.left.forwardslash.chevron.right", "text-x-script", QStyle::SP_FileIcon},
        {"doc", "text-x-generic", QStyle::SP_FileIcon},
        {"doc.questionmark", "dialog-question", QStyle::SP_MessageBoxQuestion},
        {"exclamationmark.triangle.fill", "dialog-warning", QStyle::SP_MessageBoxWarning},
        {"checkmark.circle.fill", "emblem-ok", QStyle::SP_DialogApplyButton},
    }};
    const QIcon own = QIcon::fromTheme(uiText(symbol) + "-symbolic");
    if (!own.isNull()) return own;
    for (const auto& entry : table) {
        if (entry.symbol == symbol) {
            return QIcon::fromTheme(entry.themeName,
                                    QApplication::style()->standardIcon(entry.standard));
        }
    }
    return QApplication::style()->standardIcon(QStyle::SP_FileIcon);
}

FileRowsModel::FileRowsModel(Source source, QObject* parent)
    : QAbstractTableModel(parent), source_(std::move(source)) {}

void FileRowsModel::setRows(std::vector<FileRow> rows) {
    beginResetModel();
    rows_ = std::move(rows);
    endResetModel();
}

void FileRowsModel::selectionChanged() {
    if (rows_.empty()) return;
    emit dataChanged(index(0, name), index(rowCount() - 1, name), {Qt::CheckStateRole});
}

int FileRowsModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(rows_.size());
}

int FileRowsModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : 4;
}

QVariant FileRowsModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid()) return {};
    const FileRow& row = rows_[std::size_t(index.row())];
    if (row.heading) {
        if (index.column() != name) return {};
        if (role == Qt::DisplayRole) return uiText(*row.heading);
        if (role == Qt::FontRole) {
            QFont font = QApplication::font();
            font.setBold(true);
            return font;
        }
        return {};
    }
    const RestoreFileItem& file = source_.file(row.index);
    switch (role) {
        case Qt::DisplayRole:
            switch (index.column()) {
                case name:
                    return shown(file.name);
                case path:
                    return shown(file.relativePath);
                case time:
                    return source_.time ? source_.time(row.index) : QString();
                case size:
                    return uiText(formatByteCount(file.fileSize));
            }
            return {};
        case Qt::ToolTipRole:
            return index.column() == path || index.column() == name ? shown(file.relativePath)
                                                                    : QVariant();
        case Qt::DecorationRole:
            return index.column() == name ? restoreSymbol(texts::iconForFile(file.name))
                                          : QVariant();
        case Qt::CheckStateRole:
            if (index.column() != name) return {};
            return file.isSelected ? Qt::Checked : Qt::Unchecked;
        case Qt::TextAlignmentRole:
            if (index.column() == size) return int(Qt::AlignRight | Qt::AlignVCenter);
            return {};
        case Qt::ForegroundRole:
            if (index.column() == name) return {};
            return QApplication::palette().brush(QPalette::PlaceholderText);
    }
    return {};
}

bool FileRowsModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!index.isValid() || role != Qt::CheckStateRole || isHeading(index.row())) return false;
    const std::size_t file = rows_[std::size_t(index.row())].index;
    const bool wanted = value.value<Qt::CheckState>() == Qt::Checked;
    if (source_.file(file).isSelected != wanted) source_.toggle(file);
    emit dataChanged(index, index, {Qt::CheckStateRole});
    return true;
}

Qt::ItemFlags FileRowsModel::flags(const QModelIndex& index) const {
    if (!index.isValid() || isHeading(index.row())) return Qt::ItemIsEnabled;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (index.column() == name) flags |= Qt::ItemIsUserCheckable;
    return flags;
}

RestoreFrame::RestoreFrame(Words words, Model model, FileRowsModel::Source source, bool showsTime,
                           QWidget* parent)
    // A window of its own, also when a parent keeps it.
    : QWidget(parent, Qt::Window), words_(std::move(words)), model_(std::move(model)) {
    setWindowTitle(words_.title);
    resize(width, height);
    setMinimumSize(400, 320);
    auto* layout = new QVBoxLayout(this);
    pages_ = new QStackedWidget;
    pages_->setObjectName("pages");
    pages_->addWidget(statePage(words_.scanning, {}, true));
    pages_->addWidget(statePage(words_.emptyTitle, words_.emptyDetail, false));
    pages_->addWidget(listPage(std::move(source), showsTime));
    layout->addWidget(pages_, 1);
    footer_ = footer();
    layout->addWidget(footer_);
    refresh();
}

QWidget* RestoreFrame::statePage(const QString& words, const QString& detail, bool isBusy) {
    auto* page = new QWidget;
    page->setObjectName(isBusy ? "scanningPage" : "emptyPage");
    auto* layout = new QVBoxLayout(page);
    layout->addStretch();
    if (isBusy) {
        auto* busy = new QProgressBar;
        busy->setRange(0, 0);
        busy->setTextVisible(false);
        busy->setMaximumWidth(160);
        layout->addWidget(busy, 0, Qt::AlignHCenter);
    } else {
        auto* icon = new QLabel;
        icon->setPixmap(restoreSymbol(texts::emptyIcon).pixmap(48, 48));
        layout->addWidget(icon, 0, Qt::AlignHCenter);
    }
    auto* title = plainLabel(words, isBusy ? "scanningText" : "emptyTitle");
    title->setAlignment(Qt::AlignHCenter);
    title->setWordWrap(true);
    layout->addWidget(title);
    if (!detail.isEmpty()) {
        auto* more = dimmed(plainLabel(detail, "emptyDetail"));
        more->setAlignment(Qt::AlignHCenter);
        more->setWordWrap(true);
        layout->addWidget(more);
    }
    layout->addStretch();
    return page;
}

QWidget* RestoreFrame::listPage(FileRowsModel::Source source, bool showsTime) {
    auto* page = new QWidget;
    page->setObjectName("listPage");
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);

    filterBar_ = new QHBoxLayout;
    filter_ = new QLineEdit;
    filter_->setObjectName("filter");
    filter_->setPlaceholderText(uiText(texts::filterPlaceholder));
    filter_->setClearButtonEnabled(true);
    connect(filter_, &QLineEdit::textChanged, this,
            [this](const QString& words) { model_.setSearchText(words.toStdString()); });
    filterBar_->addWidget(filter_, 1);
    layout->addLayout(filterBar_);

    auto* counters = new QHBoxLayout;
    selectAll_ = new QCheckBox(uiText(texts::selectAll));
    selectAll_->setObjectName("selectAll");
    // A click writes the opposite of what it reads, on the shown rows only.
    connect(selectAll_, &QCheckBox::clicked, this,
            [this] { model_.setAllSelected(!model_.isAllSelected()); });
    counters->addWidget(selectAll_);
    counters->addStretch();
    selectedCounter_ = dimmed(plainLabel({}, "selectedCounter"));
    fileCounter_ = dimmed(plainLabel({}, "fileCounter"));
    counters->addWidget(selectedCounter_);
    counters->addSpacing(12);
    counters->addWidget(fileCounter_);
    layout->addLayout(counters);

    rows_ = new FileRowsModel(std::move(source), this);
    list_ = new QTreeView;
    list_->setObjectName("files");
    list_->setModel(rows_);
    list_->setRootIsDecorated(false);
    list_->setUniformRowHeights(true);
    list_->setHeaderHidden(true);
    list_->setSelectionMode(QAbstractItemView::NoSelection);
    list_->setTextElideMode(Qt::ElideMiddle);
    list_->setColumnHidden(FileRowsModel::time, !showsTime);
    auto* header = list_->header();
    header->setStretchLastSection(false);
    header->setSectionResizeMode(FileRowsModel::name, QHeaderView::Stretch);
    header->setSectionResizeMode(FileRowsModel::path, QHeaderView::Stretch);
    header->setSectionResizeMode(FileRowsModel::time, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(FileRowsModel::size, QHeaderView::ResizeToContents);
    // A click anywhere on a file's line ticks it, not only on the box.
    connect(list_, &QTreeView::clicked, this, [this](const QModelIndex& index) {
        if (index.column() == FileRowsModel::name || rows_->isHeading(index.row())) return;
        const QModelIndex box = rows_->index(index.row(), FileRowsModel::name);
        const bool checked = box.data(Qt::CheckStateRole).value<Qt::CheckState>() == Qt::Checked;
        rows_->setData(box, checked ? Qt::Unchecked : Qt::Checked, Qt::CheckStateRole);
    });
    layout->addWidget(list_, 1);
    noMatch_ = dimmed(plainLabel(uiText(texts::noMatch), "noMatch"));
    noMatch_->setAlignment(Qt::AlignCenter);
    layout->addWidget(noMatch_, 1);
    return page;
}

QWidget* RestoreFrame::footer() {
    auto* footer = new QWidget;
    auto* layout = new QVBoxLayout(footer);
    layout->setContentsMargins(0, 0, 0, 0);

    progressRow_ = new QWidget;
    progressRow_->setObjectName("progressRow");
    auto* progress = new QHBoxLayout(progressRow_);
    progress->setContentsMargins(0, 0, 0, 0);
    auto* figures = new QVBoxLayout;
    progressBar_ = new QProgressBar;
    progressBar_->setObjectName("progressBar");
    progressBar_->setTextVisible(false);
    progressText_ = dimmed(plainLabel({}, "progress"));
    figures->addWidget(progressBar_);
    figures->addWidget(progressText_);
    progress->addLayout(figures, 1);
    auto* cancel = new QPushButton(uiText(texts::cancel));
    cancel->setObjectName("cancel");
    connect(cancel, &QPushButton::clicked, this, [this] { model_.cancel(); });
    progress->addWidget(cancel);
    layout->addWidget(progressRow_);

    messageRow_ = new QWidget;
    auto* message = new QHBoxLayout(messageRow_);
    message->setContentsMargins(0, 0, 0, 0);
    messageIcon_ = new QLabel;
    messageIcon_->setObjectName("messageIcon");
    messageIcon_->setFixedSize(16, 16);
    message_ = plainLabel({}, "message");
    message_->setWordWrap(true);
    message->addWidget(messageIcon_, 0, Qt::AlignTop);
    message->addWidget(message_, 1);
    layout->addWidget(messageRow_);

    auto* buttons = new QHBoxLayout;
    auto* reveal = new QPushButton(uiText(texts::showInFileManager));
    reveal->setObjectName("showInFileManager");
    connect(reveal, &QPushButton::clicked, this,
            [this] { showFolderInFileManager(model_.folderToShow()); });
    buttons->addWidget(reveal);
    buttons->addStretch();
    restoreTo_ = new QPushButton(uiText(texts::restoreTo));
    restoreTo_->setObjectName("restoreTo");
    connect(restoreTo_, &QPushButton::clicked, this, &RestoreFrame::chooseFolder);
    buttons->addWidget(restoreTo_);
    restoreToOriginal_ = new QPushButton(uiText(texts::restoreToOriginal));
    restoreToOriginal_->setObjectName("restoreToOriginal");
    restoreToOriginal_->setDefault(true);
    connect(restoreToOriginal_, &QPushButton::clicked, this,
            [this] { model_.restoreToOriginal(); });
    buttons->addWidget(restoreToOriginal_);
    // Stands in the button's place while a restore runs.
    originalBusy_ = new QProgressBar;
    originalBusy_->setObjectName("restoreBusy");
    originalBusy_->setRange(0, 0);
    originalBusy_->setTextVisible(false);
    originalBusy_->setFixedSize(restoreToOriginal_->sizeHint());
    buttons->addWidget(originalBusy_);
    layout->addLayout(buttons);
    return footer;
}

void RestoreFrame::chooseFolder() {
    auto* panel = new QFileDialog(this, uiText(texts::chooserMessage));
    panel->setObjectName("folderPanel");
    panel->setAttribute(Qt::WA_DeleteOnClose);
    panel->setFileMode(QFileDialog::Directory);
    panel->setOption(QFileDialog::ShowDirsOnly);
    panel->setLabelText(QFileDialog::Accept, uiText(texts::chooserPrompt));
    connect(panel, &QFileDialog::fileSelected, this, [this](const QString& folder) {
        if (!folder.isEmpty()) model_.restoreTo(pathOf(folder));
    });
    panel->open();
}

void RestoreFrame::showRows(std::vector<FileRow> rows) {
    rows_->setRows(std::move(rows));
    for (int row = 0; row < rows_->rowCount(); ++row) {
        if (rows_->isHeading(row)) list_->setFirstColumnSpanned(row, {}, true);
    }
    refresh();
}

void RestoreFrame::refresh() {
    const RestoreWindowState state = model_.state();
    pages_->setCurrentIndex(int(state));
    // The buttons belong to the list; scanning and the empty state show their words alone.
    footer_->setVisible(state == RestoreWindowState::list);
    const std::int64_t selected = model_.selectedCount();
    selectAll_->setChecked(model_.isAllSelected());
    selectAll_->setEnabled(model_.shownCount() > 0);
    selectedCounter_->setText(uiText(texts::selectedCounter(selected)));
    fileCounter_->setText(uiText(texts::fileCounter(model_.shownCount())));
    list_->setVisible(model_.shownCount() > 0);
    noMatch_->setVisible(model_.shownCount() == 0);
    rows_->selectionChanged();

    const bool canRestore = model_.canRestore();
    restoreTo_->setEnabled(canRestore);
    const std::string whyNot = model_.whyNotToOriginal();
    restoreToOriginal_->setEnabled(canRestore && whyNot.empty());
    restoreTo_->setToolTip(uiText(texts::restoreToHelp(selected)));
    restoreToOriginal_->setToolTip(
        uiText(whyNot.empty() ? texts::restoreToOriginalHelp(selected) : whyNot));

    const bool running = model_.inProgress();
    restoreToOriginal_->setVisible(!running);
    originalBusy_->setVisible(running);
    progressRow_->setVisible(running);
    if (running) {
        const RestoreProgress progress = model_.progress();
        // The bar counts bytes where there are any, else files.
        const bool byBytes = progress.bytesTotal > 0;
        const double done = byBytes ? double(progress.bytesDone) / double(progress.bytesTotal)
                                    : double(progress.filesDone) /
                                          double(std::max<std::int64_t>(progress.filesTotal, 1));
        progressBar_->setRange(0, 1000);
        progressBar_->setValue(int(done * 1000));
        progressText_->setText(uiText(texts::progress(progress.filesDone, progress.filesTotal,
                                                      progress.bytesDone, progress.bytesTotal)));
    }
    const std::string message = model_.message();
    messageRow_->setVisible(!running && !message.empty());
    if (!message.empty()) {
        message_->setText(uiText(message));
        const auto icon = texts::isError(message) ? texts::errorIcon : texts::successIcon;
        messageIcon_->setPixmap(restoreSymbol(icon).pixmap(16, 16));
    }
}

}  // namespace quillstow::shell
