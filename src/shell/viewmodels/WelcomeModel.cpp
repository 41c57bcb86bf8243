#include "shell/viewmodels/WelcomeModel.hpp"

#include <cmath>
#include <cstdio>

#include "model/BookmarkManager.hpp"
#include "support/Paths.hpp"

namespace quillstow::shell {

namespace fs = std::filesystem;

std::string progressLineOf(WelcomeStep step) {
    switch (step) {
        case WelcomeStep::pickSource:
            return "Step 1 of 4 — Choose a folder to protect";
        case WelcomeStep::pickDestination:
            return "Step 2 of 4 — Choose a backup destination";
        case WelcomeStep::pickOffsite:
            return "Step 3 of 4 — Add an offsite copy (optional)";
        case WelcomeStep::confirm:
            return "Step 4 of 4 — Review and start";
    }
    return {};
}

WelcomeVolume welcomeVolumeOf(const VolumeInfo& volume) {
    std::string name = paths::lastPathComponent(volume.id);
    if (name.empty() || name == "/") name = volume.name;
    std::string capacity;
    const double gigabytes = double(volume.totalSpace) / 1000000000.0;
    if (volume.totalSpace >= 1) {
        char formatted[32];
        std::snprintf(formatted, sizeof formatted, "%.0f GB", gigabytes);
        capacity = formatted;
    }
    return {volume.id, name, capacity};
}

WelcomeModel::WelcomeModel(StatusManager& statusManager, VolumeMonitor& volumes,
                           AddBackupModel::Environment environment, QObject* parent)
    : QObject(parent),
      statusManager_(statusManager),
      volumes_(volumes),
      environment_(std::move(environment)),
      volumesSubscription_(volumes.observeMountedVolumes([this](const auto&) { emit changed(); })) {
}

std::vector<WelcomeVolume> WelcomeModel::volumes() const {
    std::vector<WelcomeVolume> rows;
    for (const auto& volume : volumes_.mountedVolumes())
        if (volume.isExternal || volume.isNetwork) rows.push_back(welcomeVolumeOf(volume));
    return rows;
}

std::vector<CloudSyncDetector::AvailableProvider> WelcomeModel::cloudFolders() const {
    return CloudSyncDetector::availableProviders(environment_.home);
}

bool WelcomeModel::canGoOn() const {
    switch (step_) {
        case Step::pickSource:
            return source_.has_value();
        case Step::pickDestination:
            return destination_.has_value();
        case Step::pickOffsite:
            return true;
        case Step::confirm:
            return source_ && destination_;
    }
    return false;
}

void WelcomeModel::goOn() {
    if (!canGoOn()) return;
    if (step_ == Step::confirm) {
        finish();
        return;
    }
    step_ = Step(int(step_) + 1);
    emit changed();
}

void WelcomeModel::goBack() {
    if (!canGoBack()) return;
    step_ = Step(int(step_) - 1);
    refusal_.reset();
    emit changed();
}

void WelcomeModel::setSource(const fs::path& folder) {
    source_ = folder;
    emit changed();
}

void WelcomeModel::clearSource() {
    source_.reset();
    emit changed();
}

void WelcomeModel::dropItems(std::vector<fs::path> items) {
    if (items.empty()) return;
    items.resize(1);
    readFoldersInBackground(std::move(items), aliveToken_, [this](std::vector<fs::path> folders) {
        if (step_ == Step::pickSource && !folders.empty()) setSource(folders.front());
        emit droppedItemRead();
    });
}

void WelcomeModel::setDestination(const fs::path& folder) {
    destination_ = folder;
    emit changed();
}

void WelcomeModel::setOffsite(const fs::path& folder) {
    offsite_ = folder;
    emit changed();
}

void WelcomeModel::clearOffsite() {
    offsite_.reset();
    emit changed();
}

void WelcomeModel::finish() {
    BackupPair pair = newPairOf(*source_, *destination_, offsite_, environment_.now());
    BookmarkManager::makeBookmarksForNewPair(pair, false);
    // The pass refuses an unsafe pair; the status manager refuses one it can't run at all, and
    // the user reads why on this step.
    if (auto refusal = statusManager_.addPair(pair)) {
        refusal_ = std::move(refusal);
        emit changed();
        return;
    }
    ConfigStore& store = statusManager_.configStore();
    AppConfig config = store.appConfig();
    config.hasCompletedOnboarding = true;
    store.setAppConfig(config);
    store.save();
    emit completed();
}

}  // namespace quillstow::shell
