#pragma once

// "Smart setup": the offer to tune one pair for the kind of data it holds. The profile's icon,
// title, the pair's name and size, the description; "What does this change?" opens the bullets
// and under them the technical details. "Set it up" accepts, "Use defaults" declines, and so
// does closing the window; either way the window closes and the answer is given once.
//
// Main thread only.

#include <QWidget>
#include <functional>

#include "shell/viewmodels/ProfileSuggestion.hpp"

class QLabel;
class QPushButton;
class QToolButton;

namespace quillstow::shell {

class ProfileSuggestionWindow final : public QWidget {
    Q_OBJECT

  public:
    static constexpr int width = 460;
    static constexpr int height = 360;

    ProfileSuggestionWindow(const ProfileSuggestion& suggestion, std::function<void()> onAccept,
                            QWidget* parent = nullptr);

    const ProfileSuggestion& suggestion() const { return suggestion_; }
    QToolButton* whatThisChangesButton() const { return whatThisChanges_; }
    QPushButton* technicalDetailsButton() const { return technicalToggle_; }
    QPushButton* acceptButton() const { return accept_; }
    QPushButton* declineButton() const { return decline_; }

  protected:
    void closeEvent(QCloseEvent* event) override;

  private:
    QWidget* makeDetails();

    const ProfileSuggestion suggestion_;
    std::function<void()> onAccept_;
    QToolButton* whatThisChanges_ = nullptr;
    QWidget* bullets_ = nullptr;
    QPushButton* technicalToggle_ = nullptr;
    QWidget* technical_ = nullptr;
    QPushButton* accept_ = nullptr;
    QPushButton* decline_ = nullptr;
};

}  // namespace quillstow::shell
