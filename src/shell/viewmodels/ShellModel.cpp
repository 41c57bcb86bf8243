#include "viewmodels/ShellModel.hpp"

#include "viewmodels/Texts.hpp"

namespace quillstow::shell {

ShellModel::ShellModel(StatusManager& manager, const WallClock& clock, bool prefersReducedMotion,
                       QObject* parent)
    : PopoverViewModel(parent),
      manager_(manager),
      clock_(clock),
      prefersReducedMotion_(prefersReducedMotion),
      overall_(manager.overallStatus().kind()) {
    ConfigStore& store = manager_.configStore();
    storeSubscriptions_.push_back(store.observePairs([this](const auto&) { somethingChanged(); }));
    storeSubscriptions_.push_back(
        store.observeAppConfig([this](const auto&) { somethingChanged(); }));
    storeSubscriptions_.push_back(store.observeEvents([this](const auto&) { somethingChanged(); }));
    storeSubscriptions_.push_back(manager_.observeEngines([this](const auto&) {
        followEngines();
        somethingChanged();
    }));
    storeSubscriptions_.push_back(
        manager_.observeCopyRedundancy([this](const auto&) { somethingChanged(); }));
    followEngines();
}

ShellModel::~ShellModel() = default;

void ShellModel::followEngines() {
    engineSubscriptions_.clear();
    for (const auto& [id, engine] : manager_.engines()) {
        engineSubscriptions_.push_back(
            engine->observeStatus([this](const auto&) { somethingChanged(); }));
        engineSubscriptions_.push_back(
            engine->observeDestinationFreeSpace([this](const auto&) { somethingChanged(); }));
    }
}

void ShellModel::somethingChanged() {
    const BackupStatus::Case now = manager_.overallStatus().kind();
    if (now != overall_) {
        overall_ = now;
        emit overallStatusChanged();
    }
    emit changed();
}

std::string ShellModel::iconName() const {
    return texts::themeIconName(texts::statusSymbol(overall_));
}

std::string ShellModel::tooltip() const {
    return manager_.statusText();
}

MenuState ShellModel::menu() const {
    return menuState(manager_, clock_.now());
}

PopoverState ShellModel::popover() const {
    return popoverState(manager_, clock_.now());
}

void ShellModel::backUpAllNow() {
    manager_.backupAllNow();
}

void ShellModel::pauseOrResumeAll() {
    if (popover().offersPauseAll)
        manager_.pauseAll();
    else
        manager_.resumeAll();
}

void ShellModel::backUpPairNow(const Uuid& id) {
    manager_.backupPairNow(id);
}

void ShellModel::togglePausePair(const Uuid& id) {
    manager_.togglePausePair(id);
}

void ShellModel::removePair(const Uuid& id) {
    manager_.removePair(id);
}

std::optional<std::string> ShellModel::relinkPair(const Uuid& id,
                                                  const std::filesystem::path& destination) {
    return manager_.relinkPair(id, destination);
}

}  // namespace quillstow::shell
