// The add-backup sheet on the offscreen platform, driven as a user drives it (drops, the folder
// dialog, the rows and buttons), against a real status manager and store in virtual time over
// real temporary folders.

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QLabel>
#include <QListView>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTextDocument>
#include <QUrl>

#include "../control/EngineHarness.hpp"
#include "environment/CloudSyncDetector.hpp"
#include "shell/views/AddBackupWindow.hpp"
#include "shell/views/FlowWidgets.hpp"

namespace quillstow::shell {
namespace {

namespace fs = std::filesystem;
using testing::EngineHarness;
using testing::makeFolder;
using testing::writeFile;
using Step = AddBackupStep;

QString shown(const fs::path& path) {
    return QString::fromStdString(path.native());
}

// The sheet over a fresh harness: its own home folder and removable-media root.
struct Sheet {
    Sheet()
        : manager(h.store, *h.services, h.queue, h.notifier),
          window(manager, manager.volumeMonitor(), {home(), [this] { return h.wallClock.now(); }}) {
        window.show();
        QCoreApplication::processEvents();
    }
    ~Sheet() {
        window.close();
        manager.stopAll();
        h.settle();
    }
    fs::path home() const { return h.root / "home"; }
    AddBackupModel& model() { return window.model(); }

    template <typename Widget = QWidget>
    Widget* find(const char* name) {
        QCoreApplication::processEvents();
        return window.findChild<Widget*>(name);
    }
    QString labelText(const char* name) {
        auto* label = find<QLabel>(name);
        return label ? label->text() : QString();
    }
    // A row of the page by its title.
    QWidget* row(const QString& title) {
        QCoreApplication::processEvents();
        for (auto* candidate : window.findChildren<QWidget*>("row")) {
            if (candidate->accessibleName() == title && candidate->isVisible()) return candidate;
        }
        return nullptr;
    }
    void click(QWidget* widget) {
        QVERIFY(widget);
        QTest::mouseClick(widget, Qt::LeftButton);
        QCoreApplication::processEvents();
    }
    void clickButton(const char* name) { click(find<QAbstractButton>(name)); }

    // Drags file URLs over the drop zone: whether it takes them.
    bool dragOver(const std::vector<fs::path>& items) {
        QWidget* zone = find("dropZone");
        if (!zone) return false;
        QList<QUrl> urls;
        for (const auto& item : items)
            urls.push_back(QUrl::fromLocalFile(shown(item)));
        dragged.setUrls(urls);
        QDragEnterEvent enter(zone->rect().center(), Qt::CopyAction, &dragged, Qt::LeftButton,
                              Qt::NoModifier);
        QCoreApplication::sendEvent(zone, &enter);
        return enter.isAccepted();
    }
    // Drops file URLs on the drop zone and waits until the sheet has read them.
    bool drop(const std::vector<fs::path>& items) {
        if (!dragOver(items)) return false;
        QWidget* zone = find("dropZone");
        QSignalSpy read(&model(), &AddBackupModel::droppedItemsRead);
        QDropEvent dropped(zone->rect().center(), Qt::CopyAction, &dragged, Qt::LeftButton,
                           Qt::NoModifier);
        QCoreApplication::sendEvent(zone, &dropped);
        return read.wait(5000);
    }

    // Picks `folder` in the folder dialog that the last click opened.
    void pickInPanel(const fs::path& folder) {
        auto* panel = find<QFileDialog>("folderPanel");
        QVERIFY2(panel, "no folder dialog is open");
        // As a user does: opens the folder, then presses the dialog's button.
        panel->setDirectory(shown(folder));
        static_cast<QDialog*>(panel)->accept();  // as the dialog's own button does
        QCoreApplication::processEvents();
    }
    void chooseDestination(const fs::path& folder) {
        click(row("Choose any folder"));
        pickInPanel(folder);
    }

    // Sources picked, destination chosen, offsite skipped: the summary shows.
    void goToConfirm(const std::vector<fs::path>& sources, const fs::path& destination) {
        QVERIFY(drop(sources));
        chooseDestination(destination);
        QCOMPARE(model().step(), Step::chooseOffsite);
        clickButton("skipOffsite");
        QCOMPARE(model().step(), Step::confirm);
    }

    EngineHarness h;
    StatusManager manager;
    AddBackupWindow window;
    QMimeData dragged;
};

class AddBackupTest : public QObject {
    Q_OBJECT

  private slots:
    void refusesEachUnsafeDestinationWithItsWords_data();
    void refusesEachUnsafeDestinationWithItsWords();
    void twoDroppedFoldersAddTwoPairsAndDroppedFilesNone();
    void theCloudAlertShowsForACloudFolderAndOnlyUseAnywayGoesOn();
    void cancelAddsNothing_data();
    void cancelAddsNothing();
    void aRefusalAtTheCommitKeepsWhatIsLeftAndSaysWhy();
    void theSourceDialogTakesSeveralFolders();
    void volumeRowsAndEarlierDestinations();
    void aVolumeRowShowsItsKindUnderItsNameAndItsFreeSpaceAtTheEnd();
    void screenshotsOfEachStepShowEveryTextWhole();
};

void AddBackupTest::refusesEachUnsafeDestinationWithItsWords_data() {
    QTest::addColumn<QString>("source");       // below the test's folder
    QTest::addColumn<QString>("destination");  // below the test's folder, unless absolute
    QTest::addColumn<QString>("words");        // none: accepted, and the pair is added
    const auto row = [](const char* name, QString destination, QString words,
                        QString source = "home/Pictures") {
        QTest::newRow(name) << source << destination << words;
    };
    const QString inside = "The destination can't be inside \"Pictures\".";
    const QString above = "\"Pictures\" can't be inside the destination.";
    row("the source itself", "home/Pictures", inside);
    row("inside the source", "home/Pictures/Backups", inside);
    row("above the source", "home", above);
    row("the root", "/", above);
    row("a system folder", "/usr/share",
        "Destination is a protected system folder. Choose a different destination.");
    // Picked from the rows of the earlier destinations, as the others are from the dialog.
    row("another source into another pair's mirror", "drive",
        "\"Pictures\" already backs up into this folder. Choose another destination or name.");
    row("the same folder again: a second pair", "drive", "", "elsewhere/Pictures");
    row("an earlier drive that isn't plugged in", "media/Missing Drive", "");
    row("a neighbour whose name begins alike", "home/Pictures2", "");
    row("the drive beside another pair's", "other-drive", "");
}

void AddBackupTest::refusesEachUnsafeDestinationWithItsWords() {
    QFETCH(QString, source);
    QFETCH(QString, destination);
    QFETCH(QString, words);
    Sheet sheet;
    // One pair already mirrors a folder named so into the test's drive; another goes to a
    // drive that isn't plugged in.
    const fs::path missingDrive = sheet.h.root / "media/Missing Drive";
    for (const auto& [from, to] :
         {std::pair{sheet.h.root / "elsewhere/Pictures", sheet.h.root / "drive"},
          std::pair{sheet.h.root / "elsewhere/Music", missingDrive}}) {
        makeFolder(from);
        sheet.h.store->addPair(newPairOf(from, to, std::nullopt, {}));
    }
    makeFolder(sheet.h.root / "drive");
    const fs::path dropped = sheet.h.root / source.toStdString();
    const fs::path chosen = destination.startsWith('/') ? fs::path(destination.toStdString())
                                                        : sheet.h.root / destination.toStdString();
    makeFolder(dropped);
    if (!destination.startsWith('/') && chosen != missingDrive) makeFolder(chosen);
    const auto pairsBefore = sheet.h.store->pairs().size();

    QVERIFY(sheet.drop({dropped}));
    if (QWidget* earlier = sheet.row(QString::fromStdString(chosen.filename().native()))) {
        sheet.click(earlier);
    } else {
        sheet.chooseDestination(chosen);
    }

    if (words.isEmpty()) {
        QCOMPARE(sheet.model().step(), Step::chooseOffsite);
        QVERIFY(!sheet.model().validationWarning());
        sheet.clickButton("skipOffsite");
        sheet.clickButton("addButton");
        QCOMPARE(sheet.h.store->pairs().size(), pairsBefore + 1);
        QCOMPARE(sheet.h.store->pairs().back().sourceURL, dropped);
        return;
    }
    QCOMPARE(sheet.model().step(), Step::chooseDestination);
    QCOMPARE(sheet.labelText("validationWarning"), words);
    QCOMPARE(sheet.h.store->pairs().size(), pairsBefore);
    // Back forgets the destination and its warning, and keeps the sources.
    sheet.clickButton("headerButton");
    QCOMPARE(sheet.model().step(), Step::chooseSource);
    QVERIFY(!sheet.model().destination() && !sheet.model().validationWarning());
    QCOMPARE(sheet.model().sources(), std::vector<fs::path>{dropped});
}

void AddBackupTest::twoDroppedFoldersAddTwoPairsAndDroppedFilesNone() {
    Sheet sheet;
    const fs::path drafts = sheet.home() / "Drafts", photos = sheet.home() / "Photos";
    writeFile(drafts / "chapter.txt", "one");
    writeFile(photos / "a.jpg", "two");
    writeFile(sheet.home() / "notes.txt", "a file, not a folder");
    const fs::path drive = sheet.h.root / "drive", cloud = sheet.home() / "Dropbox";
    makeFolder(drive);
    makeFolder(cloud);

    // Files alone, or items that are gone, leave the sheet at its first step.
    QVERIFY(sheet.drop({sheet.home() / "notes.txt", sheet.home() / "gone"}));
    QCOMPARE(sheet.model().step(), Step::chooseSource);
    QVERIFY(sheet.model().sources().empty());
    QVERIFY(sheet.find("dropZone"));

    QVERIFY(sheet.drop({drafts, sheet.home() / "notes.txt", photos}));
    QCOMPARE(sheet.model().sources(), (std::vector<fs::path>{drafts, photos}));
    QCOMPARE(sheet.model().step(), Step::chooseDestination);
    sheet.chooseDestination(drive);
    QCOMPARE(sheet.model().step(), Step::chooseOffsite);
    sheet.click(sheet.row("Dropbox"));
    sheet.pickInPanel(cloud);
    QCOMPARE(sheet.model().step(), Step::confirm);
    QCOMPARE(sheet.labelText("offsiteLine"), QString("Offsite copy: Dropbox"));
    QCOMPARE(sheet.labelText("summaryLine"),
             QString("Quillstow will back up 2 folders automatically."));
    auto* add = sheet.find<QPushButton>("addButton");
    QCOMPARE(add->text(), QString("Add 2 Backups"));
    QVERIFY(add->isEnabled() && add->isDefault());

    sheet.click(add);
    QVERIFY(!sheet.window.isVisible());
    const auto& pairs = sheet.h.store->pairs();
    QCOMPARE(pairs.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        QCOMPARE(pairs[i].sourceURL, (std::vector<fs::path>{drafts, photos})[i]);
        QCOMPARE(pairs[i].name, (std::vector<std::string>{"Drafts", "Photos"})[i]);
        QCOMPARE(pairs[i].destinationURL, drive);
        QCOMPARE(pairs[i].offsiteURL, std::optional<fs::path>(cloud));
        QVERIFY(pairs[i].sourceBookmark && pairs[i].destinationBookmark &&
                pairs[i].offsiteBookmark);
        QVERIFY(pairs[i].createdAt == sheet.h.wallClock.now());
        QVERIFY(sheet.manager.engines().contains(pairs[i].id));
    }
    QVERIFY(pairs[0].id != pairs[1].id);
    // Each pair's engine runs: the files arrive in their mirrors.
    sheet.h.settle();
    QVERIFY(fs::exists(drive / "Quillstow/Drafts/chapter.txt"));
    QVERIFY(fs::exists(drive / "Quillstow/Photos/a.jpg"));
}

void AddBackupTest::theCloudAlertShowsForACloudFolderAndOnlyUseAnywayGoesOn() {
    Sheet sheet;
    const fs::path source = sheet.home() / "Work", synced = sheet.home() / "Dropbox/Backups";
    makeFolder(source);
    makeFolder(synced);
    QVERIFY(sheet.drop({source}));

    const auto answerAlert = [&](const char* button) {
        sheet.chooseDestination(synced);
        auto* alert = sheet.find<QMessageBox>("cloudAlert");
        QVERIFY(alert && alert->isVisible());
        QCOMPARE(alert->informativeText().toStdString(),
                 CloudSyncDetector::warning(CloudSyncDetector::Provider::dropbox));
        QAbstractButton* chosen = nullptr;
        for (auto* candidate : alert->buttons()) {
            if (candidate->text() == button) chosen = candidate;
        }
        QCOMPARE(alert->buttons().size(), 2);
        QVERIFY(chosen);
        sheet.click(chosen);
    };

    answerAlert("Choose Another Folder");
    QCOMPARE(sheet.model().step(), Step::chooseDestination);
    QVERIFY(!sheet.model().destination());

    answerAlert("Use Anyway");
    QCOMPARE(sheet.model().step(), Step::chooseOffsite);
    QCOMPARE(sheet.model().destination(), std::optional<fs::path>(synced));
}

void AddBackupTest::cancelAddsNothing_data() {
    QTest::addColumn<bool>("closeTheWindow");  // else Back to the first step and "Cancel"
    QTest::newRow("back to the start and Cancel") << false;
    QTest::newRow("the window closed on the summary") << true;
}

void AddBackupTest::cancelAddsNothing() {
    QFETCH(bool, closeTheWindow);
    Sheet sheet;
    const fs::path source = sheet.home() / "Work", drive = sheet.h.root / "drive";
    makeFolder(source);
    makeFolder(drive);
    sheet.goToConfirm({source}, drive);
    QSignalSpy ended(&sheet.model(), &AddBackupModel::ended);

    if (closeTheWindow) {
        sheet.window.close();
    } else {
        for (const char* heading : {"Offsite Copy", "Choose Destination", "Add Backup"}) {
            QCOMPARE(sheet.find<QAbstractButton>("headerButton")->text(), QString("Back"));
            sheet.clickButton("headerButton");
            QCOMPARE(sheet.labelText("heading"), QString(heading));
        }
        QCOMPARE(sheet.find<QAbstractButton>("headerButton")->text(), QString("Cancel"));
        sheet.clickButton("headerButton");
    }
    QCOMPARE(ended.size(), 1);
    QVERIFY(!sheet.window.isVisible());
    QVERIFY(sheet.h.store->pairs().empty());
    QVERIFY(sheet.manager.engines().empty());
}

void AddBackupTest::aRefusalAtTheCommitKeepsWhatIsLeftAndSaysWhy() {
    Sheet sheet;
    // A name that looks like markup is shown as it stands.
    const fs::path first = sheet.home() / "Drafts", second = sheet.home() / "Photos <b>2";
    const fs::path drive = sheet.h.root / "drive";
    makeFolder(first);
    makeFolder(second);
    makeFolder(drive);
    sheet.goToConfirm({first, second}, drive);
    // While the summary shows, another pair takes the second mirror folder.
    const auto elsewhere = sheet.h.root / "elsewhere" / second.filename();
    QVERIFY(!sheet.manager.addPair(newPairOf(elsewhere, drive, std::nullopt, {})));

    sheet.clickButton("addButton");
    const QString words =
        "\"Photos <b>2\" already backs up into this folder. Choose another destination or "
        "name.";
    QVERIFY(sheet.window.isVisible());
    QCOMPARE(sheet.h.store->pairs().size(), 2u);
    QCOMPARE(sheet.h.store->pairs().back().sourceURL, first);
    QCOMPARE(sheet.model().sources(), std::vector<fs::path>{second});
    QCOMPARE(sheet.labelText("validationWarning"), words);
    QCOMPARE(sheet.find<QLabel>("validationWarning")->textFormat(), Qt::PlainText);
    auto* add = sheet.find<QPushButton>("addButton");
    QCOMPARE(add->text(), QString("Add This Backup"));
    QVERIFY(!add->isEnabled());
    QTextDocument toolTip;
    toolTip.setHtml(add->toolTip());
    QCOMPARE(toolTip.toPlainText(), words);
}

void AddBackupTest::theSourceDialogTakesSeveralFolders() {
    Sheet sheet;
    sheet.clickButton("chooseFolder");
    auto* panel = sheet.find<QFileDialog>("folderPanel");
    QVERIFY(panel && panel->isVisible());
    QCOMPARE(panel->fileMode(), QFileDialog::Directory);
    auto* list = panel->findChild<QListView*>("listView");
    QVERIFY(list);
    QCOMPARE(list->selectionMode(), QAbstractItemView::ExtendedSelection);
    // A cancelled dialog leaves the step as it was.
    panel->reject();
    QCOMPARE(sheet.model().step(), Step::chooseSource);
}

void AddBackupTest::volumeRowsAndEarlierDestinations() {
    struct Case {
        const char* name;
        VolumeInfo volume;
        VolumeRow row;
    };
    const Case cases[] = {
        {"a share",
         {"/mnt/share", "share", 0, 0, true, false},
         {"/mnt/share", "share", "Network Volume", "Zero KB free", true}},
        {"a stick",
         {"/media/ana/STICK", "STICK", 8'000'000'000, 1'300'000, false, true},
         {"/media/ana/STICK", "STICK", "External Drive", "1.3 MB free", false}},
        {"a second disk",
         {"/data", "data", 1, 12'345'678'987, false, false},
         {"/data", "data", "Local Drive", "12.35 GB free", false}},
    };
    for (const auto& c : cases) {
        QVERIFY2(volumeRowOf(c.volume) == c.row, c.name);
    }

    BackupPair onStick, inHome, again, onShare;
    onStick.destinationURL = "/media/ana/STICK";
    inHome.destinationURL = "/home/ana/Backups/";
    again.destinationURL = "/home/ana/./Backups";
    onShare.destinationURL = "/mnt/share/x";
    QCOMPARE(earlierDestinationsOf({onStick, inHome, again, onShare},
                                   {cases[0].volume, cases[1].volume}),
             (std::vector<fs::path>{"/home/ana/Backups", "/mnt/share/x"}));
}

void AddBackupTest::aVolumeRowShowsItsKindUnderItsNameAndItsFreeSpaceAtTheEnd() {
    const VolumeRow volume =
        volumeRowOf({"/media/ana/STICK", "STICK", 8'000'000'000, 1'300'000, false, true});
    const auto qt = [](const std::string& text) { return QString::fromStdString(text); };
    flow::ClickableRow row(
        QIcon(), qt(volume.name), qt(volume.kind), [] {}, QIcon(), qt(volume.freeSpace));
    row.resize(280, row.sizeHint().height());
    row.show();
    QCoreApplication::processEvents();
    std::map<QString, QRect> placed;
    for (auto* label : row.findChildren<QLabel*>())
        placed[label->text()] = label->geometry();
    QVERIFY(placed.contains("STICK") && placed.contains("External Drive"));
    QCOMPARE(row.findChild<QLabel*>("aside")->text(), QString("1.3 MB free"));
    const QRect name = placed["STICK"], kind = placed["External Drive"];
    const QRect free = placed["1.3 MB free"];
    QVERIFY2(kind.top() >= name.bottom(), "the kind stands under the name");
    QVERIFY2(free.left() > std::max(name.right(), kind.right()), "the free space at the end");
    QVERIFY(row.grab().save(QDir(QUILLSTOW_SCREENSHOTS).filePath("add-backup-volume-row.png")));
}

// Saves each step under build/screenshots/ and checks what a person would see first: no line
// of text or button cut off. Paths elide in the middle by design; their tooltip holds them whole.
void AddBackupTest::screenshotsOfEachStepShowEveryTextWhole() {
    Sheet sheet;
    const fs::path documents = sheet.home() / "Documents", drive = sheet.h.root / "drive";
    const fs::path photos = sheet.home() / "Pictures/Holidays with a rather long folder name";
    for (const auto& made : {documents, photos, drive / "Quillstow", documents / "Inside"})
        makeFolder(made);
    sheet.h.makePair("Music");
    const QDir folder(QUILLSTOW_SCREENSHOTS);
    QVERIFY(folder.mkpath("."));

    const auto look = [&](const QString& name) {
        QCoreApplication::processEvents();
        for (auto* label : sheet.window.findChildren<QLabel*>()) {
            if (!label->isVisible() || label->wordWrap() || label->property("elides").toBool() ||
                label->text().isEmpty()) {
                continue;
            }
            QVERIFY2(label->sizeHint().width() <= label->width(),
                     qPrintable(name + ": cut off: " + label->text()));
        }
        for (auto* button : sheet.window.findChildren<QAbstractButton*>()) {
            if (!button->isVisible()) continue;
            QVERIFY2(button->sizeHint().width() <= button->width(),
                     qPrintable(name + ": cut off: " + button->text()));
        }
        const QRect heading = sheet.find("heading")->geometry();
        QVERIFY2(!heading.intersects(sheet.find("headerButton")->geometry()),
                 qPrintable(name + ": the heading runs into the button"));
        QVERIFY(sheet.window.grab().save(folder.filePath("add-backup-" + name + ".png")));
    };

    look("1-source");
    QVERIFY(sheet.dragOver({documents, photos}));
    look("1b-source-drop-targeted");
    QVERIFY(sheet.drop({documents, photos}));
    look("2-destination");
    sheet.chooseDestination(documents / "Inside");
    look("2b-destination-warning");
    sheet.chooseDestination(drive / "Quillstow");
    look("3-offsite-no-cloud-folder");
    sheet.clickButton("headerButton");
    makeFolder(sheet.home() / "Dropbox");
    sheet.chooseDestination(drive / "Quillstow");
    look("3b-offsite");
    sheet.click(sheet.row("Dropbox"));
    sheet.pickInPanel(sheet.home() / "Dropbox");
    look("4-confirm");
    QVERIFY(!sheet.manager.addPair(newPairOf(sheet.h.root / "x/Documents", drive, {}, {})));
    sheet.clickButton("addButton");
    look("4b-confirm-refused");
}

}  // namespace
}  // namespace quillstow::shell

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    quillstow::shell::AddBackupTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "AddBackupTest.moc"
