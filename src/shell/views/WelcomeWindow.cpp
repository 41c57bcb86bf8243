#include "shell/views/WelcomeWindow.hpp"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QPushButton>
#include <QScrollArea>
#include <QToolButton>
#include <QVBoxLayout>

#include "shell/views/FlowWidgets.hpp"
#include "support/Paths.hpp"

namespace quillstow::shell {

namespace fs = std::filesystem;
namespace words = WelcomeTexts;
namespace sheet = AddBackupTexts;
using namespace flow;

namespace {

QIcon folderIcon() {
    return symbol("folder", "folder", QStyle::SP_DirIcon);
}

QIcon checkIcon() {
    return symbol("checkmark.circle.fill", "object-select", QStyle::SP_DialogApplyButton);
}

QLabel* centred(QLabel* label) {
    label->setAlignment(Qt::AlignCenter);
    return label;
}

// A chosen folder: its icon, name and path, and a button that lets it go.
QWidget* chosenFolder(const fs::path& folder, QWidget* clear) {
    auto* box = new QFrame;
    box->setObjectName("summary");
    auto* layout = new QHBoxLayout(box);
    layout->setContentsMargins(8, 6, 8, 6);
    layout->addWidget(iconLabel(folderIcon(), 28));
    auto* lines = new QVBoxLayout;
    lines->setSpacing(0);
    lines->addWidget(new ElidedLabel(text(paths::lastPathComponent(folder)), Qt::ElideRight));
    lines->addWidget(secondary(new ElidedLabel(shown(folder))));
    layout->addLayout(lines, 1);
    layout->addWidget(clear);
    return box;
}

}  // namespace

WelcomeWindow::WelcomeWindow(StatusManager& statusManager, VolumeMonitor& volumes,
                             AddBackupModel::Environment environment, QWidget* parent)
    : QWidget(parent, Qt::Window), model_(statusManager, volumes, std::move(environment)) {
    setObjectName("welcomeWindow");
    setWindowTitle(words::windowTitle);
    resize(width, height);
    setStyleSheet(sheetStyle);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 12, 0, 0);
    layout->setSpacing(2);
    // Our own drawing of the symbol, without its fill.
    auto* logo = iconLabel(
        symbol("externaldrive.badge.checkmark", "drive-harddisk", QStyle::SP_DriveHDIcon), 40);
    layout->addWidget(logo, 0, Qt::AlignHCenter);
    layout->addWidget(centred(bold(new QLabel(words::windowTitle), 1.3)));
    progress_ = centred(secondary(new QLabel));
    progress_->setObjectName("progress");
    layout->addWidget(progress_);

    body_ = new QScrollArea;
    body_->setWidgetResizable(true);
    body_->setFrameShape(QFrame::NoFrame);
    body_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    layout->addWidget(body_, 1);

    auto* buttons = new QHBoxLayout;
    buttons->setContentsMargins(16, 4, 16, 12);
    back_ = new QPushButton(words::back);
    back_->setObjectName("back");
    main_ = new QPushButton;
    main_->setObjectName("main");
    main_->setDefault(true);
    buttons->addWidget(back_);
    buttons->addStretch(1);
    buttons->addWidget(main_);
    layout->addLayout(buttons);
    connect(back_, &QPushButton::clicked, &model_, &WelcomeModel::goBack);
    connect(main_, &QPushButton::clicked, &model_, &WelcomeModel::goOn);
    connect(&model_, &WelcomeModel::changed, this, &WelcomeWindow::refresh);
    connect(&model_, &WelcomeModel::completed, this, &QWidget::hide);
    refresh();
}

void WelcomeWindow::refresh() {
    const auto step = model_.step();
    progress_->setText(text(progressLineOf(step)));
    back_->setVisible(model_.canGoBack());
    main_->setText(step == WelcomeStep::confirm ? words::startBackingUp : words::next);
    main_->setEnabled(model_.canGoOn());
    // The old page may hold the button just clicked: it goes once the click is over.
    if (QWidget* old = body_->takeWidget()) old->deleteLater();
    QWidget* page = step == WelcomeStep::pickSource        ? sourcePage()
                    : step == WelcomeStep::pickDestination ? destinationPage()
                    : step == WelcomeStep::pickOffsite     ? offsitePage()
                                                           : confirmPage();
    page->setObjectName("page");
    body_->setWidget(page);
}

QWidget* WelcomeWindow::sourcePage() {
    auto* page = new QWidget;
    auto* layout = pageLayout(page);
    layout->setContentsMargins(24, 10, 24, 8);
    layout->addWidget(question(words::sourceQuestion));
    const auto choose = [this] {
        openFolderPanel(this, words::sourcePanelPrompt, words::sourcePanelMessage, std::nullopt,
                        false, [this](const std::vector<fs::path>& folders) {
                            if (!folders.empty()) model_.setSource(folders.front());
                        });
    };
    if (const auto& source = model_.source()) {
        auto* clear = new QToolButton;
        clear->setObjectName("clearSource");
        clear->setAutoRaise(true);
        clear->setIcon(symbol("xmark.circle.fill", "edit-clear", QStyle::SP_DialogCloseButton));
        clear->setAccessibleName(words::clear);
        connect(clear, &QToolButton::clicked, &model_, &WelcomeModel::clearSource);
        layout->addWidget(chosenFolder(*source, clear));
    } else {
        layout->addWidget(new DropZone(
            {words::dropZone, words::dropZoneName, words::dropZoneHint},
            [this](std::vector<fs::path> items) { model_.dropItems(std::move(items)); }, choose));
        auto* button = new QPushButton(words::chooseAFolder);
        button->setObjectName("chooseFolder");
        connect(button, &QPushButton::clicked, this, choose);
        layout->addWidget(button, 0, Qt::AlignHCenter);
    }
    layout->addStretch(1);
    return page;
}

QWidget* WelcomeWindow::destinationPage() {
    auto* page = new QWidget;
    auto* layout = pageLayout(page);
    layout->setContentsMargins(24, 10, 24, 8);
    layout->addWidget(question(sheet::destinationQuestion));
    layout->addWidget(secondary(wrapped(text(sheet::destinationExplanation))));
    const auto volumes = model_.volumes();
    const QIcon drive = symbol("externaldrive", "drive-removable-media", QStyle::SP_DriveHDIcon);
    bool chosenIsAVolume = false;
    for (const auto& volume : volumes) {
        const bool isSelected = model_.destination() == volume.url;
        chosenIsAVolume = chosenIsAVolume || isSelected;
        auto* row = new ClickableRow(
            drive, text(volume.name), text(volume.capacity),
            [this, url = volume.url] { model_.setDestination(url); },
            isSelected ? checkIcon() : QIcon());
        row->setProperty("selected", isSelected);
        layout->addWidget(row);
    }
    if (volumes.empty()) {
        layout->addWidget(iconLine(symbol("externaldrive.badge.exclamationmark", "dialog-warning",
                                          QStyle::SP_MessageBoxWarning),
                                   wrapped(text(words::noExternalDrives), "noDrives")));
        layout->addWidget(secondary(wrapped(text(words::connectADrive))));
    }
    if (const auto& destination = model_.destination(); destination && !chosenIsAVolume) {
        auto* row = new ClickableRow(
            folderIcon(), text(paths::lastPathComponent(*destination)), shown(*destination), [] {},
            checkIcon());
        row->setObjectName("row");
        row->setProperty("selected", true);
        layout->addWidget(row);
    }
    auto* any = new QPushButton(words::chooseAnyFolder);
    any->setObjectName("chooseAnyFolder");
    connect(any, &QPushButton::clicked, this, [this] {
        openFolderPanel(this, sheet::destinationPanelPrompt, sheet::destinationPanelMessage,
                        model_.destination(), false, [this](const std::vector<fs::path>& folders) {
                            if (!folders.empty()) model_.setDestination(folders.front());
                        });
    });
    layout->addWidget(any, 0, Qt::AlignLeft);
    layout->addStretch(1);
    return page;
}

QWidget* WelcomeWindow::offsitePage() {
    auto* page = new QWidget;
    auto* layout = pageLayout(page);
    layout->setContentsMargins(24, 10, 24, 8);
    layout->addWidget(question(sheet::offsiteQuestion));
    layout->addWidget(secondary(wrapped(text(sheet::offsiteExplanation))));
    const auto pick = [this](const std::optional<fs::path>& startAt) {
        openFolderPanel(this, sheet::offsitePanelPrompt, sheet::offsitePanelMessage, startAt, false,
                        [this](const std::vector<fs::path>& folders) {
                            if (!folders.empty()) model_.setOffsite(folders.front());
                        });
    };
    const auto clouds = model_.cloudFolders();
    const auto& offsite = model_.offsite();
    for (const auto& cloud : clouds) {
        const bool isChosen = offsite && paths::isWithin(*offsite, cloud.url);
        layout->addWidget(new ClickableRow(
            symbol("cloud.fill", "folder-cloud", QStyle::SP_DirIcon),
            text(std::string(nameOf(cloud.provider))), shown(cloud.url),
            [pick, url = cloud.url] { pick(url); }, isChosen ? checkIcon() : QIcon()));
    }
    if (clouds.empty()) {
        layout->addWidget(wrapped(text(sheet::noCloudFolders), "noCloudFolders"));
        layout->addWidget(secondary(wrapped(text(sheet::anyOffsiteFolder))));
    }
    auto* any = new QPushButton(words::chooseAnyFolder);
    any->setObjectName("chooseAnyOffsite");
    connect(any, &QPushButton::clicked, this, [pick] { pick(std::nullopt); });
    layout->addWidget(any, 0, Qt::AlignLeft);
    if (offsite) {
        auto* clear = new QPushButton(words::clear);
        clear->setObjectName("clearOffsite");
        connect(clear, &QPushButton::clicked, &model_, &WelcomeModel::clearOffsite);
        layout->addWidget(chosenFolder(*offsite, clear));
    }
    layout->addStretch(1);
    return page;
}

QWidget* WelcomeWindow::confirmPage() {
    auto* page = new QWidget;
    auto* layout = pageLayout(page);
    layout->setContentsMargins(24, 10, 24, 8);
    layout->addWidget(question(words::readyToStart));
    const fs::path source = model_.source().value_or(fs::path());
    const fs::path destination = model_.destination().value_or(fs::path());
    auto* summary = new QFrame;
    summary->setObjectName("summary");
    auto* rows = new QGridLayout(summary);
    rows->setContentsMargins(8, 6, 8, 6);
    rows->setColumnStretch(1, 1);
    rows->addWidget(secondary(new QLabel(text(sheet::from))), 0, 0, Qt::AlignTop);
    rows->addWidget(new ElidedLabel(text(paths::lastPathComponent(source)), Qt::ElideRight), 0, 1);
    rows->addWidget(secondary(new ElidedLabel(shown(source))), 1, 1);
    rows->addWidget(iconLabel(symbol("arrow.right", "go-next", QStyle::SP_ArrowRight), 16), 2, 0,
                    Qt::AlignTop | Qt::AlignHCenter);
    rows->addWidget(new ElidedLabel(text(paths::lastPathComponent(destination)), Qt::ElideRight), 2,
                    1);
    rows->addWidget(secondary(new ElidedLabel(shown(destination))), 3, 1);
    layout->addWidget(summary);
    if (const auto& offsite = model_.offsite()) {
        layout->addWidget(iconLine(symbol("cloud.fill", "folder-cloud", QStyle::SP_DirIcon),
                                   wrapped(text(offsiteLineOf(*offsite)), "offsiteLine")));
    }
    layout->addWidget(secondary(wrapped(text(words::watchesForChanges))));
    if (const auto& refusal = model_.refusal()) {
        layout->addWidget(iconLine(
            symbol("exclamationmark.triangle.fill", "dialog-warning", QStyle::SP_MessageBoxWarning),
            wrapped(text(*refusal), "refusal")));
    }
    layout->addStretch(1);
    return page;
}

}  // namespace quillstow::shell
