// The window that files a finished project, on the offscreen platform, driven as a person drives
// it: the folder dialogs, the name field, the tidy-up box and the buttons, over real projects in
// real temporary folders, a real Trash, and real drives that are read-only or full.

#include <QApplication>
#include <QCheckBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTest>

#include "../archive/ProjectFolders.hpp"
#include "PrivateMounts.hpp"
#include "Screenshots.hpp"
#include "TestTree.hpp"
#include "app/FilingServices.hpp"
#include "views/FilingWindow.hpp"

namespace quillstow::shell {
namespace {

namespace fs = std::filesystem;
using testing::filesBelow;
using testing::makeFilmProject;
using testing::makePhotoFolder;
using testing::readFile;
using Step = PromoteViewModel::Step;

// The program's filing services with a Trash of the test's own, and a window over them.
struct Flow {
    testing::TemporaryFolder root;
    FilingServices services{root / "home/Trash"};
    std::vector<fs::path> revealed;
    FilingWindow window{services.makeModel(),
                        [this](const fs::path& item) { revealed.push_back(item); }};

    Flow() { window.show(); }

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
        if (!folder.empty()) return testing::pickInFolderPanel(window, folder);
        find<QFileDialog>("folderPanel")->reject();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    bool finished() {
        return QTest::qWaitFor([this] { return window.model().step() == Step::finished; }, 10000);
    }
    void look(const QString& name) { testing::look(window, "filing-" + name); }
};

}  // namespace

class FilingWindowTest : public QObject {
    Q_OBJECT

  private slots:
    void filesAPickedProjectTidiedUpAndShowsItFiled();
    void everyScreenReadsOnADarkTheme();
    void aDriveThatCannotTakeTheCopySaysWhyInItsOwnWords_data();
    void aDriveThatCannotTakeTheCopySaysWhyInItsOwnWords();
};

void FilingWindowTest::filesAPickedProjectTidiedUpAndShowsItFiled() {
    Flow f;
    const fs::path project = makeFilmProject(f.root / "work"), archive = f.root / "Archive";
    testing::makeFolder(archive);
    f.look("choose");
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
    f.look("review-tidy-up");

    // Return in a field is "File It", the page's default action.
    QTest::keyClick(name, Qt::Key_Return);
    QVERIFY(f.finished());
    QCOMPARE(f.label("resultHeading"), QString("Filed"));
    QVERIFY(!f.find<QLabel>("resultIcon")->pixmap().isNull());
    const fs::path filed = archive / "2023/Spring Campaign 2023";
    QCOMPARE(readFile(filed / "6 Finals/Campaign.mp4"), std::string(1000, 'm'));
    QVERIFY(!fs::exists(project / "2 Project Files/Render Files"));
    f.look("filed");
    f.click("showInFileManager");
    QCOMPARE(f.revealed, std::vector<fs::path>{filed});
    f.click("fileAnother");
    QCOMPARE(f.shownPage(), QString("choose"));
    QCOMPARE(f.window.model().archiveRoot(), std::optional<fs::path>(archive));
}

void FilingWindowTest::everyScreenReadsOnADarkTheme() {
    const QPalette light = QApplication::palette();
    QPalette dark;
    for (const auto& [role, grey] : {std::pair{QPalette::Window, 0x24},
                                     {QPalette::Base, 0x1e},
                                     {QPalette::Button, 0x33},
                                     {QPalette::PlaceholderText, 0x99}})
        dark.setColor(role, QColor(grey, grey, grey));
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        dark.setColor(role, QColor(0xee, 0xee, 0xee));
    QApplication::setPalette(dark);
    {
        Flow f;
        f.pick("chooseProject", makePhotoFolder(f.root / "work"));
        // What is odd about the project is said; there is nothing to tidy up.
        QVERIFY(f.isShown("warnings") && !f.label("warningLines").isEmpty());
        QVERIFY(!f.isShown("tidyUp"));
        f.pick("chooseArchive", f.root.path());
        // The small print stays readable: lighter than the background.
        auto* goesTo = f.find<QLabel>("goesTo");
        QVERIFY(goesTo->palette().color(goesTo->foregroundRole()).lightness() >
                dark.color(QPalette::Window).lightness() + 60);
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
    f.look(readOnly ? "read-only" : "full");
}

}  // namespace quillstow::shell

int main(int argc, char** argv) {
    // Before any thread: the drives that are read-only or full are mounts of this test alone.
    quillstow::testing::enterPrivateMountNamespace();
    QApplication app(argc, argv);
    quillstow::shell::FilingWindowTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "FilingWindowTest.moc"
