#pragma once

// One pair in the popover: its name, status line, destination, and the lines that appear only
// when they matter (low free space, the offsite copy, a redundancy warning, the error's
// details). A pair at work shows a pulsing ring unless the desktop asks for less motion; the
// pointer over the row shows its quick action; a right click opens the row's menu.
//
// Main thread only.

#include <QLabel>
#include <QToolButton>
#include <QWidget>

#include "viewmodels/PopoverState.hpp"

namespace quillstow::shell {

class PulsingRing;

class PairRowView final : public QWidget {
    Q_OBJECT

  public:
    PairRowView(const PairRowState& state, bool reducedMotion, QWidget* parent = nullptr);

    const Uuid& pairId() const { return state_.id; }
    void setState(const PairRowState& state);
    bool isShowingErrorDetail() const { return showErrorDetail_; }

  signals:
    void backUpNowRequested(const Uuid& id);
    void togglePauseRequested(const Uuid& id);
    void relinkRequested(const Uuid& id);
    void revealRequested(const Uuid& id);
    void restoreRequested(const Uuid& id);
    void recoverRequested(const Uuid& id);
    void redoSmartSetupRequested(const Uuid& id);
    void removeRequested(const Uuid& id);

  protected:
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;

  private:
    void showContextMenu(const QPoint& at);
    void toggleErrorDetail();
    QWidget* iconLine(const std::string& symbol, QLabel*& text);

    PairRowState state_;
    bool showErrorDetail_ = false;
    QLabel* name_;
    QToolButton* status_;
    PulsingRing* ring_;
    QToolButton* backUpNow_;
    QToolButton* relink_;
    QLabel* destination_;
    QWidget* freeSpace_;
    QLabel* freeSpaceText_ = nullptr;
    QWidget* offsite_;
    QLabel* offsiteText_ = nullptr;
    QWidget* redundancy_;
    QLabel* redundancyIcon_;
    QLabel* redundancyText_ = nullptr;
    QWidget* errorPanel_;
    QLabel* errorText_ = nullptr;
};

}  // namespace quillstow::shell
