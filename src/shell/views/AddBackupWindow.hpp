#pragma once

// The add-backup sheet as a window of its own: a header with "Cancel" or "Back" and the step's
// heading, and the step's page below. Folders come by drag and drop (`text/uri-list`) or from the
// folder dialog, which is the desktop's own (the portal's) where Qt has one. Every decision is
// the model's; this class shows its state and hands in what the user picked.
//
// A window serves one run of the flow. It closes when the flow ends, by a commit or a cancel;
// closing it cancels the flow. Set Qt::WA_DeleteOnClose to let it go with its close.
//
// Threading: main thread only.

#include <QWidget>
#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "shell/viewmodels/AddBackupModel.hpp"

class QLabel;
class QScrollArea;
class QToolButton;
class QVBoxLayout;

namespace quillstow::shell {

class AddBackupWindow : public QWidget {
    Q_OBJECT

  public:
    // The size of the popover the sheet stands for.
    static constexpr int width = 300;
    static constexpr int height = 360;

    AddBackupWindow(StatusManager& statusManager, VolumeMonitor& volumes,
                    QWidget* parent = nullptr);
    AddBackupWindow(StatusManager& statusManager, VolumeMonitor& volumes,
                    AddBackupModel::Environment environment, QWidget* parent = nullptr);

    AddBackupModel& model() { return model_; }

  protected:
    void closeEvent(QCloseEvent* event) override;

  private:
    using Paths = std::vector<std::filesystem::path>;

    void refresh();
    QWidget* sourcePage();
    QWidget* destinationPage();
    QWidget* offsitePage();
    QWidget* confirmPage();
    void addWarning(QVBoxLayout* layout);

    void openSourcePanel();
    void openDestinationPanel();
    void openOffsitePanel(const std::optional<std::filesystem::path>& startAt);
    // The destination check: the cloud alert first, where the folder is synced.
    void checkDestination(const std::filesystem::path& folder);

    AddBackupModel model_;
    QToolButton* headerButton_ = nullptr;
    QLabel* heading_ = nullptr;
    QScrollArea* body_ = nullptr;
    QVBoxLayout* footer_ = nullptr;
};

}  // namespace quillstow::shell
