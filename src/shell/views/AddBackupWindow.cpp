#include "shell/views/AddBackupWindow.hpp"

#include <QAbstractItemView>
#include <QApplication>
#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFile>
#include <QFileDialog>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QIcon>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QScrollArea>
#include <QStyle>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>

#include "shell/views/FlowWidgets.hpp"
#include "support/Paths.hpp"

namespace quillstow::shell {

namespace fs = std::filesystem;
namespace texts = AddBackupTexts;
using namespace flow;

AddBackupWindow::AddBackupWindow(StatusManager& statusManager, VolumeMonitor& volumes,
                                 QWidget* parent)
    : AddBackupWindow(statusManager, volumes, AddBackupModel::systemEnvironment(), parent) {}

AddBackupWindow::AddBackupWindow(StatusManager& statusManager, VolumeMonitor& volumes,
                                 AddBackupModel::Environment environment, QWidget* parent)
    : QWidget(parent, Qt::Window), model_(statusManager, volumes, std::move(environment)) {
    setObjectName("addBackupWindow");
    setWindowTitle(text(headingOf(AddBackupStep::chooseSource)));
    setFixedSize(width, height);
    setStyleSheet(sheetStyle);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    // The heading stands in the middle of the whole width, the button on its left, as on a
    // sheet; the button keeps one width for "Cancel" and "Back" so nothing moves between steps.
    auto* header = new QGridLayout;
    header->setContentsMargins(8, 8, 8, 8);
    // A compact button: a push button's least width would crowd the heading.
    headerButton_ = new QToolButton;
    headerButton_->setObjectName("headerButton");
    connect(headerButton_, &QToolButton::clicked, this, [this] { model_.goBack(); });
    int buttonWidth = 0;
    for (const char* words : {texts::cancel, texts::back}) {
        headerButton_->setText(text(words));
        buttonWidth = std::max(buttonWidth, headerButton_->sizeHint().width());
    }
    headerButton_->setFixedWidth(buttonWidth);
    heading_ = new QLabel;
    heading_->setObjectName("heading");
    QFont bold = heading_->font();
    bold.setBold(true);
    heading_->setFont(bold);
    heading_->setAlignment(Qt::AlignCenter);
    header->addWidget(heading_, 0, 0, Qt::AlignCenter);
    header->addWidget(headerButton_, 0, 0, Qt::AlignLeft | Qt::AlignVCenter);
    layout->addLayout(header);

    auto* line = new QFrame;
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    layout->addWidget(line);

    body_ = new QScrollArea;
    body_->setObjectName("body");
    body_->setWidgetResizable(true);
    body_->setFrameShape(QFrame::NoFrame);
    body_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    layout->addWidget(body_, 1);
    // The step's main button stays in sight below the page, however long the page is.
    auto* footerBox = new QWidget;
    footer_ = new QVBoxLayout(footerBox);
    footer_->setContentsMargins(12, 4, 12, 12);
    layout->addWidget(footerBox);

    connect(&model_, &AddBackupModel::changed, this, &AddBackupWindow::refresh);
    connect(&model_, &AddBackupModel::ended, this, &QWidget::close);
    refresh();
}

void AddBackupWindow::closeEvent(QCloseEvent* event) {
    model_.cancel();
    QWidget::closeEvent(event);
}

void AddBackupWindow::refresh() {
    const auto step = model_.step();
    heading_->setText(text(headingOf(step)));
    headerButton_->setText(step == AddBackupStep::chooseSource ? texts::cancel : texts::back);
    // The old page or button may be the one just clicked: they go once the click is over.
    if (QWidget* old = body_->takeWidget()) old->deleteLater();
    while (QLayoutItem* item = footer_->takeAt(0)) {
        item->widget()->hide();
        item->widget()->setParent(nullptr);
        item->widget()->deleteLater();
        delete item;
    }
    QWidget* page = step == AddBackupStep::chooseSource        ? sourcePage()
                    : step == AddBackupStep::chooseDestination ? destinationPage()
                    : step == AddBackupStep::chooseOffsite     ? offsitePage()
                                                               : confirmPage();
    page->setObjectName("page");
    body_->setWidget(page);
    footer_->parentWidget()->setVisible(footer_->count() > 0);
}

QWidget* AddBackupWindow::sourcePage() {
    auto* page = new QWidget;
    auto* layout = pageLayout(page);
    layout->addWidget(question(texts::sourceQuestion));
    layout->addWidget(new DropZone(
        {texts::dropZone, texts::dropZoneName, texts::dropZoneHint},
        [this](std::vector<fs::path> items) { model_.dropItems(std::move(items)); },
        [this] { openSourcePanel(); }));
    auto* choose = new QPushButton(text(texts::chooseFolder));
    choose->setObjectName("chooseFolder");
    connect(choose, &QPushButton::clicked, this, [this] { openSourcePanel(); });
    layout->addWidget(choose, 0, Qt::AlignHCenter);
    layout->addStretch(1);
    layout->addWidget(
        iconLine(symbol("lightbulb.fill", "dialog-information", QStyle::SP_MessageBoxInformation),
                 secondary(wrapped(text(texts::sourceTip), "tip"))));
    return page;
}

QWidget* AddBackupWindow::destinationPage() {
    auto* page = new QWidget;
    auto* layout = pageLayout(page);
    layout->addWidget(question(texts::destinationQuestion));
    layout->addWidget(secondary(wrapped(text(texts::destinationExplanation))));
    const QIcon folder = symbol("folder", "folder", QStyle::SP_DirIcon);
    for (const auto& earlier : model_.earlierDestinations()) {
        layout->addWidget(new ClickableRow(folder, text(paths::lastPathComponent(earlier)),
                                           shown(earlier),
                                           [this, earlier] { checkDestination(earlier); }));
    }
    const auto volumes = model_.volumeRows();
    const QIcon network = symbol("network", "network-server", QStyle::SP_DriveNetIcon);
    const QIcon drive = symbol("internaldrive", "drive-harddisk", QStyle::SP_DriveHDIcon);
    const QIcon checkmark = symbol("checkmark", "object-select", QStyle::SP_DialogApplyButton);
    for (const auto& volume : volumes) {
        const bool isSelected = model_.destination() == volume.url;
        // The name with its kind under it, the free space at the row's end.
        layout->addWidget(new ClickableRow(
            volume.isNetwork ? network : drive, text(volume.name), text(volume.kind),
            [this, url = volume.url] { checkDestination(url); }, isSelected ? checkmark : QIcon(),
            text(volume.freeSpace)));
    }
    if (volumes.empty()) layout->addWidget(secondary(wrapped(text(texts::noVolumes), "noVolumes")));
    auto* any = new ClickableRow(
        QIcon(), text(texts::chooseAnyFolder), {}, [this] { openDestinationPanel(); },
        symbol("chevron.right", "go-next", QStyle::SP_ArrowRight));
    layout->addWidget(any);
    addWarning(layout);
    layout->addStretch(1);
    return page;
}

QWidget* AddBackupWindow::offsitePage() {
    auto* page = new QWidget;
    auto* layout = pageLayout(page);
    layout->addWidget(question(texts::offsiteQuestion));
    layout->addWidget(secondary(wrapped(text(texts::offsiteExplanation))));
    const auto clouds = model_.cloudFolders();
    for (const auto& cloud : clouds) {
        const bool isICloud = cloud.provider == CloudSyncDetector::Provider::iCloud;
        const QIcon icon = isICloud ? symbol("icloud.fill", "folder-cloud", QStyle::SP_DirIcon)
                                    : symbol("cloud.fill", "folder-cloud", QStyle::SP_DirIcon);
        layout->addWidget(new ClickableRow(icon, text(std::string(nameOf(cloud.provider))),
                                           shown(cloud.url),
                                           [this, url = cloud.url] { openOffsitePanel(url); }));
    }
    if (clouds.empty()) {
        auto* none = wrapped(text(texts::noCloudFolders), "noCloudFolders");
        layout->addWidget(iconLine(
            symbol("icloud.slash", "network-offline", QStyle::SP_MessageBoxInformation), none));
        layout->addWidget(secondary(wrapped(text(texts::anyOffsiteFolder))));
    }
    layout->addWidget(new ClickableRow(
        QIcon(), text(texts::chooseAnyFolder), {}, [this] { openOffsitePanel(std::nullopt); },
        symbol("chevron.right", "go-next", QStyle::SP_ArrowRight)));
    layout->addStretch(1);
    auto* skip = new QPushButton(text(texts::skipOffsite));
    skip->setObjectName("skipOffsite");
    connect(skip, &QPushButton::clicked, this, [this] { model_.skipOffsite(); });
    footer_->addWidget(skip);
    return page;
}

QWidget* AddBackupWindow::confirmPage() {
    auto* page = new QWidget;
    auto* layout = pageLayout(page);
    const fs::path destination = model_.destination().value_or(fs::path());
    const QIcon arrow = symbol("arrow.right", "go-next", QStyle::SP_ArrowRight);
    for (const auto& source : model_.sources()) {
        auto* summary = new QFrame;
        summary->setObjectName("summary");
        auto* rows = new QGridLayout(summary);
        rows->setContentsMargins(8, 6, 8, 6);
        rows->setColumnStretch(1, 1);
        rows->addWidget(secondary(new QLabel(text(texts::from))), 0, 0, Qt::AlignTop);
        rows->addWidget(new ElidedLabel(text(paths::lastPathComponent(source)), Qt::ElideRight), 0,
                        1);
        rows->addWidget(secondary(new ElidedLabel(shown(source))), 1, 1);
        rows->addWidget(iconLabel(arrow, 16), 2, 0, Qt::AlignTop | Qt::AlignHCenter);
        rows->addWidget(
            new ElidedLabel(text(paths::lastPathComponent(destination)), Qt::ElideRight), 2, 1);
        rows->addWidget(secondary(new ElidedLabel(shown(destination))), 3, 1);
        layout->addWidget(summary);
    }
    if (const auto& offsite = model_.offsite()) {
        layout->addWidget(iconLine(symbol("cloud.fill", "folder-cloud", QStyle::SP_DirIcon),
                                   wrapped(text(offsiteLineOf(*offsite)), "offsiteLine")));
    }
    layout->addWidget(secondary(wrapped(text(summaryOf(model_.sources().size())), "summaryLine")));
    layout->addStretch(1);
    // Beside the button it blocks, in sight however many sources there are.
    addWarning(footer_);
    auto* add = new QPushButton(text(addButtonTextOf(model_.sources().size())));
    add->setObjectName("addButton");
    add->setDefault(true);
    add->setEnabled(model_.canAdd());
    if (!model_.canAdd()) add->setToolTip(plainToolTip(text(model_.blockedReason())));
    connect(add, &QPushButton::clicked, this, [this] { model_.commit(); });
    footer_->addWidget(add);
    return page;
}

void AddBackupWindow::addWarning(QVBoxLayout* layout) {
    const auto& warning = model_.validationWarning();
    if (!warning) return;
    layout->addWidget(iconLine(
        symbol("exclamationmark.triangle.fill", "dialog-warning", QStyle::SP_MessageBoxWarning),
        wrapped(text(*warning), "validationWarning")));
}

void AddBackupWindow::openSourcePanel() {
    openFolderPanel(this, texts::sourcePanelPrompt, texts::sourcePanelMessage, std::nullopt, true,
                    [this](const Paths& folders) { model_.pickSources(folders); });
}

void AddBackupWindow::openDestinationPanel() {
    openFolderPanel(this, texts::destinationPanelPrompt, texts::destinationPanelMessage,
                    model_.destination(), false, [this](const Paths& folders) {
                        if (!folders.empty()) checkDestination(folders.front());
                    });
}

void AddBackupWindow::openOffsitePanel(const std::optional<fs::path>& startAt) {
    openFolderPanel(this, texts::offsitePanelPrompt, texts::offsitePanelMessage, startAt, false,
                    [this](const Paths& folders) {
                        if (!folders.empty()) model_.pickOffsite(folders.front());
                    });
}

void AddBackupWindow::checkDestination(const fs::path& folder) {
    const auto warning = model_.cloudWarningFor(folder);
    if (!warning) {
        model_.pickDestination(folder);
        return;
    }
    activateWindow();
    raise();
    auto* alert = new QMessageBox(QMessageBox::Information, windowTitle(), text(warning->message),
                                  QMessageBox::NoButton, this);
    alert->setObjectName("cloudAlert");
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->setTextFormat(Qt::PlainText);
    alert->setInformativeText(text(warning->informativeText));
    auto* another = alert->addButton(text(texts::chooseAnotherFolder), QMessageBox::RejectRole);
    auto* anyway = alert->addButton(text(texts::useAnyway), QMessageBox::AcceptRole);
    alert->setDefaultButton(another);
    connect(alert, &QMessageBox::buttonClicked, this, [this, anyway, folder](auto* button) {
        if (button == anyway) model_.pickDestination(folder);
    });
    alert->open();
}

}  // namespace quillstow::shell
