// The filing flow's model, where the window can't show it: the tidy-up runs before the copy, the
// steps follow in order, a reset forgets the project but keeps the archive, the year's bounds,
// and the program's quit in the middle of a filing. The window test drives the rest.

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
        const auto& label = model->progressLabel();
        if (!label.empty() && (labels.empty() || labels.back() != label)) labels.push_back(label);
    });

    bool runUntilFinished() {
        return mainQueue.runUntil([&] { return model->step() == Step::finished; });
    }
};

TEST(PromoteViewModel, TidiesUpBeforeTheCopyAndAResetKeepsOnlyTheArchive) {
    Flow f;
    const auto project = makeFilmProject(f.root / "work");
    f.model->choose(project);
    f.model->chooseArchive(f.root / "Archive");
    f.model->setRemoveRebuildable(true);
    f.model->file();
    ASSERT_TRUE(f.runUntilFinished());
    EXPECT_TRUE(f.model->isSuccess()) << f.model->resultSentence();
    EXPECT_EQ(f.model->progress(), 1.0);
    EXPECT_EQ(f.labels.front(), "Tidying up files your apps can rebuild…");
    EXPECT_FALSE(
        files::exists(f.root / "Archive/2023/Spring Campaign 2023/2 Project Files/Render Files"))
        << "what was tidied away is not filed";

    f.model->reset();
    EXPECT_THAT(f.steps, ElementsAre(Step::choose, Step::review, Step::filing, Step::finished,
                                     Step::choose));
    EXPECT_EQ(f.model->year(), 2031) << "the current year of the model's day";
    EXPECT_FALSE(f.model->project() || f.model->outcome());
    EXPECT_EQ(f.model->name(), "");
    EXPECT_EQ(f.model->archiveRoot(), f.root / "Archive");
}

TEST(PromoteViewModel, TakesOnlyYearsFrom1990To2100) {
    Flow f;
    writeFile(f.root / "Odds and Ends/6 Finals/a.txt", "a");
    f.model->choose(f.root / "Odds and Ends");
    EXPECT_EQ(f.model->year(), 2031) << "no year in the name";
    for (const auto& [year, taken] :
         {std::pair{1989, false}, {1990, true}, {2100, true}, {2101, false}}) {
        EXPECT_EQ(f.model->setYear(year), taken) << year;
    }
    EXPECT_EQ(f.model->year(), 2100);
}

TEST(PromoteViewModel, EndsAFilingStoppedByTheQuitOnTheFinishedScreenWithNothingFiled) {
    Flow f;
    std::promise<void> reached, opened;
    f.filer->setBeforeProof([&, open = opened.get_future().share()](const fs::path&) {
        reached.set_value();
        open.wait();
    });
    const auto project = makeFilmProject(f.root / "work");
    f.model->choose(project);
    f.model->chooseArchive(f.root / "Archive");
    f.model->file();
    reached.get_future().wait();
    f.model->reset();
    EXPECT_EQ(f.model->step(), Step::filing) << "no way out of filing but its end";
    f.tasks.cancelAll();
    opened.set_value();
    ASSERT_TRUE(f.runUntilFinished());

    EXPECT_EQ(f.model->resultSentence(),
              "Couldn't copy \"Spring Campaign 2023\": The operation was cancelled. The original "
              "has been left alone.");
    f.tasks.waitUntilIdle();
    EXPECT_FALSE(files::exists(f.root / "Archive/2023")) << "the copy is removed behind the result";
    EXPECT_TRUE(files::exists(project / "2 Project Files/Render Files/a.mov"))
        << "nothing tidied that wasn't asked for";
}

}  // namespace
}  // namespace quillstow
