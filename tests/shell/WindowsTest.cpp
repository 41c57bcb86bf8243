// The add-backup, restore, recovery and filing windows on the offscreen platform, driven as a
// user drives them (drops, the filter, "Select All", the rows' boxes, the name field, the tidy-up
// box, the buttons and the folder dialogs), against a real status manager in virtual time, over
// real temporary folders: sources and drives, a backup, a deletion archive, the folders restored
// into, finished projects, a real Trash, and real drives that are read-only or full.

#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTest>
#include <QTreeView>
#include <QUrl>

#include "../archive/ProjectFolders.hpp"
#include "../control/EngineHarness.hpp"
#include "PrivateMounts.hpp"
#include "Screenshots.hpp"
#include "TestTree.hpp"
#include "app/FilingServices.hpp"
#include "shell/views/AddBackupWindow.hpp"
#include "shell/views/DeletedFilesWindow.hpp"
#include "shell/views/RestoreWindow.hpp"
#include "views/FilingWindow.hpp"

namespace quillstow::shell {
namespace {

namespace fs = std::filesystem;
using testing::EngineHarness;
using testing::filesBelow;
using testing::makeFilmProject;
using testing::makeFolder;
using testing::readFile;
using testing::writeFile;
using Files = std::map<std::string, std::string>;
using Step = AddBackupStep;

QString qt(const std::string& text) {
    return QString::fromStdString(text);
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
    QString labelText(const char* name) { return find<QLabel>(name)->text(); }
    // A shown row of the page by its title.
    QWidget* row(const QString& title) {
        QCoreApplication::processEvents();
        for (auto* candidate : window.findChildren<QWidget*>("row"))
            if (candidate->accessibleName() == title && candidate->isVisible()) return candidate;
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
        QList<QUrl> urls;
        for (const auto& item : items)
            urls.push_back(QUrl::fromLocalFile(qt(item.native())));
        dragged.setUrls(urls);
        QDragEnterEvent enter(find("dropZone")->rect().center(), Qt::CopyAction, &dragged,
                              Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(find("dropZone"), &enter);
        return enter.isAccepted();
    }
    // Drops items as the drop zone hands them in, and waits until the sheet has read them.
    bool drop(const std::vector<fs::path>& items) {
        QSignalSpy read(&model(), &AddBackupModel::droppedItemsRead);
        model().dropItems(items);
        return read.wait(5000);
    }
    void pickInPanel(const fs::path& folder) {
        testing::pickInFolderPanel(window, folder);
        QCoreApplication::processEvents();
    }
    void chooseDestination(const fs::path& folder) {
        click(row("Choose any folder"));
        pickInPanel(folder);
    }
    // Nothing cut off in what the sheet shows, and the heading clear of its button.
    void look(const QString& name) {
        QCoreApplication::processEvents();
        testing::look(window, "add-backup-" + name);
        QVERIFY2(!find("heading")->geometry().intersects(find("headerButton")->geometry()),
                 qPrintable(name + ": the heading runs into the button"));
    }

    EngineHarness h;
    StatusManager manager;
    AddBackupWindow window;
    QMimeData dragged;
};

// A pair "Work" from home/Work to the drive, and the folders a test fills.
struct Folders {
    testing::TemporaryFolder root;
    fs::path source = root / "home/Work";
    fs::path backup = root / "drive/Quillstow/Work";
    fs::path trash = root / "drive/.Quillstow-Trash";
    BackupPair pair;

    Folders() {
        makeFolder(source);
        pair.name = "Work";
        pair.sourceURL = source;
        pair.destinationURL = root / "drive";
    }
};

// What a user reads and clicks in a window, found by the names the window gives them.
template <class Window>
struct Driver {
    template <typename... Arguments>
    explicit Driver(const Arguments&... arguments) : window(arguments...) {
        window.show();
    }

    template <typename Widget = QWidget>
    Widget* find(const char* name) {
        return window.template findChild<Widget*>(name);
    }
    // The scan ends on its own thread; its result comes in through the event loop.
    bool scanned() {
        return QTest::qWaitFor(
            [this] { return window.model().state() != RestoreWindowState::loading; });
    }
    bool restored() {
        return QTest::qWaitFor([this] { return !window.model().run().inProgress(); });
    }
    QString shownPage() { return find<QStackedWidget>("pages")->currentWidget()->objectName(); }
    QString label(const char* name) { return find<QLabel>(name)->text(); }
    bool isShown(const char* name) { return find(name)->isVisibleTo(&window); }
    void filter(const QString& words) { find<QLineEdit>("filter")->setText(words); }
    void click(const char* name) {
        auto* button = find<QAbstractButton>(name);
        QVERIFY2(button && button->isVisible() && button->isEnabled(), name);
        QTest::mouseClick(button, Qt::LeftButton);
    }
    QAbstractItemModel& rows() { return *find<QTreeView>("files")->model(); }
    // The name column of the shown rows, headings included.
    QStringList names() {
        QStringList names;
        for (int row = 0; row < rows().rowCount(); ++row)
            names << rows().index(row, 0).data().toString();
        return names;
    }
    bool tick(int row) {
        return rows().setData(rows().index(row, 0), Qt::Checked, Qt::CheckStateRole);
    }
    void look(const QString& name) { testing::look(window, name); }

    Window window;
};

// The program's filing services with a Trash of the test's own.
struct Filing {
    testing::TemporaryFolder root;
    FilingServices services{root / "home/Trash"};
    std::vector<fs::path> revealed;
};

// The filing window over them.
struct Flow : Filing, Driver<FilingWindow> {
    Flow()
        : Driver(services.makeModel(), [this](const fs::path& item) { revealed.push_back(item); }) {
    }

    // Picks `folder` in the dialog a button opened; nothing picked when it is empty.
    void pick(const char* button, const fs::path& folder) {
        click(button);
        if (!folder.empty()) return testing::pickInFolderPanel(window, folder);
        find<QFileDialog>("folderPanel")->reject();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    bool finished() {
        return QTest::qWaitFor(
            [this] { return window.model().step() == PromoteViewModel::Step::finished; }, 10000);
    }
};

}  // namespace

class WindowsTest : public QObject {
    Q_OBJECT

  private slots:
    void refusesEachUnsafeDestinationInItsWords();
    void droppedFoldersBecomePairsThatBackUpUntilARefusal();
    void restoreWindowGoesThroughItsStates();
    void selectAllActsOnTheShownFilesAndHiddenSelectionsAreRestored();
    void restoreToAChosenFolderPutsTheFilesThere();
    void recoveryGroupsByDayAndPutsTheChosenCopyBack();
    void aSharedArchiveGoesOnlyToAChosenFolder();
    void filesAPickedProjectTidiedUpAndShowsItFiled();
    void aDriveThatCannotTakeTheCopySaysWhyInItsOwnWords_data();
    void aDriveThatCannotTakeTheCopySaysWhyInItsOwnWords();
};

void WindowsTest::refusesEachUnsafeDestinationInItsWords() {
    const QString inside = "The destination can't be inside \"Pictures\".";
    const QString above = "\"Pictures\" can't be inside the destination.";
    const QString taken =
        "\"Pictures\" already backs up into this folder. Choose another destination or name.";
    // Below the test's folder unless absolute. One pair already mirrors elsewhere/Pictures into
    // drive; none: accepted.
    const struct {
        const char* name;
        std::vector<std::string> sources;
        const char* destination;
        QString words;
    } cases[] = {
        {"the source itself", {"home/Pictures"}, "home/Pictures", inside},
        {"inside the source", {"home/Pictures"}, "home/Pictures/Backups", inside},
        {"above the source", {"home/Pictures"}, "home", above},
        {"a system folder",
         {"home/Pictures"},
         "/usr/share",
         "Destination is a protected system folder. Choose a different destination."},
        {"another source into another pair's mirror", {"home/Pictures"}, "drive", taken},
        {"two sources of one name", {"home/Pictures", "other/Pictures"}, "other-drive", taken},
        {"the same folder again: a second pair", {"elsewhere/Pictures"}, "drive", ""},
        {"a drive that isn't plugged in", {"home/Pictures"}, "media/Missing Drive", ""},
        {"a neighbour whose name begins alike", {"home/Pictures"}, "home/Pictures2", ""},
    };
    const testing::TemporaryFolder root;
    for (const char* folder : {"home/Pictures", "home/Pictures2", "other/Pictures",
                               "elsewhere/Pictures", "drive", "other-drive"})
        makeFolder(root / folder);
    const std::vector<BackupPair> existing{
        newPairOf(root / "elsewhere/Pictures", root / "drive", std::nullopt, {})};
    for (const auto& c : cases) {
        std::vector<fs::path> sources;
        for (const auto& source : c.sources)
            sources.push_back(root / source);
        const auto words = validationWarningOf(sources, root / c.destination, existing);
        QVERIFY2(qt(words.value_or("")) == c.words, c.name);
    }
}

// Each step is saved under build/screenshots/ and looked at: nothing cut off.
void WindowsTest::droppedFoldersBecomePairsThatBackUpUntilARefusal() {
    Sheet sheet;
    const fs::path drafts = sheet.home() / "Drafts", drive = sheet.h.root / "drive";
    // A long name, and one that looks like markup and is shown as it stands.
    const fs::path photos = sheet.home() / "Pictures/Holidays <b>2 with a rather long folder name";
    writeFile(drafts / "chapter.txt", "one");
    writeFile(sheet.home() / "notes.txt", "a file, not a folder");
    makeFolder(photos);
    makeFolder(drive);
    sheet.h.makePair("Music");
    sheet.look("1-source");

    // Files alone, or items that are gone, leave the sheet at its first step.
    QVERIFY(sheet.drop({sheet.home() / "notes.txt", sheet.home() / "gone"}));
    QVERIFY(sheet.model().step() == Step::chooseSource && sheet.model().sources().empty());
    QVERIFY(sheet.dragOver({drafts, photos}));
    sheet.look("1b-source-drop-targeted");
    QVERIFY(sheet.drop({drafts, sheet.home() / "notes.txt", photos}));
    QCOMPARE(sheet.model().sources(), (std::vector<fs::path>{drafts, photos}));
    sheet.look("2-destination");
    sheet.chooseDestination(drafts);
    sheet.look("2b-destination-warning");
    makeFolder(sheet.home() / "Dropbox");
    sheet.chooseDestination(drive);
    QCOMPARE(sheet.model().step(), Step::chooseOffsite);
    sheet.look("3b-offsite");
    sheet.click(sheet.row("Dropbox"));
    sheet.pickInPanel(sheet.home() / "Dropbox");
    auto* add = sheet.find<QPushButton>("addButton");
    QCOMPARE(add->text(), QString("Add 2 Backups"));
    QVERIFY(add->isEnabled() && add->isDefault());
    sheet.look("4-confirm");

    // While the summary shows, another pair takes the second mirror folder: the first source
    // is added, the second stays with the reason.
    QVERIFY(
        !sheet.manager.addPair(newPairOf(sheet.h.root / "x" / photos.filename(), drive, {}, {})));
    sheet.click(add);
    const auto& pairs = sheet.h.store->pairs();
    QCOMPARE(pairs.size(), 3u);
    const BackupPair& added = pairs.back();
    QVERIFY(added.sourceURL == drafts && added.name == "Drafts" && added.destinationURL == drive);
    QCOMPARE(added.offsiteURL, std::optional<fs::path>(sheet.home() / "Dropbox"));
    QVERIFY(added.sourceBookmark && added.destinationBookmark && added.offsiteBookmark);
    QVERIFY(added.createdAt == sheet.h.wallClock.now());
    QVERIFY(sheet.window.isVisible());
    QCOMPARE(sheet.model().sources(), std::vector<fs::path>{photos});
    const QString words = "\"" + qt(photos.filename().native()) +
                          "\" already backs up into this folder. Choose another destination or "
                          "name.";
    QCOMPARE(sheet.labelText("validationWarning"), words);
    QCOMPARE(sheet.find<QLabel>("validationWarning")->textFormat(), Qt::PlainText);
    add = sheet.find<QPushButton>("addButton");
    QCOMPARE(add->text(), QString("Add This Backup"));
    QVERIFY(!add->isEnabled());
    sheet.look("4b-confirm-refused");
    sheet.window.close();  // adds nothing more
    QCOMPARE(sheet.h.store->pairs().size(), 3u);
    // The added pair's engine runs: the files arrive in its mirror.
    sheet.h.settle();
    QCOMPARE(testing::readFile(drive / "Quillstow/Drafts/chapter.txt"), std::string("one"));
}

void WindowsTest::restoreWindowGoesThroughItsStates() {
    Folders folders;
    writeFile(folders.backup / "track10.wav", std::string(2048, 'a'));
    writeFile(folders.backup / "track2.wav", "b");
    writeFile(folders.backup / ".quillstow-hashes.json", "{}");
    writeFile(folders.backup /
                  "Clients/Northwind Traders/2021 annual review/Final deliverables "
                  "for the board/Quarterly figures with every appendix.pdf",
              std::string(5'000'000, 'p'));
    Driver<RestoreWindow> restore(folders.pair);
    // The window is up before its scan's result has come in through the event loop.
    QCOMPARE(restore.shownPage(), QString("scanningPage"));
    restore.look("restore-1-scanning");
    QVERIFY(restore.scanned());
    QCOMPARE(restore.names(), (QStringList{"Quarterly figures with every appendix.pdf",
                                           "track2.wav", "track10.wav"}));
    QCOMPARE(restore.label("fileCounter"), QString("3 files"));
    auto* toOriginal = restore.find<QPushButton>("restoreToOriginal");
    QVERIFY(!toOriginal->isEnabled() && !restore.find<QPushButton>("restoreTo")->isEnabled());
    restore.look("restore-3-list");
    QVERIFY(restore.tick(2));
    QVERIFY(toOriginal->isEnabled());
    restore.look("restore-3b-list-one-selected");

    Folders none;
    Driver<RestoreWindow> empty(none.pair);
    QVERIFY(empty.scanned());
    QCOMPARE(empty.label("emptyTitle"), QString("No backed-up files found."));
    empty.look("restore-2-empty");
}

void WindowsTest::selectAllActsOnTheShownFilesAndHiddenSelectionsAreRestored() {
    Folders folders;
    writeFile(folders.backup / "Photos/2021/a.jpg", "photo");
    writeFile(folders.backup / "Photos/2021/b.jpg", "photo b");
    writeFile(folders.backup / "notes.txt", "notes");
    writeFile(folders.backup / "plan.txt", "plan");
    Driver<RestoreWindow> restore(folders.pair);
    QVERIFY(restore.scanned());
    QVERIFY(restore.tick(0));  // notes.txt
    // "photo" matches through the path, not the name.
    restore.filter("photo");
    QCOMPARE(restore.names(), (QStringList{"a.jpg", "b.jpg"}));
    restore.click("selectAll");
    QCOMPARE(restore.label("selectedCounter"), QString("3 selected"));
    // Unticking every shown file leaves the hidden selection alone.
    restore.filter("b.jpg");
    restore.click("selectAll");
    QCOMPARE(restore.label("selectedCounter"), QString("2 selected"));
    restore.filter("");
    QVERIFY(!restore.find<QCheckBox>("selectAll")->isChecked());

    restore.click("restoreToOriginal");
    // Until the task's outcome comes in, the window shows the restore under way.
    QVERIFY(restore.find("progressRow")->isVisible() && restore.find("restoreBusy")->isVisible());
    QVERIFY(!restore.find("restoreToOriginal")->isVisible() &&
            !restore.find("restoreTo")->isEnabled());
    QVERIFY(restore.label("progress").startsWith("Restoring 0 of 2 files"));
    restore.look("restore-5-restoring");
    QVERIFY(restore.restored());
    QCOMPARE(filesBelow(folders.source),
             (Files{{"Photos/2021/a.jpg", "photo"}, {"notes.txt", "notes"}}));
    // The selection stays, ready for another try.
    QCOMPARE(restore.label("selectedCounter"), QString("2 selected"));
    QVERIFY(restore.find("restoreToOriginal")->isEnabled());
}

void WindowsTest::restoreToAChosenFolderPutsTheFilesThere() {
    Folders folders;
    writeFile(folders.backup / "a.txt", "a");
    writeFile(folders.backup / "deep/b.txt", "bb");
    const fs::path chosen = folders.root / "elsewhere";
    makeFolder(chosen);
    Driver<RestoreWindow> restore(folders.pair);
    QVERIFY(restore.scanned());
    restore.click("selectAll");
    restore.click("restoreTo");
    testing::pickInFolderPanel(restore.window, chosen);
    QVERIFY(restore.restored());
    QCOMPARE(filesBelow(chosen), (Files{{"a.txt", "a"}, {"deep/b.txt", "bb"}}));
    QVERIFY(filesBelow(folders.source).empty());
    QCOMPARE(restore.label("message"), QString("2 files restored successfully."));
    QVERIFY(!restore.find("progressRow")->isVisible());
    restore.look("restore-6-done");
}

void WindowsTest::recoveryGroupsByDayAndPutsTheChosenCopyBack() {
    Folders folders;
    writeFile(folders.trash / "2026-03-01/docs/report.txt", "march");
    writeFile(folders.trash / "2026-03-04/docs/report.txt", "later");
    // Archived twice on one day: the later copy under the taken-name variant.
    writeFile(folders.trash / "2026-03-04/plan.txt", "morning");
    writeFile(folders.trash / "2026-03-04/plan-0A1B2C3D.txt", "afternoon");
    writeFile(folders.trash / "2026-03-02/photo.jpg", "p");
    const auto archiveBefore = filesBelow(folders.trash);
    Driver<DeletedFilesWindow> recover(folders.pair, std::vector{folders.pair});
    QCOMPARE(recover.shownPage(), QString("scanningPage"));
    recover.look("recover-1-scanning");
    QVERIFY(recover.scanned());
    QCOMPARE(recover.names(), (QStringList{"Deleted on 2026-03-04", "report.txt", "plan.txt",
                                           "plan.txt", "Deleted on 2026-03-02", "photo.jpg",
                                           "Deleted on 2026-03-01", "report.txt"}));
    recover.look("recover-3-list");

    recover.filter("nothing like it");
    recover.look("recover-4-filtered-to-nothing");
    // The older copy, from the day before it was deleted again.
    recover.filter("report");
    QCOMPARE(recover.names().size(), 4);
    QVERIFY(recover.tick(3));
    recover.click("restoreToOriginal");
    QVERIFY(recover.label("progress").startsWith("Restoring 0 of 1 file — "));
    recover.look("recover-5-restoring");
    QVERIFY(recover.restored());
    QCOMPARE(filesBelow(folders.source), (Files{{"docs/report.txt", "march"}}));
    QCOMPARE(filesBelow(folders.trash), archiveBefore);
    QCOMPARE(recover.label("message"), QString("1 file restored successfully."));
    recover.look("recover-6-done");
}

void WindowsTest::aSharedArchiveGoesOnlyToAChosenFolder() {
    Folders folders;
    writeFile(folders.trash / "2026-03-04/plan.txt", "whose plan?");
    BackupPair other = folders.pair;
    other.id = Uuid::random();
    other.sourceURL = folders.source.parent_path() / "other source";
    Driver<DeletedFilesWindow> recover(folders.pair, std::vector{folders.pair, other});
    QVERIFY(recover.scanned());
    recover.click("selectAll");
    auto* toOriginal = recover.find<QPushButton>("restoreToOriginal");
    QVERIFY(!toOriginal->isEnabled() && recover.find("restoreTo")->isEnabled());
    QVERIFY(toOriginal->toolTip().startsWith("Other backups to this location"));
    recover.window.model().restoreToOriginal();
    QVERIFY(!recover.window.model().run().inProgress());
    QVERIFY(filesBelow(folders.source).empty());
}

void WindowsTest::filesAPickedProjectTidiedUpAndShowsItFiled() {
    Flow f;
    const fs::path project = makeFilmProject(f.root / "work"), archive = f.root / "Archive";
    makeFolder(archive);
    f.look("filing-choose");
    f.pick("chooseProject", {});
    QCOMPARE(f.shownPage(), QString("choose"));  // a cancelled dialog changes nothing
    f.pick("chooseProject", project);
    QCOMPARE(f.shownPage(), QString("review"));
    QCOMPARE(f.label("projectTitle"), QString("Spring Campaign 2023"));
    QVERIFY(!f.isShown("warnings") && !f.isShown("goesTo"));  // a well-formed project
    QCOMPARE(f.find<QSpinBox>("year")->text(), QString("2023"));
    QVERIFY(!f.find<QPushButton>("fileIt")->isEnabled());
    f.pick("chooseArchive", archive);
    QCOMPARE(f.find<QLabel>("goesTo")->property("fullText").toString(),
             "Goes to " + QString::fromStdString((archive / "2023/Spring Campaign 2023").native()));
    auto* name = f.find<QLineEdit>("name");
    // The sentence is the box's label: a click on either ticks it, a second one unticks it.
    f.click("tidyUp");
    QTest::mouseClick(f.find<QLabel>("tidyUpLabel"), Qt::LeftButton);
    QVERIFY(!f.window.model().removeRebuildable());
    QTest::mouseClick(f.find<QLabel>("tidyUpLabel"), Qt::LeftButton);
    QVERIFY(f.find<QCheckBox>("tidyUp")->isChecked());
    f.look("filing-review-tidy-up");

    // Return in a field is "File It", the page's default action.
    QTest::keyClick(name, Qt::Key_Return);
    QVERIFY(f.finished());
    QCOMPARE(f.label("resultHeading"), QString("Filed"));
    QVERIFY(!f.find<QLabel>("resultIcon")->pixmap().isNull());
    const fs::path filed = archive / "2023/Spring Campaign 2023";
    QCOMPARE(readFile(filed / "6 Finals/Campaign.mp4"), std::string(1000, 'm'));
    QVERIFY(!fs::exists(project / "2 Project Files/Render Files"));
    f.look("filing-filed");
    f.click("showInFileManager");
    QCOMPARE(f.revealed, std::vector<fs::path>{filed});
    f.click("fileAnother");
    QCOMPARE(f.shownPage(), QString("choose"));
    QCOMPARE(f.window.model().archiveRoot(), std::optional<fs::path>(archive));
}

void WindowsTest::aDriveThatCannotTakeTheCopySaysWhyInItsOwnWords_data() {
    QTest::addColumn<bool>("readOnly");
    QTest::addColumn<QString>("sentence");
    QTest::newRow("read-only") << true
                               << "Couldn't create the folder for 2023: Read-only file system";
    QTest::newRow("full") << false
                          << "1 file couldn't be copied. The original has been left alone.";
}

void WindowsTest::aDriveThatCannotTakeTheCopySaysWhyInItsOwnWords() {
    QFETCH(bool, readOnly);
    QFETCH(QString, sentence);
    if (!testing::whyNoPrivateMounts().empty()) QSKIP(testing::whyNoPrivateMounts().c_str());
    // The drive outlives the window and the filing services.
    const testing::TemporaryFolder mounts;
    testing::TmpfsMount drive(mounts / "drive", 128 * 1024);
    if (readOnly) drive.remountReadOnly();
    Flow f;
    const fs::path project = f.root / "work/Big Finish 2023";
    testing::writeFile(project / "6 Finals/master.mov", std::string(512 * 1024, 'v'));
    testing::writeFile(project / "1 Documents/notes.txt", "notes");
    const auto original = filesBelow(project);
    f.pick("chooseProject", project);
    f.pick("chooseArchive", drive.path());
    f.click("fileIt");
    QVERIFY(f.finished());
    QCOMPARE(f.label("resultHeading"), QString("Couldn't file it"));
    QCOMPARE(f.label("resultSentence"), sentence);
    QVERIFY(!f.find<QLabel>("resultIcon")->pixmap().isNull());
    QVERIFY(!f.isShown("showInFileManager") && f.isShown("fileAnother"));
    QVERIFY(filesBelow(project) == original);
    f.look(readOnly ? "filing-read-only" : "filing-full");
}

}  // namespace quillstow::shell

int main(int argc, char** argv) {
    // Before any thread: the drives that are read-only or full are mounts of this test alone.
    quillstow::testing::enterPrivateMountNamespace();
    QApplication app(argc, argv);
    // As on a desktop, whose platform theme finds the installed icon themes.
    QIcon::setThemeSearchPaths(QIcon::themeSearchPaths() << "/usr/share/icons");
    QIcon::setThemeName("Adwaita");
    quillstow::shell::WindowsTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "WindowsTest.moc"
