#pragma once

// The window "File a Finished Project": one page for each step of the filing flow (choose,
// review, filing, finished), all kept by the model it is given. The window shows the model's
// state, hands in what the user typed and picked, and redraws when the model says it changed.
// Folders come from the desktop's folder dialog, named "folderPanel" while it is open.
//
// The window holds its model; closing it doesn't stop a filing under way, which holds the model
// only weakly. Set Qt::WA_DeleteOnClose to let it go with its close.
//
// Threading: main thread only.

#include <QWidget>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "archive/PromoteViewModel.hpp"

class QCheckBox;
class QFormLayout;
class QHBoxLayout;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QSpinBox;
class QStackedWidget;
class QVBoxLayout;

namespace quillstow::shell {

class FilingWindow : public QWidget {
    Q_OBJECT

  public:
    static constexpr int width = 520;
    static constexpr int height = 420;
    static constexpr int minimumWidth = 460;
    static constexpr int minimumHeight = 340;

    using Reveal = std::function<void(const std::filesystem::path& item)>;

    // `reveal` defaults to the desktop's file manager.
    explicit FilingWindow(std::shared_ptr<PromoteViewModel> model, Reveal reveal = {},
                          QWidget* parent = nullptr);

    PromoteViewModel& model() { return *model_; }

  protected:
    void keyPressEvent(QKeyEvent* event) override;

  private:
    QWidget* choosePage();
    QWidget* reviewPage();
    QWidget* warningsBox();
    QFormLayout* nameAndYearForm();
    QHBoxLayout* archiveRow();
    QWidget* tidyUpBox();
    QWidget* filingPage();
    QWidget* finishedPage();
    void refresh();
    void refreshReview();
    void refreshFinished();
    void pickProject();
    void pickArchive();
    // Opens the desktop's dialog for one folder; `picked` hears the folder the user chose.
    void pickFolder(const char* message, const std::optional<std::filesystem::path>& startAt,
                    bool canCreateFolders,
                    std::function<void(const std::filesystem::path&)> picked);

    std::shared_ptr<PromoteViewModel> model_;
    Subscription subscription_;
    Reveal reveal_;
    QStackedWidget* pages_ = nullptr;
    // Review.
    QLabel* projectTitle_ = nullptr;
    QWidget* warnings_ = nullptr;
    QLabel* warningLines_ = nullptr;
    QLineEdit* name_ = nullptr;
    QSpinBox* year_ = nullptr;
    QLabel* archivePath_ = nullptr;
    QPushButton* archiveButton_ = nullptr;
    QLabel* goesTo_ = nullptr;
    QWidget* tidyUpRow_ = nullptr;
    QCheckBox* tidyUp_ = nullptr;
    QLabel* tidyUpLabel_ = nullptr;
    QPushButton* fileIt_ = nullptr;
    // Filing.
    QLabel* filingTitle_ = nullptr;
    QProgressBar* progress_ = nullptr;
    QLabel* progressLabel_ = nullptr;
    // Finished.
    QLabel* resultIcon_ = nullptr;
    QLabel* resultHeading_ = nullptr;
    QLabel* resultSentence_ = nullptr;
    QPushButton* showInFileManager_ = nullptr;
};

}  // namespace quillstow::shell
