#include "shell/views/FlowWidgets.hpp"

#include <QAbstractItemView>
#include <QApplication>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFile>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QMimeData>
#include <QUrl>
#include <QVBoxLayout>

#include "shell/views/Icons.hpp"

namespace quillstow::shell::flow {

namespace fs = std::filesystem;

QString text(const std::string& words) {
    return QString::fromStdString(words);
}

QString text(const char* words) {
    return QString::fromUtf8(words);
}

QString shown(const fs::path& path) {
    return QFile::decodeName(path.native().c_str());
}

fs::path pathOf(const QString& local) {
    return fs::path(QFile::encodeName(local).toStdString());
}

QString plainToolTip(const QString& words) {
    return "<p style=\"white-space:pre-wrap\">" + words.toHtmlEscaped() + "</p>";
}

QIcon symbol(const char* name, const char* themeName, QStyle::StandardPixmap standard) {
    ensureIconResources();
    const QString own = QString::fromUtf8(name) + "-symbolic";
    if (QFile::exists(":/icons/" + own + ".svg")) return QIcon(":/icons/" + own + ".svg");
    if (QIcon::hasThemeIcon(own)) return QIcon::fromTheme(own);
    return QIcon::fromTheme(themeName, QApplication::style()->standardIcon(standard));
}

QIcon symbol(const std::string& name) {
    struct Fallback {
        const char* symbol;
        const char* theme;
        QStyle::StandardPixmap standard;
    };
    static constexpr Fallback fallbacks[] = {
        {"shield.checkered", "security-high", QStyle::SP_DialogSaveButton},
        {"checkmark.shield", "emblem-ok", QStyle::SP_DialogApplyButton},
        {"waveform.badge.magnifyingglass", "edit-find", QStyle::SP_FileDialogContentsView},
        {"bolt.slash", "network-offline", QStyle::SP_DriveNetIcon},
        {"tortoise", "media-playback-pause", QStyle::SP_MediaPause},
        {"battery.25percent", "battery-caution", QStyle::SP_ComputerIcon},
        {"doc.on.doc", "edit-copy", QStyle::SP_FileIcon},
        {"trash.slash", "user-trash", QStyle::SP_TrashIcon},
        {"folder.badge.questionmark", "folder", QStyle::SP_DirIcon},
        {"folder", "folder", QStyle::SP_DirIcon},
        {"film", "video-x-generic", QStyle::SP_MediaPlay},
        {"photo.stack", "image-x-generic", QStyle::SP_FileIcon},
        {"music.note", "audio-x-generic", QStyle::SP_MediaVolume},
        {"chevron.left.forwardslash.chevron.right", "text-x-script", QStyle::SP_FileIcon},
        {"doc.text", "x-office-document", QStyle::SP_FileIcon},
    };
    for (const Fallback& fallback : fallbacks)
        if (name == fallback.symbol)
            return symbol(fallback.symbol, fallback.theme, fallback.standard);
    return symbol(name.c_str(), "dialog-information", QStyle::SP_MessageBoxInformation);
}

QLabel* iconLabel(const QIcon& icon, int size) {
    auto* label = new QLabel;
    label->setPixmap(icon.pixmap(size, size));
    label->setFixedSize(size, size);
    return label;
}

QLabel* wrapped(const QString& words, const char* name) {
    auto* label = new QLabel(words);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    if (name) label->setObjectName(name);
    return label;
}

QLabel* secondary(QLabel* label) {
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.85);
    label->setFont(font);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

QLabel* bold(QLabel* label, double scale) {
    QFont font = label->font();
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * scale);
    label->setFont(font);
    return label;
}

QWidget* iconLine(const QIcon& icon, QLabel* words) {
    auto* line = new QWidget;
    auto* layout = new QHBoxLayout(line);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(iconLabel(icon, 16), 0, Qt::AlignTop);
    layout->addWidget(words, 1);
    return line;
}

QVBoxLayout* pageLayout(QWidget* page) {
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(12, 10, 12, 12);
    layout->setSpacing(8);
    return layout;
}

QLabel* question(const char* words) {
    return bold(wrapped(text(words), "question"));
}

const char* const sheetStyle = R"(
QFrame#row { border-radius: 6px; }
QFrame#row:hover, QFrame#row:focus { background: palette(midlight); }
QFrame#row[selected="true"] { background: palette(alternate-base); }
QFrame#dropZone { border: 2px dashed palette(mid); border-radius: 10px; }
QFrame#dropZone:focus { border-color: palette(highlight); }
QFrame#dropZone[targeted="true"] { border-color: palette(highlight); background: palette(alternate-base); }
QFrame#summary { border-radius: 6px; background: palette(alternate-base); }
)";

ElidedLabel::ElidedLabel(QString full, Qt::TextElideMode mode)
    : full_(std::move(full)), mode_(mode) {
    setTextFormat(Qt::PlainText);
    setToolTip(plainToolTip(full_));
    setProperty("elides", true);
    setMinimumWidth(1);
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    setText(full_);
}

void ElidedLabel::resizeEvent(QResizeEvent* event) {
    QLabel::resizeEvent(event);
    setText(fontMetrics().elidedText(full_, mode_, width()));
}

ActivatableFrame::ActivatableFrame(std::function<void()> onActivate)
    : onActivate_(std::move(onActivate)) {
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::PointingHandCursor);
    setAttribute(Qt::WA_Hover);
}

void ActivatableFrame::mouseReleaseEvent(QMouseEvent* event) {
    QFrame::mouseReleaseEvent(event);
    if (rect().contains(event->position().toPoint())) onActivate_();
}

void ActivatableFrame::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Space || event->key() == Qt::Key_Return ||
        event->key() == Qt::Key_Enter) {
        onActivate_();
        return;
    }
    QFrame::keyPressEvent(event);
}

ClickableRow::ClickableRow(const QIcon& icon, const QString& title, const QString& detail,
                           std::function<void()> onSelect, const QIcon& mark, const QString& aside)
    : ActivatableFrame(std::move(onSelect)) {
    setObjectName("row");
    setAccessibleName(title);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(6, 4, 6, 4);
    layout->addWidget(iconLabel(icon, 20));
    auto* words = new QVBoxLayout;
    words->setSpacing(0);
    words->addWidget(new ElidedLabel(title, Qt::ElideRight));
    if (!detail.isEmpty()) words->addWidget(secondary(new ElidedLabel(detail)));
    layout->addLayout(words, 1);
    if (!aside.isEmpty()) {
        auto* label = secondary(new QLabel(aside));
        label->setObjectName("aside");
        layout->addWidget(label);
    }
    if (!mark.isNull()) layout->addWidget(iconLabel(mark, 16));
}

DropZone::DropZone(const Words& words, std::function<void(std::vector<fs::path>)> onDrop,
                   std::function<void()> onActivate)
    : ActivatableFrame(std::move(onActivate)), onDrop_(std::move(onDrop)) {
    setObjectName("dropZone");
    setAcceptDrops(true);
    setAccessibleName(words.accessibleName);
    setAccessibleDescription(words.accessibleHint);
    setMinimumHeight(104);
    auto* layout = new QVBoxLayout(this);
    auto* icon = iconLabel(symbol("folder.badge.plus", "folder-new", QStyle::SP_DirIcon), 32);
    layout->addWidget(icon, 0, Qt::AlignHCenter);
    auto* label = wrapped(text(words.label));
    label->setAlignment(Qt::AlignCenter);
    layout->addWidget(label);
    setTargeted(false);
}

void DropZone::dragEnterEvent(QDragEnterEvent* event) {
    if (!localFiles(event->mimeData()).empty()) {
        event->acceptProposedAction();
        setTargeted(true);
    }
}

void DropZone::dragLeaveEvent(QDragLeaveEvent*) {
    setTargeted(false);
}

void DropZone::dropEvent(QDropEvent* event) {
    setTargeted(false);
    auto files = localFiles(event->mimeData());
    if (files.empty()) return;
    event->acceptProposedAction();
    onDrop_(std::move(files));
}

std::vector<fs::path> DropZone::localFiles(const QMimeData* data) {
    std::vector<fs::path> files;
    if (!data || !data->hasUrls()) return files;
    for (const QUrl& url : data->urls()) {
        if (url.isLocalFile()) files.push_back(pathOf(url.toLocalFile()));
    }
    return files;
}

void DropZone::setTargeted(bool targeted) {
    setProperty("targeted", targeted);
    style()->unpolish(this);
    style()->polish(this);
}

void openFolderPanel(QWidget* parent, const char* prompt, const char* message,
                     const std::optional<fs::path>& startAt, bool several,
                     std::function<void(const std::vector<fs::path>&)> onPicked) {
    parent->activateWindow();
    // Qt uses the desktop's own dialog (the portal's, or the desktop toolkit's) where its
    // platform theme has one, and its own otherwise.
    auto* panel = new QFileDialog(parent, text(message), startAt ? shown(*startAt) : QString());
    panel->setObjectName("folderPanel");
    panel->setAttribute(Qt::WA_DeleteOnClose);
    panel->setFileMode(QFileDialog::Directory);
    panel->setOption(QFileDialog::ShowDirsOnly);
    panel->setLabelText(QFileDialog::Accept, text(prompt));
    if (several) {
        // Qt's own dialog picks one folder unless its views are told otherwise.
        for (auto* view : panel->findChildren<QAbstractItemView*>()) {
            view->setSelectionMode(QAbstractItemView::ExtendedSelection);
        }
    }
    QObject::connect(panel, &QFileDialog::filesSelected, parent,
                     [onPicked = std::move(onPicked)](const QStringList& files) {
                         std::vector<fs::path> folders;
                         for (const auto& file : files)
                             folders.push_back(pathOf(file));
                         onPicked(folders);
                     });
    panel->open();
}

}  // namespace quillstow::shell::flow
