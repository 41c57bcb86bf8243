#pragma once

// The program's observable state as Qt signals: it holds the subscriptions to the status
// manager, its engines and the settings, and tells the tray, the menu and the popover that
// something changed. The one status of every pair changes the tray icon only when it really
// changes.
//
// Qt Core only. Main thread only: the core tells its observers there.

#include <map>
#include <vector>

#include "control/StatusManager.hpp"
#include "support/Clock.hpp"
#include "viewmodels/MenuState.hpp"
#include "viewmodels/PopoverViewModel.hpp"

namespace quillstow::shell {

class ShellModel final : public PopoverViewModel {
    Q_OBJECT

  public:
    ShellModel(StatusManager& manager, const WallClock& clock, bool prefersReducedMotion,
               QObject* parent = nullptr);
    ~ShellModel() override;

    BackupStatus::Case overallStatus() const { return overall_; }
    // The theme name of the tray icon of the one status.
    std::string iconName() const;
    std::string tooltip() const;
    MenuState menu() const;

    PopoverState popover() const override;
    bool prefersReducedMotion() const override { return prefersReducedMotion_; }
    void backUpAllNow() override;
    void pauseOrResumeAll() override;
    void backUpPairNow(const Uuid& id) override;
    void togglePausePair(const Uuid& id) override;
    void removePair(const Uuid& id) override;
    std::optional<std::string> relinkPair(const Uuid& id,
                                          const std::filesystem::path& destination) override;

    StatusManager& statusManager() { return manager_; }

  signals:
    // The one status changed: the icon and tooltip follow.
    void overallStatusChanged();

  private:
    void followEngines();
    void somethingChanged();

    StatusManager& manager_;
    const WallClock& clock_;
    const bool prefersReducedMotion_;
    BackupStatus::Case overall_;
    std::vector<Subscription> storeSubscriptions_;
    std::vector<Subscription> engineSubscriptions_;
};

}  // namespace quillstow::shell
