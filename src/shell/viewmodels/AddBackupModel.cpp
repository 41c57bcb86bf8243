#include "shell/viewmodels/AddBackupModel.hpp"

#include <QCoreApplication>
#include <QMetaObject>
#include <algorithm>
#include <thread>

#include "control/BackupEngine.hpp"
#include "copy/PathRules.hpp"
#include "model/BackupError.hpp"
#include "model/BookmarkManager.hpp"
#include "support/ByteCount.hpp"
#include "support/Clock.hpp"
#include "support/Paths.hpp"

namespace quillstow::shell {

namespace fs = std::filesystem;

std::string headingOf(AddBackupStep step) {
    switch (step) {
        case AddBackupStep::chooseSource:
            return "Add Backup";
        case AddBackupStep::chooseDestination:
            return "Choose Destination";
        case AddBackupStep::chooseOffsite:
            return "Offsite Copy";
        case AddBackupStep::confirm:
            return "Confirm";
    }
    return {};
}

std::string summaryOf(std::size_t sourceCount) {
    if (sourceCount == 1) return "Quillstow will copy new and changed files automatically.";
    return "Quillstow will back up " + std::to_string(sourceCount) + " folders automatically.";
}

std::string addButtonTextOf(std::size_t sourceCount) {
    if (sourceCount == 1) return "Add This Backup";
    return "Add " + std::to_string(sourceCount) + " Backups";
}

std::string offsiteLineOf(const fs::path& offsite) {
    return "Offsite copy: " + paths::lastPathComponent(offsite);
}

VolumeRow volumeRowOf(const VolumeInfo& volume) {
    const char* kind = volume.isNetwork    ? "Network Volume"
                       : volume.isExternal ? "External Drive"
                                           : "Local Drive";
    return {volume.id, volume.name, kind, formatByteCount(volume.freeSpace) + " free",
            volume.isNetwork};
}

std::vector<fs::path> earlierDestinationsOf(const std::vector<BackupPair>& pairs,
                                            const std::vector<VolumeInfo>& volumes) {
    std::vector<fs::path> found;
    for (const auto& pair : pairs) {
        const fs::path destination = paths::standardized(pair.destinationURL);
        const bool isVolume = std::any_of(volumes.begin(), volumes.end(), [&](const auto& volume) {
            return paths::standardized(volume.id) == destination;
        });
        if (isVolume || std::find(found.begin(), found.end(), destination) != found.end()) continue;
        found.push_back(destination);
    }
    return found;
}

std::optional<CloudWarning> cloudWarningOf(const fs::path& folder, const fs::path& home) {
    const auto provider = CloudSyncDetector::provider(folder, home);
    if (!provider) return std::nullopt;
    return CloudWarning{
        "This folder is synced with " + std::string(CloudSyncDetector::nameOf(*provider)),
        CloudSyncDetector::warning(*provider)};
}

namespace {

// The flow's own two rules, with the source's folder name in the words.
std::optional<std::string> nestingWarning(const fs::path& source, const fs::path& destination) {
    const std::string name = paths::lastPathComponent(source);
    if (paths::isWithin(destination, source)) {
        return "The destination can't be inside \"" + name + "\".";
    }
    if (paths::isWithin(source, destination))
        return "\"" + name + "\" can't be inside the destination.";
    return std::nullopt;
}

// What the pass would refuse before touching anything, with the pass's own words.
std::optional<std::string> passRefusal(const fs::path& source, const fs::path& destination) {
    try {
        validateLocation(destination);
        validatePaths(source, pairFolderAt(destination,
                                           sanitizedFolderName(paths::lastPathComponent(source))));
    } catch (const FileOperationFailure& failure) {
        return failure.error().underlying.description;
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> validationWarningOf(const std::vector<fs::path>& sources,
                                               const std::optional<fs::path>& destination,
                                               const std::vector<BackupPair>& existingPairs) {
    if (!destination || sources.empty()) return std::nullopt;
    const fs::path to = paths::standardized(*destination);
    for (const auto& source : sources) {
        if (auto warning = nestingWarning(paths::standardized(source), to)) return warning;
    }
    for (const auto& source : sources) {
        if (auto refusal = passRefusal(source, to)) return refusal;
    }
    // Two pairs that mirror different sources into one folder would archive each other's
    // files on every pass; the same source twice is two pairs with the same mirror.
    std::vector<BackupPair> pairs = existingPairs;
    for (const auto& source : sources) {
        const BackupPair pair = newPairOf(source, to, std::nullopt, Date{});
        if (auto conflict = mirrorFolderConflict(pair, pairs)) return conflict;
        pairs.push_back(pair);
    }
    return std::nullopt;
}

BackupPair newPairOf(const fs::path& source, const fs::path& destination,
                     const std::optional<fs::path>& offsite, Date now) {
    BackupPair pair;
    pair.id = Uuid::random();
    pair.name = sanitizedFolderName(paths::lastPathComponent(source));
    pair.sourceURL = source;
    pair.destinationURL = destination;
    pair.offsiteURL = offsite;
    pair.isEnabled = true;
    pair.createdAt = now;
    pair.didSuggestProfile = false;
    pair.profile = BackupProfile::standard;
    return pair;
}

AddBackupModel::Environment AddBackupModel::systemEnvironment() {
    return {paths::homeFolder(), [] { return SystemWallClock().now(); }};
}

AddBackupModel::AddBackupModel(StatusManager& statusManager, VolumeMonitor& volumes,
                               Environment environment, QObject* parent)
    : QObject(parent),
      statusManager_(statusManager),
      volumes_(volumes),
      environment_(std::move(environment)),
      volumesSubscription_(volumes.observeMountedVolumes([this](const auto&) { emit changed(); })) {
}

AddBackupModel::~AddBackupModel() = default;

std::string AddBackupModel::blockedReason() const {
    return validationWarning_.value_or(AddBackupTexts::fixTheIssue);
}

bool AddBackupModel::canAdd() const {
    return step_ == Step::confirm && destination_ && !sources_.empty() && !validationWarning_;
}

std::vector<VolumeRow> AddBackupModel::volumeRows() const {
    std::vector<VolumeRow> rows;
    for (const auto& volume : volumes_.mountedVolumes())
        rows.push_back(volumeRowOf(volume));
    return rows;
}

std::vector<fs::path> AddBackupModel::earlierDestinations() const {
    return earlierDestinationsOf(statusManager_.configStore().pairs(), volumes_.mountedVolumes());
}

std::vector<CloudSyncDetector::AvailableProvider> AddBackupModel::cloudFolders() const {
    return CloudSyncDetector::availableProviders(environment_.home);
}

void AddBackupModel::pickSources(const std::vector<fs::path>& folders) {
    if (step_ != Step::chooseSource || folders.empty()) return;
    sources_ = folders;
    moveTo(Step::chooseDestination);
}

void readFoldersInBackground(std::vector<fs::path> items, std::weak_ptr<int> alive,
                             std::function<void(std::vector<fs::path>)> onMain) {
    std::thread([alive = std::move(alive), items = std::move(items),
                 onMain = std::move(onMain)]() mutable {
        std::vector<fs::path> folders;
        for (const auto& item : items) {
            std::error_code error;
            if (fs::is_directory(item, error)) folders.push_back(item);
        }
        // The hand-over runs on the main thread, where the owner is known to be alive or gone.
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [alive, folders = std::move(folders), onMain = std::move(onMain)]() mutable {
                if (alive.lock()) onMain(std::move(folders));
            },
            Qt::QueuedConnection);
    }).detach();
}

void AddBackupModel::dropItems(std::vector<fs::path> items) {
    readFoldersInBackground(std::move(items), aliveToken_, [this](std::vector<fs::path> folders) {
        takeDroppedFolders(std::move(folders));
    });
}

void AddBackupModel::takeDroppedFolders(std::vector<fs::path> folders) {
    pickSources(folders);
    emit droppedItemsRead();
}

std::optional<CloudWarning> AddBackupModel::cloudWarningFor(const fs::path& folder) const {
    return cloudWarningOf(folder, environment_.home);
}

void AddBackupModel::pickDestination(const fs::path& folder) {
    if (step_ != Step::chooseDestination) return;
    destination_ = folder;
    validationWarning_ =
        validationWarningOf(sources_, destination_, statusManager_.configStore().pairs());
    if (validationWarning_) {
        emit changed();
        return;
    }
    moveTo(Step::chooseOffsite);
}

void AddBackupModel::pickOffsite(const fs::path& folder) {
    if (step_ != Step::chooseOffsite) return;
    offsite_ = folder;
    moveTo(Step::confirm);
}

void AddBackupModel::skipOffsite() {
    if (step_ != Step::chooseOffsite) return;
    offsite_.reset();
    moveTo(Step::confirm);
}

void AddBackupModel::commit() {
    if (!canAdd()) return;
    for (auto source = sources_.begin(); source != sources_.end(); ++source) {
        BackupPair pair = newPairOf(*source, *destination_, offsite_, environment_.now());
        BookmarkManager::makeBookmarksForNewPair(pair, true);
        if (auto refusal = statusManager_.addPair(pair)) {
            // What was added stays added; what is left is shown with the reason.
            sources_.erase(sources_.begin(), source);
            validationWarning_ = std::move(refusal);
            emit changed();
            return;
        }
    }
    end();
}

void AddBackupModel::goBack() {
    switch (step_) {
        case Step::chooseSource:
            cancel();
            return;
        case Step::chooseDestination:
            destination_.reset();
            validationWarning_.reset();
            moveTo(Step::chooseSource);
            return;
        case Step::chooseOffsite:
            offsite_.reset();
            moveTo(Step::chooseDestination);
            return;
        case Step::confirm:
            validationWarning_.reset();
            moveTo(Step::chooseOffsite);
            return;
    }
}

void AddBackupModel::cancel() {
    end();
}

void AddBackupModel::moveTo(Step step) {
    step_ = step;
    emit changed();
}

void AddBackupModel::end() {
    if (hasEnded_) return;
    hasEnded_ = true;
    emit ended();
}

}  // namespace quillstow::shell
