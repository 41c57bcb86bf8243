// The restore and recovery windows on the offscreen platform, driven as a user drives them
// (the filter, "Select All", the rows' boxes, the buttons and the folder dialog), over real
// temporary folders: a backup, a deletion archive and the folders restored into.

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QFileDialog>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTest>
#include <QTreeView>

#include "TestTree.hpp"
#include "shell/views/DeletedFilesWindow.hpp"
#include "shell/views/RestoreWindow.hpp"

namespace quillstow::shell {
namespace {

namespace fs = std::filesystem;
using testing::filesBelow;
using testing::makeFolder;
using testing::TemporaryFolder;
using testing::writeFile;
using State = RestoreWindowState;

// A pair "Work" from home/Work to the drive, and the folders a test fills.
struct Folders {
    TemporaryFolder root;
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

// What a user reads and clicks in either window, found by the names the frame gives them.
template <class Window>
struct Driver {
    template <typename... Arguments>
    explicit Driver(const Arguments&... arguments) : window(arguments...) {
        window.show();
    }
    ~Driver() { window.close(); }

    template <typename Widget = QWidget>
    Widget* find(const char* name) {
        return window.template findChild<Widget*>(name);
    }
    // The scan ends on its own thread; its result comes in through the event loop.
    bool scanned() {
        return QTest::qWaitFor([this] { return window.model().state() != State::loading; }, 10000);
    }
    bool restored() {
        return QTest::qWaitFor([this] { return !window.model().run().inProgress(); }, 10000);
    }
    QString shownPage() { return find<QStackedWidget>("pages")->currentWidget()->objectName(); }
    QString label(const char* name) { return find<QLabel>(name)->text(); }
    void filter(const QString& words) { find<QLineEdit>("filter")->setText(words); }
    void click(const char* name) {
        auto* button = find<QAbstractButton>(name);
        QVERIFY(button && button->isVisible() && button->isEnabled());
        QTest::mouseClick(button, Qt::LeftButton);
    }
    // Ticks the box of the shown row whose name column reads `name`.
    bool tick(const QString& name) {
        auto* model = find<QTreeView>("files")->model();
        for (int row = 0; row < model->rowCount(); ++row) {
            const QModelIndex index = model->index(row, 0);
            if (index.data().toString() != name) continue;
            return model->setData(index, Qt::Checked, Qt::CheckStateRole);
        }
        return false;
    }
    // The name column of the shown rows, headings included.
    QStringList rows() {
        auto* model = find<QTreeView>("files")->model();
        QStringList names;
        for (int row = 0; row < model->rowCount(); ++row)
            names << model->index(row, 0).data().toString();
        return names;
    }
    void pickInPanel(const fs::path& folder) {
        auto* panel = find<QFileDialog>("folderPanel");
        QVERIFY2(panel, "no folder dialog is open");
        panel->setDirectory(QString::fromStdString(folder.native()));
        static_cast<QDialog*>(panel)->accept();
    }
    // Saves what the window shows under build/screenshots/. Only the layout is brought up to
    // date: a task's result waiting in the queue would change the state being looked at.
    void look(const QString& name) {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
        const QDir folder(QUILLSTOW_SCREENSHOTS);
        QVERIFY(folder.mkpath("."));
        QVERIFY(window.grab().save(folder.filePath(name + ".png")));
    }

    Window window;
};

class RestoreWindowTest : public QObject {
    Q_OBJECT

  private slots:
    void restoreWindowGoesThroughItsStates();
    void selectAllActsOnTheShownFilesAndHiddenSelectionsAreRestored();
    void restoreToAChosenFolderPutsTheFilesThere();
    void aFileThatCannotBePlacedIsCountedAndTheOthersGoBack();
    void recoveryWindowGroupsByDayNewestFirstAndFiltersByRange();
    void aRecoveredFileGoesBackToItsOriginalPathAndTheArchiveStays();
    void aSharedArchiveGoesOnlyToAChosenFolder();
    void recoveryWindowWithNothingArchivedSaysSo();
    void thousandsOfFilesListInOrderWhileTheWindowAnswers();
    void theCancelButtonStopsTheRestoreBetweenFiles();
};

void RestoreWindowTest::restoreWindowGoesThroughItsStates() {
    Folders folders;
    writeFile(folders.backup / "track10.wav", std::string(2048, 'a'));
    writeFile(folders.backup / "track2.wav", "b");
    writeFile(folders.backup / "Photos/2021/a.jpg", "c");
    writeFile(folders.backup / ".quillstow-hashes.json", "{}");
    writeFile(folders.backup /
                  "Clients/Northwind Traders/2021 annual review/Final deliverables "
                  "for the board/Quarterly figures with every appendix.pdf",
              std::string(5'000'000, 'p'));

    Driver<RestoreWindow> restore(folders.pair);
    // The scan's result has not come in before the event loop runs.
    QCOMPARE(restore.shownPage(), QString("scanningPage"));
    restore.look("restore-1-scanning");
    QVERIFY(restore.scanned());
    QCOMPARE(restore.shownPage(), QString("listPage"));
    QCOMPARE(restore.rows(), (QStringList{"Quarterly figures with every appendix.pdf", "a.jpg",
                                          "track2.wav", "track10.wav"}));
    QCOMPARE(restore.label("fileCounter"), QString("4 files"));
    QCOMPARE(restore.label("selectedCounter"), QString("0 selected"));
    auto* toOriginal = restore.find<QPushButton>("restoreToOriginal");
    QVERIFY(!toOriginal->isEnabled() && !restore.find<QPushButton>("restoreTo")->isEnabled());
    QCOMPARE(toOriginal->toolTip(), QString("Select files to restore"));
    restore.look("restore-3-list");

    QVERIFY(restore.tick("track10.wav"));
    QVERIFY(toOriginal->isEnabled());
    QCOMPARE(toOriginal->toolTip(), QString("Restore selected files to their original location"));
    restore.look("restore-3b-list-one-selected");

    restore.filter("nothing like it");
    QCOMPARE(restore.shownPage(), QString("listPage"));
    QCOMPARE(restore.label("fileCounter"), QString("0 files"));
    QCOMPARE(restore.label("selectedCounter"), QString("1 selected"));
    auto* selectAll = restore.find<QCheckBox>("selectAll");
    QVERIFY(!selectAll->isChecked() && !selectAll->isEnabled());
    QVERIFY(restore.find("noMatch")->isVisible());
    restore.look("restore-4-filtered-to-nothing");
    restore.filter("");
    QVERIFY(!restore.find("noMatch")->isVisible());

    Folders none;
    QWidget owner;
    RestoreWindow owned(none.pair, &owner);
    QVERIFY(owned.isWindow());
    Driver<RestoreWindow> empty(none.pair);
    QVERIFY(empty.scanned());
    QCOMPARE(empty.shownPage(), QString("emptyPage"));
    QCOMPARE(empty.label("emptyTitle"), QString("No backed-up files found."));
    empty.look("restore-2-empty");
}

void RestoreWindowTest::selectAllActsOnTheShownFilesAndHiddenSelectionsAreRestored() {
    Folders folders;
    writeFile(folders.backup / "Photos/2021/a.jpg", "photo");
    writeFile(folders.backup / "Photos/2021/b.jpg", "photo b");
    writeFile(folders.backup / "notes.txt", "notes");
    writeFile(folders.backup / "plan.txt", "plan");
    Driver<RestoreWindow> restore(folders.pair);
    QVERIFY(restore.scanned());
    QVERIFY(restore.tick("notes.txt"));

    // "photo" matches through the path, not the name.
    restore.filter("photo");
    QCOMPARE(restore.rows(), (QStringList{"a.jpg", "b.jpg"}));
    restore.click("selectAll");
    QVERIFY(restore.find<QCheckBox>("selectAll")->isChecked());
    QCOMPARE(restore.label("selectedCounter"), QString("3 selected"));
    QCOMPARE(restore.label("fileCounter"), QString("2 files"));

    // Unticking every shown file leaves the hidden selection alone.
    restore.filter("b.jpg");
    restore.click("selectAll");
    QCOMPARE(restore.label("selectedCounter"), QString("2 selected"));

    restore.filter("");
    QVERIFY(!restore.find<QCheckBox>("selectAll")->isChecked());
    QCOMPARE(restore.label("fileCounter"), QString("4 files"));
    restore.click("restoreToOriginal");
    QVERIFY(restore.restored());
    QCOMPARE(filesBelow(folders.source),
             (std::map<std::string, std::string>{{"Photos/2021/a.jpg", "photo"},
                                                 {"notes.txt", "notes"}}));
}

void RestoreWindowTest::restoreToAChosenFolderPutsTheFilesThere() {
    Folders folders;
    writeFile(folders.backup / "a.txt", "a");
    writeFile(folders.backup / "deep/b.txt", "bb");
    const fs::path chosen = folders.root / "elsewhere";
    makeFolder(chosen);
    Driver<RestoreWindow> restore(folders.pair);
    QVERIFY(restore.scanned());
    restore.click("selectAll");
    restore.click("restoreTo");
    restore.pickInPanel(chosen);

    QVERIFY(restore.restored());
    QCOMPARE(filesBelow(chosen),
             (std::map<std::string, std::string>{{"a.txt", "a"}, {"deep/b.txt", "bb"}}));
    QVERIFY(filesBelow(folders.source).empty());
    QCOMPARE(restore.label("message"), QString("2 files restored successfully."));
    QVERIFY(!restore.find<QWidget>("progressRow")->isVisible());
    restore.look("restore-6-done");
}

void RestoreWindowTest::aFileThatCannotBePlacedIsCountedAndTheOthersGoBack() {
    Folders folders;
    writeFile(folders.backup / "a.txt", "a");
    writeFile(folders.backup / "blocked/b.txt", "b");
    writeFile(folders.backup / "c.txt", "c");
    // A file stands where the folder of b.txt would have to be made.
    writeFile(folders.source / "blocked", "mine");
    Driver<RestoreWindow> restore(folders.pair);
    QVERIFY(restore.scanned());
    restore.click("selectAll");
    restore.click("restoreToOriginal");

    // Until the task's outcome comes in, the window shows the restore under way.
    QVERIFY(restore.window.model().run().inProgress());
    QVERIFY(restore.find<QWidget>("progressRow")->isVisible());
    QVERIFY(restore.find<QWidget>("restoreBusy")->isVisible());
    QVERIFY(!restore.find<QWidget>("restoreToOriginal")->isVisible());
    QVERIFY(!restore.find<QWidget>("restoreTo")->isEnabled());
    QVERIFY(restore.label("progress").startsWith("Restoring 0 of 3 files"));
    restore.look("restore-5-restoring");

    QVERIFY(restore.restored());
    QCOMPARE(restore.label("message"), QString("Error: Restored 2 files. 1 file failed."));
    // The selection stays as it was, ready for another try.
    QCOMPARE(restore.label("selectedCounter"), QString("3 selected"));
    QVERIFY(restore.find<QWidget>("restoreToOriginal")->isEnabled());
    restore.look("restore-7-done-with-failures");
}

void RestoreWindowTest::recoveryWindowGroupsByDayNewestFirstAndFiltersByRange() {
    Folders folders;
    writeFile(folders.trash / "2026-03-01/docs/report.txt", "march");
    writeFile(folders.trash / "2026-03-04/docs/report.txt", "later");
    // Archived twice on one day: the later copy under the taken-name variant.
    writeFile(folders.trash / "2026-03-04/plan.txt", "morning");
    writeFile(folders.trash / "2026-03-04/plan-0A1B2C3D.txt", "afternoon");
    writeFile(folders.trash / "2026-03-02/photo.jpg", "p");

    Driver<DeletedFilesWindow> recover(folders.pair, std::vector{folders.pair});
    QCOMPARE(recover.shownPage(), QString("scanningPage"));
    recover.look("recover-1-scanning");
    QVERIFY(recover.scanned());
    QCOMPARE(recover.rows(), (QStringList{"Deleted on 2026-03-04", "report.txt", "plan.txt",
                                          "plan.txt", "Deleted on 2026-03-02", "photo.jpg",
                                          "Deleted on 2026-03-01", "report.txt"}));
    // The two copies of one day are told apart by their time; others show none.
    auto* rows = recover.find<QTreeView>("files")->model();
    QVERIFY(rows->index(2, FileRowsModel::time).data().toString().startsWith("Deleted at "));
    QVERIFY(rows->index(3, FileRowsModel::time).data().toString().startsWith("Deleted at "));
    QVERIFY(rows->index(1, FileRowsModel::time).data().toString().isEmpty());
    QCOMPARE(recover.label("fileCounter"), QString("5 files"));
    recover.look("recover-3-list");

    auto* first = recover.find<QComboBox>("firstDay");
    auto* last = recover.find<QComboBox>("lastDay");
    first->setCurrentIndex(first->findText("2026-03-02"));
    last->setCurrentIndex(last->findText("2026-03-02"));
    QCOMPARE(recover.rows(), (QStringList{"Deleted on 2026-03-02", "photo.jpg"}));
    recover.click("selectAll");
    QCOMPARE(recover.label("selectedCounter"), QString("1 selected"));
    last->setCurrentIndex(0);
    recover.filter("report");
    QCOMPARE(recover.rows(), (QStringList{"Deleted on 2026-03-04", "report.txt"}));
    recover.filter("nothing like it");
    QVERIFY(recover.rows().isEmpty());
    QVERIFY(!recover.find<QCheckBox>("selectAll")->isEnabled());
    recover.look("recover-4-filtered-to-nothing");
}

void RestoreWindowTest::aRecoveredFileGoesBackToItsOriginalPathAndTheArchiveStays() {
    Folders folders;
    writeFile(folders.trash / "2026-03-01/docs/report.txt", "march");
    writeFile(folders.trash / "2026-03-04/docs/report.txt", "later");
    writeFile(folders.trash / "2026-03-04/plan.txt", "plan");
    const auto archiveBefore = filesBelow(folders.trash);
    Driver<DeletedFilesWindow> recover(folders.pair, std::vector{folders.pair});
    QVERIFY(recover.scanned());
    // The older copy, from the day before it was deleted again.
    recover.filter("report");
    QCOMPARE(recover.rows().size(), 4);
    auto* rows = recover.find<QTreeView>("files")->model();
    QVERIFY(rows->setData(rows->index(3, 0), Qt::Checked, Qt::CheckStateRole));
    recover.click("restoreToOriginal");
    QVERIFY(recover.label("progress").startsWith("Restoring 0 of 1 file — "));
    recover.look("recover-5-restoring");
    QVERIFY(recover.restored());

    QCOMPARE(filesBelow(folders.source),
             (std::map<std::string, std::string>{{"docs/report.txt", "march"}}));
    QCOMPARE(filesBelow(folders.trash), archiveBefore);
    QCOMPARE(recover.label("message"), QString("1 file restored successfully."));
    recover.look("recover-6-done");
}

void RestoreWindowTest::aSharedArchiveGoesOnlyToAChosenFolder() {
    Folders folders;
    writeFile(folders.trash / "2026-03-04/plan.txt", "whose plan?");
    BackupPair other = folders.pair;
    other.id = Uuid::random();
    other.sourceURL = folders.source.parent_path() / "other source";
    Driver<DeletedFilesWindow> recover(folders.pair, std::vector{folders.pair, other});
    QVERIFY(recover.scanned());
    recover.click("selectAll");

    auto* toOriginal = recover.find<QPushButton>("restoreToOriginal");
    QVERIFY(!toOriginal->isEnabled());
    QVERIFY(toOriginal->toolTip().startsWith("Other backups to this location"));
    QVERIFY(recover.find<QPushButton>("restoreTo")->isEnabled());
    recover.window.model().restoreToOriginal();
    QVERIFY(!recover.window.model().run().inProgress());
    QVERIFY(filesBelow(folders.source).empty());
}

void RestoreWindowTest::recoveryWindowWithNothingArchivedSaysSo() {
    Folders folders;
    writeFile(folders.backup / "kept.txt", "a backup alone is no archive");
    Driver<DeletedFilesWindow> recover(folders.pair, std::vector{folders.pair});
    QVERIFY(recover.scanned());
    QCOMPARE(recover.shownPage(), QString("emptyPage"));
    QCOMPARE(recover.label("emptyTitle"), QString("No deleted files found."));
    recover.look("recover-2-empty");
}

void RestoreWindowTest::thousandsOfFilesListInOrderWhileTheWindowAnswers() {
    Folders folders;
    constexpr int count = 3000;
    for (int n = count; n >= 1; --n)
        writeFile(folders.backup / ("file" + std::to_string(n) + ".txt"), "x");
    QElapsedTimer clock;
    clock.start();
    Driver<RestoreWindow> restore(folders.pair);
    // The window is up before the backup is read.
    const qint64 shownAfter = clock.elapsed();
    QCOMPARE(restore.window.model().state(), State::loading);
    int turnsOfTheLoop = 0;
    while (restore.window.model().state() == State::loading && clock.elapsed() < 30000) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        ++turnsOfTheLoop;
    }
    const qint64 listedAfter = clock.elapsed();
    QVERIFY(turnsOfTheLoop > 1);
    QCOMPARE(restore.label("fileCounter"), QString("3000 files"));
    const QStringList rows = restore.rows();
    QCOMPARE(rows[1], QString("file2.txt"));  // the order is the listing's own test
    clock.restart();
    restore.filter("file99");
    const qint64 filteredAfter = clock.elapsed();
    QCOMPARE(restore.label("fileCounter"), QString("11 files"));
    qInfo(
        "3000 files: window shown after %lld ms, listed after %lld ms (%d turns of the "
        "event loop meanwhile), one filter keystroke %lld ms",
        shownAfter, listedAfter, turnsOfTheLoop, filteredAfter);
}

void RestoreWindowTest::theCancelButtonStopsTheRestoreBetweenFiles() {
    Folders folders;
    constexpr int count = 400;
    for (int n = 0; n < count; ++n)
        writeFile(folders.backup / ("f" + std::to_string(n)), std::string(4096, 'x'));
    Driver<RestoreWindow> restore(folders.pair);
    QVERIFY(restore.scanned());
    restore.click("selectAll");
    restore.click("restoreToOriginal");
    // Long before 400 flushed copies can be made.
    restore.click("cancel");
    QVERIFY(restore.restored());

    // No temporary and no partial file is the restorer's own test.
    const QString message = restore.label("message");
    QVERIFY2(message.startsWith("Restore cancelled. "), qPrintable(message));
    QVERIFY(filesBelow(folders.source).size() < std::size_t(count));
}

}  // namespace
}  // namespace quillstow::shell

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    // As on a desktop, whose platform theme finds the installed icon themes; the offscreen
    // platform looks nowhere.
    QIcon::setThemeSearchPaths(QIcon::themeSearchPaths() << "/usr/share/icons");
    QIcon::setThemeName("Adwaita");
    quillstow::shell::RestoreWindowTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "RestoreWindowTest.moc"
