// The window that files a finished project, on the offscreen platform, driven as a person drives
// it: the folder dialogs, the name and year fields, the tidy-up box and the buttons, over real
// projects in real temporary folders, a real Trash, and real drives that are read-only or full.

#include <unistd.h>

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QFileDialog>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTest>
#include <atomic>
#include <future>

#include "../archive/ProjectFolders.hpp"
#include "PrivateMounts.hpp"
#include "TestTree.hpp"
#include "app/FilingServices.hpp"
#include "app/QtMainQueue.hpp"
#include "copy/FaultyFileSystem.hpp"
#include "platform/FreedesktopTrash.hpp"
#include "support/Dates.hpp"
#include "support/ManualClocks.hpp"
#include "views/FilingWindow.hpp"

namespace quillstow::shell {
namespace {

namespace fs = std::filesystem;
using testing::filesBelow;
using testing::makeFilmProject;
using testing::makePhotoFolder;
using testing::readFile;
using testing::TemporaryFolder;
using testing::writeFile;
using Step = PromoteViewModel::Step;

// The real file operations, held at the first copy until the test lets the filing go on, and
// counted, so a quit can be seen to stop the copy.
class HeldFileSystem final : public testing::ForwardingFileSystem {
  public:
    HeldFileSystem() : ForwardingFileSystem(real_) {}

    void holdFirstCopy() { held_ = true; }
    bool reached() const { return reached_; }
    void letGo() { opened_.set_value(); }
    int copies() const { return copies_; }

    CopiedItem copyItem(const ItemRef& from, const ItemRef& to, std::stop_token stop,
                        std::optional<FileInfo::Type> known) override {
        wait();
        return ForwardingFileSystem::copyItem(from, to, stop, known);
    }
    std::size_t copyChunk(int from, int to, std::int64_t offset, std::size_t length) override {
        wait();
        return ForwardingFileSystem::copyChunk(from, to, offset, length);
    }

  private:
    void wait() {
        ++copies_;
        if (!held_.exchange(false)) return;
        reached_ = true;
        open_.wait();
    }

    LocalFileSystem real_;
    std::atomic<bool> held_ = false;
    std::atomic<bool> reached_ = false;
    std::atomic<int> copies_ = 0;
    std::promise<void> opened_;
    std::shared_future<void> open_ = opened_.get_future().share();
};

// A fresh window over a model with real services, on the Qt event loop, on 15 June 2031.
struct Flow {
    TemporaryFolder root;
    QtMainQueue mainQueue;
    ManualWallClock wallClock{*dates::parseISO8601("2031-06-15T12:00:00Z")};
    MonotonicClock clock;
    FreedesktopTrash trash{root / "home/Trash", ::getuid(), wallClock};
    HeldFileSystem fileSystem;
    std::shared_ptr<ProjectFiler> filer =
        std::make_shared<ProjectFiler>(fileSystem, ProjectManifestWriter(), wallClock, clock);
    TaskRunner tasks;  // after what the filings use
    std::vector<fs::path> revealed;
    FilingWindow window{PromoteViewModel::make({mainQueue, tasks, wallClock, trash, filer}),
                        [this](const fs::path& item) { revealed.push_back(item); }};

    Flow() { window.show(); }
    ~Flow() {
        window.close();
        tasks.waitUntilIdle();
    }

    template <typename Widget = QWidget>
    Widget* find(const char* name) {
        return window.findChild<Widget*>(name);
    }
    QString shownPage() { return find<QStackedWidget>("pages")->currentWidget()->objectName(); }
    QString label(const char* name) { return find<QLabel>(name)->text(); }
    bool isShown(const char* name) { return find(name)->isVisibleTo(&window); }
    void click(const char* name) {
        auto* button = find<QAbstractButton>(name);
        QVERIFY2(button && button->isVisible() && button->isEnabled(), name);
        QTest::mouseClick(button, Qt::LeftButton);
    }
    // Picks `folder` in the dialog a button opened; nothing picked when it is empty.
    void pick(const char* button, const fs::path& folder) {
        click(button);
        auto* panel = find<QFileDialog>("folderPanel");
        QVERIFY2(panel && panel->isVisible(), "no folder dialog is open");
        if (folder.empty()) {
            panel->reject();
        } else {
            panel->setDirectory(QString::fromStdString(folder.native()));
            // A folder that isn't there leaves the dialog where it was.
            QCOMPARE(panel->directory().absolutePath(), QString::fromStdString(folder.native()));
            static_cast<QDialog*>(panel)->accept();
        }
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    void type(const char* field, const QString& words) {
        auto* edit = find<QLineEdit>(field);
        if (!edit) edit = find<QSpinBox>(field)->findChild<QLineEdit*>();
        edit->selectAll();
        QTest::keyClicks(edit, words);
    }
    bool finished() {
        return QTest::qWaitFor([this] { return window.model().step() == Step::finished; }, 10000);
    }
    // Saves what the window shows under build/screenshots/, for a person to look at.
    void look(const QString& name) {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
        const QDir folder(QUILLSTOW_SCREENSHOTS);
        QVERIFY(folder.mkpath("."));
        QVERIFY(window.grab().save(folder.filePath("filing-" + name + ".png")));
    }
};

QString qt(const fs::path& path) {
    return QString::fromStdString(path.native());
}

}  // namespace

class FilingWindowTest : public QObject {
    Q_OBJECT

  private slots:
    void filesAPickedProjectAndShowsItVerified();
    void reviewSaysWhatIsOddAndFilesOnlyWithANameAndAnArchive();
    void tidyingUpMovesOnlyTheRebuildableFoldersToTheTrash();
    void aWindowClosedMidFilingLeavesItToRunTillTheQuit_data();
    void aWindowClosedMidFilingLeavesItToRunTillTheQuit();
    void everyScreenReadsOnADarkTheme();
    void aDriveThatCannotTakeTheCopySaysWhyInItsOwnWords_data();
    void aDriveThatCannotTakeTheCopySaysWhyInItsOwnWords();
};

void FilingWindowTest::filesAPickedProjectAndShowsItVerified() {
    Flow f;
    const fs::path project = makeFilmProject(f.root / "work");
    const auto original = filesBelow(project);
    QCOMPARE(f.shownPage(), QString("choose"));
    f.look("choose");

    f.pick("chooseProject", {});
    QCOMPARE(f.shownPage(), QString("choose"));  // a cancelled dialog changes nothing
    f.pick("chooseProject", project);
    QCOMPARE(f.shownPage(), QString("review"));
    QCOMPARE(f.label("projectTitle"), QString("Spring Campaign 2023"));
    QVERIFY(!f.isShown("warnings"));  // a well-formed project
    QCOMPARE(f.find<QLineEdit>("name")->text(), QString("Spring Campaign 2023"));
    QCOMPARE(f.find<QSpinBox>("year")->text(), QString("2023"));
    QVERIFY(!f.find<QPushButton>("fileIt")->isEnabled());
    QVERIFY(!f.isShown("goesTo"));
    QVERIFY(f.isShown("tidyUp"));
    QVERIFY(!f.find<QCheckBox>("tidyUp")->isChecked());

    const fs::path archive = f.root / "Archive";
    testing::makeFolder(archive);
    f.pick("chooseArchive", archive);
    QCOMPARE(f.find<QLabel>("archivePath")->property("fullText").toString(), qt(archive));
    QVERIFY(f.isShown("goesTo"));
    QCOMPARE(f.find<QLabel>("goesTo")->property("fullText").toString(),
             "Goes to " + qt(archive / "2023/Spring Campaign 2023"));
    f.look("review");

    f.click("fileIt");
    QCOMPARE(f.shownPage(), QString("filing"));
    QVERIFY(f.finished());
    QCOMPARE(f.shownPage(), QString("finished"));
    QCOMPARE(f.label("resultHeading"), QString("Filed"));
    QVERIFY(!f.find<QLabel>("resultIcon")->pixmap().isNull());
    QCOMPARE(f.label("resultSentence"),
             QString("Filed \"Spring Campaign 2023\" into 2023. All 8 files copied and checked — "
                     "the original is safe to clear whenever you like."));
    const fs::path filed = archive / "2023/Spring Campaign 2023";
    QVERIFY(fs::exists(filed / ".quillstow-manifest.json"));
    QCOMPARE(readFile(filed / "6 Finals/Campaign.mp4"), std::string(1000, 'm'));
    QVERIFY(filesBelow(project) == original);
    f.look("filed");

    f.click("showInFileManager");
    QCOMPARE(f.revealed, std::vector<fs::path>{filed});
    f.click("fileAnother");
    QCOMPARE(f.shownPage(), QString("choose"));
    QCOMPARE(f.window.model().archiveRoot(), std::optional<fs::path>(archive));
}

void FilingWindowTest::reviewSaysWhatIsOddAndFilesOnlyWithANameAndAnArchive() {
    Flow f;
    f.pick("chooseProject", makePhotoFolder(f.root / "work"));
    QVERIFY(f.isShown("warnings"));
    QCOMPARE(f.label("warningLines"),
             QString("• There's nothing in the finals folder. This project may not be finished "
                     "yet.\n"
                     "• 2 files are sitting loose at the top instead of in one of the numbered "
                     "folders.\n"
                     "• Missing 1 Documents, 2 Project Files, 3 Media, 4 Renders, 5 Drafts, 6 "
                     "Finals."));
    QVERIFY(!f.isShown("tidyUp"));  // nothing rebuildable
    QCOMPARE(f.find<QSpinBox>("year")->value(), 2024);
    f.look("review-heads-up");

    f.pick("chooseArchive", f.root.path());
    f.type("name", "   ");
    QVERIFY(!f.find<QPushButton>("fileIt")->isEnabled());
    QVERIFY(!f.isShown("goesTo"));
    QTest::keyClick(f.find<QLineEdit>("name"), Qt::Key_Return);
    QCOMPARE(f.shownPage(), QString("review"));  // nothing to file under
    f.type("name", " Lookbook ");
    QVERIFY(f.find<QPushButton>("fileIt")->isEnabled());
    f.type("year", "1989");
    QCOMPARE(f.window.model().year(), 2024);  // not a year the field takes
    f.type("year", "2025");
    QCOMPARE(f.window.model().year(), 2025);
    QCOMPARE(f.find<QLabel>("goesTo")->property("fullText").toString(),
             "Goes to " + qt(f.root / "2025/ Lookbook "));

    // Return in a field is "File It", the page's default action.
    QTest::keyClick(f.find<QLineEdit>("name"), Qt::Key_Return);
    QVERIFY(f.finished());
    QCOMPARE(f.label("resultHeading"), QString("Filed"));
    QVERIFY(fs::exists(f.root / "2025/Lookbook/IMG_0001.jpg"));  // filed under the name trimmed
}

void FilingWindowTest::tidyingUpMovesOnlyTheRebuildableFoldersToTheTrash() {
    Flow f;
    const fs::path project = makeFilmProject(f.root / "work");
    f.pick("chooseProject", project);
    f.pick("chooseArchive", f.root / "work");
    QCOMPARE(f.label("tidyUpLabel").toStdString(),
             ProjectSlimmer::summary(*f.window.model().rebuildable()));
    // The sentence is the box's label: a click on either ticks it, and a second one unticks it.
    f.click("tidyUp");
    QVERIFY(f.window.model().removeRebuildable());
    QTest::mouseClick(f.find<QLabel>("tidyUpLabel"), Qt::LeftButton);
    QVERIFY(!f.window.model().removeRebuildable());
    QTest::mouseClick(f.find<QLabel>("tidyUpLabel"), Qt::LeftButton);
    QVERIFY(f.find<QCheckBox>("tidyUp")->isChecked());
    f.look("review-tidy-up");
    f.click("fileIt");
    QVERIFY(f.finished());
    QCOMPARE(f.label("resultHeading"), QString("Filed"));

    const fs::path trash = f.root / "home/Trash";
    QCOMPARE(readFile(trash / "files/Render Files/b.mov"), std::string("defgh"));
    QCOMPARE(readFile(trash / "files/Media Cache/index.cfa"), std::string("1234567"));
    QVERIFY(!fs::exists(project / "2 Project Files/Render Files"));
    QVERIFY(!fs::exists(project / "2 Project Files/Old Cut/Media Cache"));
    QCOMPARE(readFile(project / "2 Project Files/Edit.kdenlive"), std::string("<mlt/>"));
    QVERIFY(fs::exists(project / "2 Project Files/Old Cut"));
    const fs::path filed = f.root / "work/2023/Spring Campaign 2023";
    QVERIFY(!fs::exists(filed / "2 Project Files/Render Files"));
    QCOMPARE(readFile(filed / "3 Media/A001.mov"), std::string(3000, 'f'));
}

void FilingWindowTest::aWindowClosedMidFilingLeavesItToRunTillTheQuit_data() {
    QTest::addColumn<bool>("quits");
    QTest::newRow("it runs to its end") << false;
    QTest::newRow("the program quits") << true;
}

void FilingWindowTest::aWindowClosedMidFilingLeavesItToRunTillTheQuit() {
    QFETCH(bool, quits);
    TemporaryFolder root;
    HeldFileSystem fileSystem;
    auto services = std::make_unique<FilingServices>(root / "home/Trash", &fileSystem);
    const fs::path project = makeFilmProject(root / "work");
    const auto original = filesBelow(project);
    testing::makeFolder(root / "Archive");
    const fs::path filed = root / "Archive/2023/Spring Campaign 2023";

    QPointer<FilingWindow> first = new FilingWindow(services->makeModel(), [](const fs::path&) {});
    first->setAttribute(Qt::WA_DeleteOnClose);
    first->show();
    first->model().choose(project);
    first->model().chooseArchive(root / "Archive");
    fileSystem.holdFirstCopy();
    QTest::mouseClick(first->findChild<QPushButton*>("fileIt"), Qt::LeftButton);
    QVERIFY(QTest::qWaitFor([&] { return fileSystem.reached(); }, 10000));
    QCoreApplication::processEvents();
    auto* page = first->findChild<QStackedWidget*>("pages")->currentWidget();
    QCOMPARE(page->objectName(), QString("filing"));
    QVERIFY(!page->findChild<QProgressBar*>("progress")->isHidden());
    QVERIFY(!page->findChild<QLabel*>("progressLabel")->text().isEmpty());
    QVERIFY2(page->findChildren<QPushButton*>().isEmpty(), "no way out of filing but its end");
    if (!quits)
        QVERIFY(first->grab().save(QDir(QUILLSTOW_SCREENSHOTS).filePath("filing-copying.png")));

    first->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!first);
    // Opened again, the window starts a fresh flow while the first filing runs on.
    FilingWindow second(services->makeModel(), [](const fs::path&) {});
    second.show();
    QCOMPARE(second.findChild<QStackedWidget*>("pages")->currentWidget()->objectName(),
             QString("choose"));
    QVERIFY(!second.model().archiveRoot());

    const int copiesBefore = fileSystem.copies();
    if (quits) services->stopFilings();
    fileSystem.letGo();
    if (quits) {
        services.reset();  // waits for the filing
        QVERIFY2(fileSystem.copies() - copiesBefore <= 1, "the copy went on after the quit");
        QVERIFY(!fs::exists(filed));
        QVERIFY(testing::holdsOnlyHidden(root / "Archive/2023"));
    } else {
        QVERIFY(
            QTest::qWaitFor([&] { return fs::exists(filed / ".quillstow-manifest.json"); }, 10000));
        services.reset();
        QCOMPARE(readFile(filed / "6 Finals/Campaign.mp4"), std::string(1000, 'm'));
    }
    QVERIFY(filesBelow(project) == original);
    QCOMPARE(second.model().step(), Step::choose);
}

void FilingWindowTest::everyScreenReadsOnADarkTheme() {
    const QPalette light = QApplication::palette();
    QPalette dark;
    dark.setColor(QPalette::Window, QColor(0x24, 0x24, 0x24));
    dark.setColor(QPalette::WindowText, QColor(0xee, 0xee, 0xee));
    dark.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x1e));
    dark.setColor(QPalette::Text, QColor(0xee, 0xee, 0xee));
    dark.setColor(QPalette::Button, QColor(0x33, 0x33, 0x33));
    dark.setColor(QPalette::ButtonText, QColor(0xee, 0xee, 0xee));
    dark.setColor(QPalette::PlaceholderText, QColor(0x99, 0x99, 0x99));
    QApplication::setPalette(dark);
    {
        Flow f;
        f.pick("chooseProject", makePhotoFolder(f.root / "work"));
        f.pick("chooseArchive", f.root.path());
        // The small print stays readable: lighter than the background, darker than the text.
        const QColor faint =
            f.find<QLabel>("goesTo")->palette().color(f.find<QLabel>("goesTo")->foregroundRole());
        QVERIFY(faint.lightness() > dark.color(QPalette::Window).lightness() + 60);
        f.look("dark-review");
        f.click("fileIt");
        QVERIFY(f.finished());
        f.look("dark-filed");
    }
    QApplication::setPalette(light);
}

void FilingWindowTest::aDriveThatCannotTakeTheCopySaysWhyInItsOwnWords_data() {
    QTest::addColumn<bool>("readOnly");
    QTest::addColumn<QString>("sentence");
    QTest::newRow("read-only") << true
                               << "Couldn't create the folder for 2023: Read-only file system";
    QTest::newRow("full") << false
                          << "1 file couldn't be copied. The original has been left alone.";
}

void FilingWindowTest::aDriveThatCannotTakeTheCopySaysWhyInItsOwnWords() {
    QFETCH(bool, readOnly);
    QFETCH(QString, sentence);
    if (!testing::whyNoPrivateMounts().empty()) QSKIP(testing::whyNoPrivateMounts().c_str());
    Flow f;
    const fs::path project = f.root / "work/Big Finish 2023";
    writeFile(project / "6 Finals/master.mov", std::string(512 * 1024, 'v'));
    writeFile(project / "1 Documents/notes.txt", "notes");
    const auto original = filesBelow(project);
    testing::TmpfsMount drive(f.root / "drive", 128 * 1024);
    if (readOnly) drive.remountReadOnly();

    f.pick("chooseProject", project);
    f.pick("chooseArchive", drive.path());
    f.click("fileIt");
    QVERIFY(f.finished());
    QCOMPARE(f.label("resultHeading"), QString("Couldn't file it"));
    QCOMPARE(f.label("resultSentence"), sentence);
    QVERIFY(!f.find<QLabel>("resultIcon")->pixmap().isNull());
    QVERIFY(!f.isShown("showInFileManager"));
    QVERIFY(f.isShown("fileAnother"));
    QVERIFY(filesBelow(project) == original);
    f.look(readOnly ? "read-only" : "full");
    f.window.close();
    f.tasks.waitUntilIdle();
}

}  // namespace quillstow::shell

int main(int argc, char** argv) {
    // Before any thread: the drives that are read-only or full are mounts of this test alone.
    quillstow::testing::enterPrivateMountNamespace();
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    quillstow::shell::FilingWindowTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "FilingWindowTest.moc"
