// The restore and recovery windows on the offscreen platform, driven as a user drives them
// (the filter, "Select All", the rows' boxes, the buttons and the folder dialog), over real
// temporary folders: a backup, a deletion archive and the folders restored into.

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTest>
#include <QTreeView>

#include "Screenshots.hpp"
#include "TestTree.hpp"
#include "shell/views/DeletedFilesWindow.hpp"
#include "shell/views/RestoreWindow.hpp"

namespace quillstow::shell {
namespace {

namespace fs = std::filesystem;
using testing::filesBelow;
using testing::writeFile;
using Files = std::map<std::string, std::string>;

// A pair "Work" from home/Work to the drive, and the folders a test fills.
struct Folders {
    testing::TemporaryFolder root;
    fs::path source = root / "home/Work";
    fs::path backup = root / "drive/Quillstow/Work";
    fs::path trash = root / "drive/.Quillstow-Trash";
    BackupPair pair;

    Folders() {
        testing::makeFolder(source);
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

}  // namespace

class RestoreWindowTest : public QObject {
    Q_OBJECT

  private slots:
    void restoreWindowGoesThroughItsStates();
    void selectAllActsOnTheShownFilesAndHiddenSelectionsAreRestored();
    void restoreToAChosenFolderPutsTheFilesThere();
    void recoveryGroupsByDayAndPutsTheChosenCopyBack();
    void aSharedArchiveGoesOnlyToAChosenFolder();
};

void RestoreWindowTest::restoreWindowGoesThroughItsStates() {
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

    restore.filter("nothing like it");
    QCOMPARE(restore.label("fileCounter"), QString("0 files"));
    QCOMPARE(restore.label("selectedCounter"), QString("1 selected"));
    QVERIFY(!restore.find<QCheckBox>("selectAll")->isEnabled());
    QVERIFY(restore.find("noMatch")->isVisible());
    restore.look("restore-4-filtered-to-nothing");

    Folders none;
    Driver<RestoreWindow> empty(none.pair);
    QVERIFY(empty.scanned());
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

void RestoreWindowTest::restoreToAChosenFolderPutsTheFilesThere() {
    Folders folders;
    writeFile(folders.backup / "a.txt", "a");
    writeFile(folders.backup / "deep/b.txt", "bb");
    const fs::path chosen = folders.root / "elsewhere";
    testing::makeFolder(chosen);
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

void RestoreWindowTest::recoveryGroupsByDayAndPutsTheChosenCopyBack() {
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

    auto* first = recover.find<QComboBox>("firstDay");
    auto* last = recover.find<QComboBox>("lastDay");
    first->setCurrentIndex(first->findText("2026-03-02"));
    last->setCurrentIndex(last->findText("2026-03-02"));
    QCOMPARE(recover.names(), (QStringList{"Deleted on 2026-03-02", "photo.jpg"}));
    first->setCurrentIndex(0);
    last->setCurrentIndex(0);
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
    QVERIFY(!toOriginal->isEnabled() && recover.find("restoreTo")->isEnabled());
    QVERIFY(toOriginal->toolTip().startsWith("Other backups to this location"));
    recover.window.model().restoreToOriginal();
    QVERIFY(!recover.window.model().run().inProgress());
    QVERIFY(filesBelow(folders.source).empty());
}

}  // namespace quillstow::shell

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    // As on a desktop, whose platform theme finds the installed icon themes.
    QIcon::setThemeSearchPaths(QIcon::themeSearchPaths() << "/usr/share/icons");
    QIcon::setThemeName("Adwaita");
    quillstow::shell::RestoreWindowTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "RestoreWindowTest.moc"
