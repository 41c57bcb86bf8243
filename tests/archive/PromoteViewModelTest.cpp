// The filing flow's model: its steps in order from a picked folder to the result and back, what
// "File It" needs, the tidy-up before the copy, the program's quit, and a window that closes
// mid-filing.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <future>

#include "ProjectFolders.hpp"
#include "TestTree.hpp"
#include "archive/PromoteViewModel.hpp"
#include "copy/FileSystem.hpp"
#include "platform/FreedesktopTrash.hpp"
#include "support/Dates.hpp"
#include "support/FileInfo.hpp"
#include "support/VirtualMainQueue.hpp"

namespace quillstow {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using Step = PromoteViewModel::Step;
namespace fs = std::filesystem;

struct Flow {
    TemporaryFolder root;
    ManualClock clock;
    VirtualMainQueue mainQueue{clock};
    ManualWallClock wallClock{*dates::parseISO8601("2031-06-15T12:00:00Z")};
    FreedesktopTrash trash{root / "home/Trash", ::getuid(), wallClock};
    LocalFileSystem fileSystem;
    std::shared_ptr<ProjectFiler> filer =
        std::make_shared<ProjectFiler>(fileSystem, ProjectManifestWriter(), wallClock, clock);
    TaskRunner tasks;  // after what the tasks use
    std::shared_ptr<PromoteViewModel> model =
        PromoteViewModel::make({mainQueue, tasks, wallClock, trash, filer});
    std::vector<Step> steps{model->step()};
    std::vector<std::string> labels;
    Subscription subscription = model->observe([this] {
        if (steps.back() != model->step()) steps.push_back(model->step());
        if (!model->progressLabel().empty() &&
            (labels.empty() || labels.back() != model->progressLabel())) {
            labels.push_back(model->progressLabel());
        }
    });

    bool runUntilFinished() {
        return mainQueue.runUntil([&] { return model->step() == Step::finished; });
    }
};

// Holds a filing between its copy and its proof until the test lets it go.
struct Gate {
    std::promise<void> reached;
    std::promise<void> opened;
    std::shared_future<void> open = opened.get_future().share();

    ProjectFiler::BeforeProof hook() {
        return [this](const fs::path&) {
            reached.set_value();
            open.wait();
        };
    }
};

TEST(PromoteViewModel, WalksFromChoosingThroughFilingToTheResultAndBack) {
    Flow f;
    const auto project = makeFilmProject(f.root / "work");
    f.model->choose(project);
    EXPECT_EQ(f.model->step(), Step::review);
    EXPECT_EQ(f.model->name(), "Spring Campaign 2023");
    EXPECT_EQ(f.model->year(), 2023);
    ASSERT_TRUE(f.model->rebuildable());
    EXPECT_EQ(f.model->rebuildable()->items.size(), 2u);
    EXPECT_FALSE(f.model->removeRebuildable());
    EXPECT_FALSE(f.model->canFile()) << "no archive folder yet";
    EXPECT_EQ(f.model->destinationPreview(), "");

    f.model->chooseArchive(f.root / "Archive");
    EXPECT_TRUE(f.model->canFile());
    EXPECT_EQ(f.model->destinationPreview(),
              (f.root / "Archive/2023/Spring Campaign 2023").native());
    f.model->setRemoveRebuildable(true);
    f.model->file();
    EXPECT_EQ(f.model->step(), Step::filing);
    ASSERT_TRUE(f.runUntilFinished());

    EXPECT_TRUE(f.model->isSuccess()) << f.model->resultSentence();
    EXPECT_EQ(f.model->progress(), 1.0);
    EXPECT_THAT(f.model->resultSentence(),
                StartsWith("Filed \"Spring Campaign 2023\" into 2023. All 4 files"));
    EXPECT_FALSE(
        files::exists(f.root / "Archive/2023/Spring Campaign 2023/2 Project Files/Render Files"));
    EXPECT_FALSE(files::exists(project / "2 Project Files/Render Files")) << "in the Trash";
    EXPECT_TRUE(files::exists(f.root / "home/Trash/files/Render Files"));
    EXPECT_EQ(f.labels.front(), "Tidying up files your apps can rebuild…");

    f.model->reset();
    EXPECT_THAT(f.steps, ElementsAre(Step::choose, Step::review, Step::filing, Step::finished,
                                     Step::choose));
    EXPECT_EQ(f.model->year(), 2031) << "the current year of the model's day";
    EXPECT_FALSE(f.model->project());
    EXPECT_FALSE(f.model->outcome());
    EXPECT_EQ(f.model->name(), "");
    EXPECT_EQ(f.model->archiveRoot(), f.root / "Archive") << "kept for the next project";
}

TEST(PromoteViewModel, FilesOnlyWithANameAndTakesOnlyPlausibleYears) {
    Flow f;
    writeFile(f.root / "Odds and Ends/6 Finals/a.txt", "a");
    f.model->choose(f.root / "Odds and Ends");
    EXPECT_EQ(f.model->year(), 2031) << "no year in the name";
    EXPECT_THAT(*f.model->rebuildable(), Field(&ProjectSlimmer::Report::items, IsEmpty()));
    f.model->chooseArchive(f.root / "Archive");

    f.model->setName(" \t ");
    EXPECT_FALSE(f.model->canFile());
    f.model->file();
    EXPECT_EQ(f.model->step(), Step::review) << "nothing to file under";

    EXPECT_FALSE(f.model->setYear(1989));
    EXPECT_FALSE(f.model->setYear(2101));
    EXPECT_TRUE(f.model->setYear(2100));
    EXPECT_EQ(f.model->year(), 2100);

    f.model->setName("  Odds ");
    EXPECT_EQ(f.model->destinationPreview(), (f.root / "Archive/2100/  Odds ").native());
    f.model->file();
    ASSERT_TRUE(f.runUntilFinished());
    EXPECT_TRUE(f.model->isSuccess()) << f.model->resultSentence();
    EXPECT_TRUE(files::exists(f.root / "Archive/2100/Odds/6 Finals/a.txt")) << "filed trimmed";
}

TEST(PromoteViewModel, EndsAFilingStoppedByTheQuitOnTheFinishedScreenWithNothingFiled) {
    Flow f;
    Gate gate;
    f.filer->setBeforeProof(gate.hook());
    const auto project = makeFilmProject(f.root / "work");
    f.model->choose(project);
    f.model->chooseArchive(f.root / "Archive");
    f.model->file();
    gate.reached.get_future().wait();
    f.model->reset();
    EXPECT_EQ(f.model->step(), Step::filing) << "no way out of filing but its end";
    f.tasks.cancelAll();
    gate.opened.set_value();
    ASSERT_TRUE(f.runUntilFinished());

    EXPECT_FALSE(f.model->isSuccess());
    EXPECT_EQ(f.model->resultSentence(),
              "Couldn't copy \"Spring Campaign 2023\": The operation was cancelled. The original "
              "has been left alone.");
    f.tasks.waitUntilIdle();
    EXPECT_FALSE(files::exists(f.root / "Archive/2023")) << "the copy is removed behind the result";
    EXPECT_TRUE(files::exists(project / "2 Project Files/Render Files/a.mov"))
        << "nothing tidied that wasn't asked for";
}

TEST(PromoteViewModel, KeepsFilingAfterTheWindowHasGone) {
    Flow f;
    Gate gate;
    f.filer->setBeforeProof(gate.hook());
    f.model->choose(makeFilmProject(f.root / "work"));
    f.model->chooseArchive(f.root / "Archive");
    f.model->file();
    gate.reached.get_future().wait();
    f.subscription.cancel();
    f.model.reset();
    gate.opened.set_value();
    f.tasks.waitUntilIdle();
    f.mainQueue.runPending();
    EXPECT_TRUE(files::exists(f.root / "Archive/2023/Spring Campaign 2023/6 Finals/Campaign.mp4"));
}

}  // namespace
}  // namespace quillstow
