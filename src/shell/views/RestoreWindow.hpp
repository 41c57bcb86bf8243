#pragma once

// The window in which a user gets files back from one pair's backup: "Scanning backup files…"
// while the backup is read, the empty state, or the list with its filter, "Select All", the
// counters and the rows; then "Restore to Original" (into the pair's source, at once) or
// "Restore to…" (a folder chosen in the folder dialog), with progress and a cancel, and the
// summary when it ends. Every decision is the model's.
//
// Threading: main thread only.

#include "model/BackupPair.hpp"
#include "shell/viewmodels/RestoreModel.hpp"
#include "shell/views/RestoreFrame.hpp"

namespace quillstow::shell {

class RestoreWindow final : public RestoreFrame {
  public:
    // The backup is read from here on.
    explicit RestoreWindow(const BackupPair& pair, QWidget* parent = nullptr);

    RestoreModel& model() { return *model_; }

  private:
    // The window owns the model, which its frame reads from the start.
    RestoreWindow(RestoreModel* model, QWidget* parent);

    RestoreModel* model_;
};

}  // namespace quillstow::shell
