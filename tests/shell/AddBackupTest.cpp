// The add-backup sheet on the offscreen platform, driven as a user drives it (drops, the folder
// dialog, the rows and buttons), against a real status manager and store in virtual time over
// real temporary folders; and the decisions behind it as tables.

#include <QApplication>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QUrl>

#include "../control/EngineHarness.hpp"
#include "Screenshots.hpp"
#include "shell/views/AddBackupWindow.hpp"

namespace quillstow::shell {
namespace {

namespace fs = std::filesystem;
using testing::EngineHarness;
using testing::makeFolder;
using testing::writeFile;
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

class AddBackupTest : public QObject {
    Q_OBJECT

  private slots:
    void refusesEachUnsafeDestinationInItsWords();
    void droppedFoldersBecomePairsThatBackUpUntilARefusal();
};

void AddBackupTest::refusesEachUnsafeDestinationInItsWords() {
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
void AddBackupTest::droppedFoldersBecomePairsThatBackUpUntilARefusal() {
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

}  // namespace
}  // namespace quillstow::shell

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    quillstow::shell::AddBackupTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "AddBackupTest.moc"
