#pragma once

// The popover's content, 300 by 360: a header with the add and settings buttons, the pairs as
// rows (or the empty state), and a footer with the last backup, Pause All or Resume All, and
// Back Up Now. It follows its view model's `changed` and asks the controller, by signals, for
// what needs a dialog or another window.
//
// Main thread only.

#include <QLabel>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <QWidget>
#include <vector>

#include "viewmodels/PopoverViewModel.hpp"

namespace quillstow::shell {

class PairRowView;

class PopoverView final : public QWidget {
    Q_OBJECT

  public:
    static constexpr int width = 300;
    static constexpr int height = 360;

    explicit PopoverView(PopoverViewModel& model, QWidget* parent = nullptr);

    // Shows the model's state now, rather than on its next change.
    void refresh();
    const std::vector<PairRowView*>& rows() const { return rows_; }
    QPushButton* pauseAllButton() const { return pauseAll_; }

  signals:
    void addBackupRequested();
    void gearTapped();
    void relinkRequested(const Uuid& id);
    void revealRequested(const Uuid& id);
    void restoreRequested(const Uuid& id);
    void recoverRequested(const Uuid& id);
    void redoSmartSetupRequested(const Uuid& id);
    void removeRequested(const Uuid& id);

  protected:
    void showEvent(QShowEvent* event) override;

  private:
    QWidget* makeHeader();
    QWidget* makeEmptyState();
    QWidget* makeFooter();
    void showRows(const std::vector<PairRowState>& rows);
    PairRowView* makeRow(const PairRowState& state);

    PopoverViewModel& model_;
    QStackedWidget* list_;
    QWidget* rowsBox_;
    QVBoxLayout* rowsLayout_;
    std::vector<PairRowView*> rows_;
    QLabel* lastBackup_;
    QPushButton* pauseAll_;
    QPushButton* backUpNow_;
};

}  // namespace quillstow::shell
