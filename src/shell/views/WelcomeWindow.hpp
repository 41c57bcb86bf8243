#pragma once

// "Welcome to Quillstow": the first start's window over the welcome flow. The heading and the
// step's progress line at the top, the step's page, and "Back" and the main button at the
// bottom. Folders come by drag and drop or from the folder dialog, as in the add-backup sheet,
// whose pieces it uses. Every decision is the model's. When the flow completes, the window is
// ordered out; closed before that, nothing was stored.
//
// Threading: main thread only.

#include <QWidget>

#include "shell/viewmodels/WelcomeModel.hpp"

class QLabel;
class QPushButton;
class QScrollArea;

namespace quillstow::shell {

class WelcomeWindow final : public QWidget {
    Q_OBJECT

  public:
    static constexpr int width = 480;
    static constexpr int height = 380;

    WelcomeWindow(StatusManager& statusManager, VolumeMonitor& volumes,
                  AddBackupModel::Environment environment = AddBackupModel::systemEnvironment(),
                  QWidget* parent = nullptr);

    WelcomeModel& model() { return model_; }
    QPushButton* mainButton() const { return main_; }
    QPushButton* backButton() const { return back_; }

  private:
    void refresh();
    QWidget* sourcePage();
    QWidget* destinationPage();
    QWidget* offsitePage();
    QWidget* confirmPage();

    WelcomeModel model_;
    QLabel* progress_ = nullptr;
    QScrollArea* body_ = nullptr;
    QPushButton* back_ = nullptr;
    QPushButton* main_ = nullptr;
};

}  // namespace quillstow::shell
