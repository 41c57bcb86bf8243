#pragma once

// A file watcher the test fires by hand, on the main thread.

#include <filesystem>
#include <optional>
#include <string>

#include "copy/FileWatcher.hpp"
#include "model/BackupError.hpp"

namespace quillstow::testing {

class FakeFileWatcher final : public FileWatcher {
  public:
    void startWatching(const std::filesystem::path& path) override {
        if (failWith) throw BackupFailure(BackupError::watcherFailed(*failWith));
        if (watching) return;
        watching = true;
        watchedPath = path;
    }
    void stopWatching() override { watching = false; }
    bool isWatching() const override { return watching; }

    void fire() {
        if (watching && onEventsDetected) onEventsDetected();
    }

    bool watching = false;
    std::filesystem::path watchedPath;
    std::optional<std::string> failWith;
};

// What an owner holds of a FakeFileWatcher that the test keeps, so that the test can still look
// at a watcher its owner has let go: it stops as a watcher does when it goes.
class HeldFileWatcher final : public FileWatcher {
  public:
    explicit HeldFileWatcher(FakeFileWatcher& fake) : fake_(fake) {}
    ~HeldFileWatcher() override { fake_.stopWatching(); }
    void startWatching(const std::filesystem::path& path) override {
        fake_.onEventsDetected = onEventsDetected;
        fake_.startWatching(path);
    }
    void stopWatching() override { fake_.stopWatching(); }
    bool isWatching() const override { return fake_.isWatching(); }

  private:
    FakeFileWatcher& fake_;
};

}  // namespace quillstow::testing
