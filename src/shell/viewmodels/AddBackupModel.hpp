#pragma once

// The add-backup flow: source folders (picked or dropped, several at once), a destination, an
// optional offsite folder, a summary, and the commit of one pair per source to the status
// manager. It holds the flow's state and makes every decision of it; the window only shows the
// state and hands in what the user picked.
//
// Threading: main thread only. Dropped items are read on a thread of their own (a folder on a
// slow share must not freeze the sheet) and handed back to the main thread in one piece.

#include <QObject>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "control/StatusManager.hpp"
#include "environment/CloudSyncDetector.hpp"
#include "environment/VolumeMonitor.hpp"
#include "model/BackupPair.hpp"

namespace quillstow::shell {

// The flow's words, in one place.
namespace AddBackupTexts {
inline constexpr const char* cancel = "Cancel";
inline constexpr const char* back = "Back";
inline constexpr const char* sourceQuestion = "Which folders should be backed up?";
inline constexpr const char* dropZone = "Drop folders here or click to choose";
inline constexpr const char* dropZoneName = "Drop zone";
inline constexpr const char* dropZoneHint = "Drop folders here or activate to open a file picker";
inline constexpr const char* chooseFolder = "Choose Folder…";
inline constexpr const char* sourcePanelPrompt = "Choose Source";
inline constexpr const char* sourcePanelMessage = "Choose one or more folders to back up";
inline constexpr const char* sourceTip =
    "Tip: Add each important folder separately for more reliable backups.";
inline constexpr const char* destinationQuestion = "Where should copies go?";
inline constexpr const char* destinationExplanation =
    "Quillstow will create a folder called \"Quillstow\" in the location you pick. Your files "
    "will be mirrored inside it.";
inline constexpr const char* noVolumes = "No external drives connected.";
inline constexpr const char* chooseAnyFolder = "Choose any folder";
inline constexpr const char* destinationPanelPrompt = "Choose Destination";
inline constexpr const char* destinationPanelMessage = "Choose or create a folder for your backups";
inline constexpr const char* chooseAnotherFolder = "Choose Another Folder";
inline constexpr const char* useAnyway = "Use Anyway";
inline constexpr const char* offsiteQuestion = "Want an offsite copy too?";
inline constexpr const char* offsiteExplanation =
    "Quillstow can also keep a copy in a cloud folder. That way, if anything ever happens to "
    "your computer and your backup drive, you'd still have a copy.";
inline constexpr const char* noCloudFolders = "No cloud folders detected.";
inline constexpr const char* anyOffsiteFolder =
    "You can still pick any folder as your offsite location.";
inline constexpr const char* skipOffsite = "Skip — I don't need an offsite copy";
inline constexpr const char* offsitePanelPrompt = "Choose Offsite Folder";
inline constexpr const char* offsitePanelMessage =
    "Choose or create a folder in your cloud storage";
inline constexpr const char* from = "From";
inline constexpr const char* fixTheIssue = "Fix the issue above to continue.";
}  // namespace AddBackupTexts

enum class AddBackupStep { chooseSource, chooseDestination, chooseOffsite, confirm };

// "Add Backup", "Choose Destination", "Offsite Copy", "Confirm".
std::string headingOf(AddBackupStep step);
// "Quillstow will copy new and changed files automatically." or "... back up {n} folders ...".
std::string summaryOf(std::size_t sourceCount);
// "Add This Backup" or "Add {n} Backups".
std::string addButtonTextOf(std::size_t sourceCount);
// "Offsite copy: {name}".
std::string offsiteLineOf(const std::filesystem::path& offsite);

// One volume of the picker as the user reads it.
struct VolumeRow {
    std::filesystem::path url;
    std::string name;
    std::string kind;       // "Network Volume", "External Drive" or "Local Drive"
    std::string freeSpace;  // "{free} free"
    bool isNetwork = false;

    bool operator==(const VolumeRow&) const = default;
};
VolumeRow volumeRowOf(const VolumeInfo& volume);

// The destinations of the existing pairs that aren't mounted volumes, standardised, without
// repeats, in pair order: the places a user backed up to before.
std::vector<std::filesystem::path> earlierDestinationsOf(const std::vector<BackupPair>& pairs,
                                                         const std::vector<VolumeInfo>& volumes);

// The alert before a cloud-synced folder becomes the destination.
struct CloudWarning {
    std::string message;          // "This folder is synced with {provider}"
    std::string informativeText;  // the provider's warning

    bool operator==(const CloudWarning&) const = default;
};
std::optional<CloudWarning> cloudWarningOf(const std::filesystem::path& folder,
                                           const std::filesystem::path& home);

// The problem that blocks adding, first hit wins. For each source in order: the destination
// inside (or equal to) the source, then the source inside the destination, in the flow's own
// words. Then what the pass itself would refuse, in the pass's words: a protected system
// folder, the root; then a mirror folder that another pair (or an earlier source of this run)
// fills from a different source. A drive that isn't plugged in is no reason: the pair's pass
// tells it. Nothing without sources or destination.
std::optional<std::string> validationWarningOf(
    const std::vector<std::filesystem::path>& sources,
    const std::optional<std::filesystem::path>& destination,
    const std::vector<BackupPair>& existingPairs);

// The pair the flow adds for one source: a new id, the sanitised name of the source's folder,
// enabled, standard profile, no history. Bookmarks are made at the commit.
BackupPair newPairOf(const std::filesystem::path& source, const std::filesystem::path& destination,
                     const std::optional<std::filesystem::path>& offsite, Date now);

// Keeps the items that are folders, read on a thread of its own (a folder on a slow share must
// not freeze a window), and hands them to `onMain` on the main thread, unless `alive` has
// gone by then.
void readFoldersInBackground(std::vector<std::filesystem::path> items, std::weak_ptr<int> alive,
                             std::function<void(std::vector<std::filesystem::path>)> onMain);

class AddBackupModel : public QObject {
    Q_OBJECT

  public:
    using Step = AddBackupStep;

    // What the flow reads of the machine besides the status manager.
    struct Environment {
        std::filesystem::path home;
        std::function<Date()> now;
    };
    // The user's home and the system's clock.
    static Environment systemEnvironment();

    AddBackupModel(StatusManager& statusManager, VolumeMonitor& volumes,
                   Environment environment = systemEnvironment(), QObject* parent = nullptr);
    ~AddBackupModel() override;

    Step step() const { return step_; }
    const std::vector<std::filesystem::path>& sources() const { return sources_; }
    const std::optional<std::filesystem::path>& destination() const { return destination_; }
    const std::optional<std::filesystem::path>& offsite() const { return offsite_; }
    const std::optional<std::string>& validationWarning() const { return validationWarning_; }
    // The add button's tooltip while it is disabled: the warning, or a general request.
    std::string blockedReason() const;
    bool canAdd() const;

    std::vector<VolumeRow> volumeRows() const;
    std::vector<std::filesystem::path> earlierDestinations() const;
    std::vector<CloudSyncDetector::AvailableProvider> cloudFolders() const;

    // chooseSource: the folders replace the sources, and the flow moves on. None: nothing.
    void pickSources(const std::vector<std::filesystem::path>& folders);
    // chooseSource: the dropped items are read in the background; those that are folders
    // replace the sources when all are in. `droppedItemsRead` tells the caller.
    void dropItems(std::vector<std::filesystem::path> items);

    // chooseDestination: the alert to show before `folder` may be used, if it is cloud-synced.
    std::optional<CloudWarning> cloudWarningFor(const std::filesystem::path& folder) const;
    // chooseDestination: sets the destination and checks it; moves on when there's no warning.
    void pickDestination(const std::filesystem::path& folder);

    void pickOffsite(const std::filesystem::path& folder);
    void skipOffsite();

    // confirm: one pair per source to the status manager, then the flow ends. A refusal of the
    // status manager stays as the warning, with the sources it refused and those after it.
    void commit();

    // The header button: "Cancel" on the first step ends the flow, "Back" goes a step back.
    void goBack();
    // The flow ends without adding anything.
    void cancel();
    bool hasEnded() const { return hasEnded_; }

  signals:
    void changed();
    void droppedItemsRead();
    // The sheet closes.
    void ended();

  private:
    void takeDroppedFolders(std::vector<std::filesystem::path> folders);
    void moveTo(Step step);
    void end();

    StatusManager& statusManager_;
    VolumeMonitor& volumes_;
    const Environment environment_;
    Subscription volumesSubscription_;
    // What a drop's thread reaches the model through: gone once the model is.
    std::shared_ptr<int> aliveToken_ = std::make_shared<int>(0);

    Step step_ = Step::chooseSource;
    std::vector<std::filesystem::path> sources_;
    std::optional<std::filesystem::path> destination_;
    std::optional<std::filesystem::path> offsite_;
    std::optional<std::string> validationWarning_;
    bool hasEnded_ = false;
};

}  // namespace quillstow::shell
