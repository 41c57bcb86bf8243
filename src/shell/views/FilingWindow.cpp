#include "shell/views/FilingWindow.hpp"

#include <QApplication>
#include <QCheckBox>
#include <QFile>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QProgressBar>
#include <QPushButton>
#include <QResizeEvent>
#include <QScrollArea>
#include <QSpinBox>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "app/DesktopServices.hpp"
#include "viewmodels/Texts.hpp"
#include "views/Icons.hpp"
#include "views/Labels.hpp"

namespace quillstow::shell {

namespace fs = std::filesystem;
using Step = PromoteViewModel::Step;

namespace {

QString text(const std::string& words) {
    return QString::fromStdString(words);
}
QString shownPath(const fs::path& path) {
    return QFile::decodeName(path.native().c_str());
}

// A wrapped line that acts as the label of the control beside it: a click on it is a click there.
class ClickableLabel final : public QLabel {
  public:
    explicit ClickableLabel(std::function<void()> clicked) : clicked_(std::move(clicked)) {
        setTextFormat(Qt::PlainText);
        setWordWrap(true);
    }

  protected:
    void mouseReleaseEvent(QMouseEvent* event) override {
        QLabel::mouseReleaseEvent(event);
        if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint()))
            clicked_();
    }

  private:
    std::function<void()> clicked_;
};

QLabel* titled(QLabel* label) {
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 1.35);
    font.setBold(true);
    label->setFont(font);
    return label;
}

QLabel* sectionHeading(const char* words) {
    auto* label = new QLabel(QString::fromUtf8(words));
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
    return label;
}

// The secondary colour: the text colour half way to the background. The tertiary colour is the
// small print's (dimmed).
template <typename Label>
Label* secondary(Label* label) {
    QPalette palette = label->palette();
    const QColor ink = palette.color(QPalette::WindowText);
    const QColor paper = palette.color(QPalette::Window);
    palette.setColor(QPalette::WindowText,
                     QColor((ink.red() + paper.red()) / 2, (ink.green() + paper.green()) / 2,
                            (ink.blue() + paper.blue()) / 2));
    label->setPalette(palette);
    return label;
}

QPushButton* button(const char* words, const char* name) {
    auto* made = new QPushButton(QString::fromUtf8(words));
    made->setObjectName(name);
    return made;
}

QHBoxLayout* buttonRow(std::initializer_list<QPushButton*> buttons) {
    auto* row = new QHBoxLayout;
    row->addStretch();
    for (auto* each : buttons)
        row->addWidget(each);
    return row;
}

// Where removable drives appear, for the archive dialog to start at: the user's own folder of
// them under /run/media or /media, whichever stands.
std::optional<fs::path> drivesFolder() {
    const QString user = qEnvironmentVariable("USER");
    for (const QString& root : {QStringLiteral("/run/media/"), QStringLiteral("/media/")}) {
        if (!user.isEmpty() && QFile::exists(root + user))
            return fs::path((root + user).toStdString());
    }
    return std::nullopt;
}

}  // namespace

FilingWindow::FilingWindow(std::shared_ptr<PromoteViewModel> model, Reveal reveal, QWidget* parent)
    : QWidget(parent), model_(std::move(model)), reveal_(std::move(reveal)) {
    setObjectName("filing");
    setWindowTitle(QString::fromUtf8(texts::filingWindowTitle));
    resize(width, height);
    setMinimumSize(minimumWidth, minimumHeight);
    if (!reveal_) reveal_ = [](const fs::path& item) { showItemInFileManager(item); };

    pages_ = new QStackedWidget;
    pages_->setObjectName("pages");
    pages_->addWidget(choosePage());
    pages_->addWidget(reviewPage());
    pages_->addWidget(filingPage());
    pages_->addWidget(finishedPage());
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(pages_);

    subscription_ = model_->observe([this] { refresh(); });
    refresh();
}

QWidget* FilingWindow::choosePage() {
    auto* page = new QWidget;
    page->setObjectName("choose");
    auto* column = new QVBoxLayout(page);
    column->setContentsMargins(24, 24, 24, 20);
    column->setSpacing(12);
    column->addWidget(titled(wrapped(QString::fromUtf8(texts::filingChooseTitle))));
    column->addWidget(secondary(wrapped(QString::fromUtf8(texts::filingChooseBody))));
    column->addStretch();
    auto* choose = button(texts::chooseProjectButton, "chooseProject");
    choose->setDefault(true);
    connect(choose, &QPushButton::clicked, this, &FilingWindow::pickProject);
    column->addLayout(buttonRow({choose}));
    return page;
}

QWidget* FilingWindow::reviewPage() {
    auto* content = new QWidget;
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(24, 20, 24, 8);
    column->setSpacing(8);
    projectTitle_ = titled(wrapped());
    projectTitle_->setObjectName("projectTitle");
    column->addWidget(projectTitle_);
    column->addWidget(warningsBox());
    column->addSpacing(6);
    column->addWidget(sectionHeading(texts::fileItAs));
    column->addLayout(nameAndYearForm());
    column->addSpacing(6);
    column->addWidget(sectionHeading(texts::archiveFolder));
    column->addLayout(archiveRow());
    goesTo_ = dimmed(new ElidedLabel);
    goesTo_->setObjectName("goesTo");
    column->addWidget(goesTo_);
    column->addWidget(tidyUpBox());
    column->addStretch();

    auto* scroll = new QScrollArea;
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);

    auto* back = button(texts::filingBack, "back");
    connect(back, &QPushButton::clicked, this, [this] { model_->reset(); });
    fileIt_ = button(texts::fileIt, "fileIt");
    fileIt_->setDefault(true);
    connect(fileIt_, &QPushButton::clicked, this, [this] { model_->file(); });

    auto* page = new QWidget;
    page->setObjectName("review");
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(scroll, 1);
    auto* buttons = buttonRow({back, fileIt_});
    buttons->setContentsMargins(24, 8, 24, 20);
    layout->addLayout(buttons);
    return page;
}

QWidget* FilingWindow::warningsBox() {
    warnings_ = new QWidget;
    warnings_->setObjectName("warnings");
    auto* warningColumn = new QVBoxLayout(warnings_);
    warningColumn->setContentsMargins(0, 6, 0, 0);
    warningColumn->addWidget(sectionHeading(texts::worthALook));
    warningLines_ = wrapped();
    warningLines_->setObjectName("warningLines");
    warningColumn->addWidget(warningLines_);
    warningColumn->addWidget(secondary(wrapped(QString::fromUtf8(texts::fileAnyway))));
    return warnings_;
}

QFormLayout* FilingWindow::nameAndYearForm() {
    auto* form = new QFormLayout;
    name_ = new QLineEdit;
    name_->setObjectName("name");
    connect(name_, &QLineEdit::textEdited, this,
            [this](const QString& typed) { model_->setName(typed.toStdString()); });
    year_ = new QSpinBox;
    year_->setObjectName("year");
    // Plain digits, 1990 to 2100: anything else isn't taken, and the year keeps its value.
    year_->setRange(PromoteViewModel::earliestTypedYear, PromoteViewModel::latestTypedYear);
    year_->setGroupSeparatorShown(false);
    year_->setButtonSymbols(QAbstractSpinBox::NoButtons);
    year_->setFixedWidth(80);
    connect(year_, &QSpinBox::valueChanged, this, [this](int year) { model_->setYear(year); });
    form->addRow(QString::fromUtf8(texts::filingNameLabel), name_);
    form->addRow(QString::fromUtf8(texts::filingYearLabel), year_);
    return form;
}

QHBoxLayout* FilingWindow::archiveRow() {
    auto* row = new QHBoxLayout;
    auto* archivePath = new ElidedLabel;
    archivePath_ = archivePath;
    archivePath_->setObjectName("archivePath");
    archiveButton_ = button(texts::chooseArchiveButton, "chooseArchive");
    connect(archiveButton_, &QPushButton::clicked, this, &FilingWindow::pickArchive);
    row->addWidget(archivePath_, 1);
    row->addWidget(archiveButton_);
    return row;
}

// A box with its sentence beside it, wrapped: a check box's own text never wraps.
QWidget* FilingWindow::tidyUpBox() {
    tidyUpRow_ = new QWidget;
    auto* tidyUpLayout = new QHBoxLayout(tidyUpRow_);
    tidyUpLayout->setContentsMargins(0, 4, 0, 0);
    tidyUp_ = new QCheckBox;
    tidyUp_->setObjectName("tidyUp");
    connect(tidyUp_, &QCheckBox::toggled, this,
            [this](bool remove) { model_->setRemoveRebuildable(remove); });
    auto* sentence = new ClickableLabel([this] { tidyUp_->toggle(); });
    tidyUpLabel_ = sentence;
    tidyUpLabel_->setObjectName("tidyUpLabel");
    tidyUpLayout->addWidget(tidyUp_, 0, Qt::AlignTop);
    tidyUpLayout->addWidget(tidyUpLabel_, 1);
    return tidyUpRow_;
}

QWidget* FilingWindow::filingPage() {
    auto* page = new QWidget;
    page->setObjectName("filing");
    auto* column = new QVBoxLayout(page);
    column->setContentsMargins(24, 24, 24, 20);
    column->setSpacing(10);
    filingTitle_ = titled(wrapped());
    filingTitle_->setObjectName("filingTitle");
    column->addWidget(filingTitle_);
    column->addSpacing(8);
    progress_ = new QProgressBar;
    progress_->setObjectName("progress");
    progress_->setRange(0, 1000);
    progress_->setTextVisible(false);
    column->addWidget(progress_);
    auto* label = secondary(new ElidedLabel);
    progressLabel_ = label;
    progressLabel_->setObjectName("progressLabel");
    column->addWidget(progressLabel_);
    column->addWidget(dimmed(wrapped(QString::fromUtf8(texts::originalUntouched))));
    // No way out but the filing's end: closing the window leaves the filing to run.
    column->addStretch();
    return page;
}

QWidget* FilingWindow::finishedPage() {
    auto* page = new QWidget;
    page->setObjectName("finished");
    auto* column = new QVBoxLayout(page);
    column->setContentsMargins(24, 24, 24, 20);
    column->setSpacing(12);
    auto* heading = new QHBoxLayout;
    heading->setSpacing(10);
    resultIcon_ = new QLabel;
    resultIcon_->setObjectName("resultIcon");
    resultIcon_->setFixedSize(28, 28);
    resultHeading_ = titled(wrapped());
    resultHeading_->setObjectName("resultHeading");
    heading->addWidget(resultIcon_);
    heading->addWidget(resultHeading_, 1);
    column->addLayout(heading);
    resultSentence_ = wrapped();
    resultSentence_->setObjectName("resultSentence");
    resultSentence_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    column->addWidget(resultSentence_);
    column->addStretch();
    showInFileManager_ = button(texts::showInFileManager, "showInFileManager");
    connect(showInFileManager_, &QPushButton::clicked, this, [this] {
        if (model_->outcome()) reveal_(model_->outcome()->plan.destination);
    });
    auto* another = button(texts::fileAnother, "fileAnother");
    another->setDefault(true);
    connect(another, &QPushButton::clicked, this, [this] { model_->reset(); });
    column->addLayout(buttonRow({showInFileManager_, another}));
    return page;
}

void FilingWindow::keyPressEvent(QKeyEvent* event) {
    // Return is the page's default action, as in a dialog; a plain window has no such rule.
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        for (auto* button : pages_->currentWidget()->findChildren<QPushButton*>()) {
            if (button->isDefault() && button->isVisible() && button->isEnabled()) {
                button->click();
                return;
            }
        }
    }
    QWidget::keyPressEvent(event);
}

void FilingWindow::refresh() {
    pages_->setCurrentIndex(static_cast<int>(model_->step()));
    switch (model_->step()) {
        case Step::choose:
            break;
        case Step::review:
            refreshReview();
            break;
        case Step::filing:
            filingTitle_->setText(text(texts::filingTitle(model_->name())));
            progress_->setValue(static_cast<int>(model_->progress() * 1000));
            static_cast<ElidedLabel*>(progressLabel_)
                ->setFullText(model_->progressLabel().empty()
                                  ? QString::fromUtf8(texts::filingCopying)
                                  : text(model_->progressLabel()));
            break;
        case Step::finished:
            refreshFinished();
            break;
    }
}

void FilingWindow::refreshReview() {
    const auto& inspection = model_->inspection();
    projectTitle_->setText(inspection ? text(inspection->name) : QString());
    const auto warnings = inspection ? inspection->warnings() : std::vector<std::string>();
    QStringList lines;
    for (const auto& warning : warnings)
        lines << "• " + text(warning);
    warningLines_->setText(lines.join('\n'));
    warnings_->setVisible(!warnings.empty());

    // Only what differs is written back: the user may be typing in it.
    if (name_->text().toStdString() != model_->name()) name_->setText(text(model_->name()));
    if (year_->value() != model_->year()) {
        const QSignalBlocker quiet(year_);
        year_->setValue(model_->year());
    }

    const auto& root = model_->archiveRoot();
    auto* archivePath = static_cast<ElidedLabel*>(archivePath_);
    archivePath->setFullText(root ? shownPath(*root) : QString::fromUtf8(texts::notChosenYet));
    archivePath_->setForegroundRole(root ? QPalette::WindowText : QPalette::PlaceholderText);
    archiveButton_->setText(
        QString::fromUtf8(root ? texts::changeArchiveButton : texts::chooseArchiveButton));

    goesTo_->setVisible(model_->canFile());
    static_cast<ElidedLabel*>(goesTo_)->setFullText(
        text(texts::goesTo(model_->destinationPreview())));

    const auto& rebuildable = model_->rebuildable();
    const bool offer = rebuildable && !rebuildable->items.empty();
    tidyUpRow_->setVisible(offer);
    if (offer) {
        tidyUpLabel_->setText(text(ProjectSlimmer::summary(*rebuildable)));
        tidyUp_->setAccessibleName(tidyUpLabel_->text());
    }
    if (tidyUp_->isChecked() != model_->removeRebuildable()) {
        const QSignalBlocker quiet(tidyUp_);
        tidyUp_->setChecked(model_->removeRebuildable());
    }
    fileIt_->setEnabled(model_->canFile());
}

void FilingWindow::refreshFinished() {
    const bool success = model_->isSuccess();
    resultIcon_->setPixmap(glyphIcon(success ? texts::filedIcon : texts::notFiledIcon)
                               .pixmap(QSize(28, 28), devicePixelRatioF()));
    resultHeading_->setText(
        QString::fromUtf8(success ? texts::filedHeading : texts::notFiledHeading));
    resultSentence_->setText(text(model_->resultSentence()));
    showInFileManager_->setVisible(success);
}

void FilingWindow::pickFolder(const char* message, const std::optional<fs::path>& startAt,
                              bool canCreateFolders, std::function<void(const fs::path&)> picked) {
    // Opened, not run: the window and its model stay live while the dialog is up, and a
    // cancelled dialog changes nothing.
    auto* panel = new QFileDialog(this, QString::fromUtf8(message));
    panel->setObjectName("folderPanel");
    panel->setAttribute(Qt::WA_DeleteOnClose);
    panel->setFileMode(QFileDialog::Directory);
    panel->setOption(QFileDialog::ShowDirsOnly);
    panel->setOption(QFileDialog::ReadOnly, !canCreateFolders);
    panel->setLabelText(QFileDialog::Accept, QString::fromUtf8(texts::choosePrompt));
    if (startAt) panel->setDirectory(shownPath(*startAt));
    connect(panel, &QFileDialog::fileSelected, this, [picked](const QString& folder) {
        if (!folder.isEmpty()) picked(fs::path(QFile::encodeName(folder).toStdString()));
    });
    panel->open();
}

void FilingWindow::pickProject() {
    pickFolder(texts::chooseProjectMessage, std::nullopt, false,
               [this](const fs::path& project) { model_->choose(project); });
}

void FilingWindow::pickArchive() {
    const auto startAt = model_->archiveRoot() ? model_->archiveRoot() : drivesFolder();
    pickFolder(texts::chooseArchiveMessage, startAt, true,
               [this](const fs::path& root) { model_->chooseArchive(root); });
}

}  // namespace quillstow::shell
