#pragma once

// The welcome flow of a first start: the add-backup flow in a gentler form, for one folder.
// Four steps with a progress line; "Next" and "Back" move one step and clear nothing, and
// nothing moves on by itself. "Start Backing Up" adds the pair as the add-backup flow would,
// and marks the onboarding as done; nothing is stored before that.
//
// Threading: main thread only; a dropped item is read on a thread of its own.

#include <QObject>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "shell/viewmodels/AddBackupModel.hpp"

namespace quillstow::shell {

namespace WelcomeTexts {
inline constexpr const char* windowTitle = "Welcome to Quillstow";
inline constexpr const char* back = "Back";
inline constexpr const char* next = "Next";
inline constexpr const char* startBackingUp = "Start Backing Up";
inline constexpr const char* sourceQuestion = "What do you want to keep safe?";
inline constexpr const char* dropZone = "Drop a folder here";
inline constexpr const char* dropZoneName = "Drop zone";
inline constexpr const char* dropZoneHint = "Drop a folder here or activate to choose one";
inline constexpr const char* chooseAFolder = "Or choose a folder…";
inline constexpr const char* sourcePanelPrompt = "Choose";
inline constexpr const char* sourcePanelMessage = "Select the folder you want to keep backed up.";
inline constexpr const char* clear = "Clear";
inline constexpr const char* noExternalDrives = "No external drives found.";
inline constexpr const char* connectADrive = "Connect an external drive, or choose any folder.";
inline constexpr const char* chooseAnyFolder = "Choose any folder…";
inline constexpr const char* readyToStart = "Ready to start.";
inline constexpr const char* watchesForChanges =
    "Quillstow will watch for changes and copy files automatically.";
}  // namespace WelcomeTexts

enum class WelcomeStep { pickSource, pickDestination, pickOffsite, confirm };

// "Step 1 of 4 — Choose a folder to protect", and so on.
std::string progressLineOf(WelcomeStep step);

// A drive to pick as the destination: its folder's name and, when known, "{n} GB".
struct WelcomeVolume {
    std::filesystem::path url;
    std::string name;
    std::string capacity;

    bool operator==(const WelcomeVolume&) const = default;
};
WelcomeVolume welcomeVolumeOf(const VolumeInfo& volume);

class WelcomeModel : public QObject {
    Q_OBJECT

  public:
    using Step = WelcomeStep;

    WelcomeModel(StatusManager& statusManager, VolumeMonitor& volumes,
                 AddBackupModel::Environment environment = AddBackupModel::systemEnvironment(),
                 QObject* parent = nullptr);

    Step step() const { return step_; }
    const std::optional<std::filesystem::path>& source() const { return source_; }
    const std::optional<std::filesystem::path>& destination() const { return destination_; }
    const std::optional<std::filesystem::path>& offsite() const { return offsite_; }
    // Why the pair couldn't be added, in the status manager's words.
    const std::optional<std::string>& refusal() const { return refusal_; }

    std::vector<WelcomeVolume> volumes() const;
    std::vector<CloudSyncDetector::AvailableProvider> cloudFolders() const;

    // Whether the main button ("Next", or "Start Backing Up" on the last step) is enabled.
    bool canGoOn() const;
    bool canGoBack() const { return step_ != Step::pickSource; }
    // "Next", or on the last step the finish.
    void goOn();
    void goBack();

    void setSource(const std::filesystem::path& folder);
    void clearSource();
    // The first dropped item counts, if it's a folder, once read in the background;
    // `droppedItemRead` tells when the drop is done with, taken or not.
    void dropItems(std::vector<std::filesystem::path> items);
    void setDestination(const std::filesystem::path& folder);
    void setOffsite(const std::filesystem::path& folder);
    void clearOffsite();

  signals:
    void changed();
    void droppedItemRead();
    // The pair was added and the onboarding is done.
    void completed();

  private:
    void finish();

    StatusManager& statusManager_;
    VolumeMonitor& volumes_;
    const AddBackupModel::Environment environment_;
    Subscription volumesSubscription_;
    std::shared_ptr<int> aliveToken_ = std::make_shared<int>(0);

    Step step_ = Step::pickSource;
    std::optional<std::filesystem::path> source_;
    std::optional<std::filesystem::path> destination_;
    std::optional<std::filesystem::path> offsite_;
    std::optional<std::string> refusal_;
};

}  // namespace quillstow::shell
