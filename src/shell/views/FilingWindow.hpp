#pragma once

// The window "File a Finished Project": one page for each step of the filing flow (choose,
// review, filing, finished), all kept by the model it is given. The window shows the model's
// state, hands in what the user typed and picked, and redraws when the model says it changed.
// Folders come from the desktop's folder dialog, or from the picker a test hands in.
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

    // What a folder dialog is asked for: its message, and where it starts, if anywhere.
    struct FolderRequest {
        const char* message;
        std::optional<std::filesystem::path> startAt;
        bool canCreateFolders = false;
    };
    // Answers the folder picked, or nothing when the dialog was cancelled.
    using FolderPicker =
        std::function<std::optional<std::filesystem::path>(const FolderRequest& request)>;
    using Reveal = std::function<void(const std::filesystem::path& folder)>;

    // `pickFolder` and `reveal` default to the desktop's folder dialog and file manager.
    explicit FilingWindow(std::shared_ptr<PromoteViewModel> model, FolderPicker pickFolder = {},
                          Reveal reveal = {}, QWidget* parent = nullptr);

    PromoteViewModel& model() { return *model_; }

  private:
    QWidget* choosePage();
    QWidget* reviewPage();
    QWidget* filingPage();
    QWidget* finishedPage();
    void refresh();
    void refreshReview();
    void refreshFinished();
    void pickProject();
    void pickArchive();

    std::shared_ptr<PromoteViewModel> model_;
    Subscription subscription_;
    FolderPicker pickFolder_;
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
    QCheckBox* tidyUp_ = nullptr;
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
