#pragma once

// A notifier that keeps what it was asked to tell, one line a call, in order. Main thread.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "control/EngineStages.hpp"

namespace quillstow::testing {

class RecordingNotifier final : public Notifier {
  public:
    void notifyError(const std::string& pairName, const std::string& message) override {
        sent.push_back("error: " + pairName + " — " + message);
    }
    void notifyLowDisk(const std::string& pairName, std::int64_t available) override {
        sent.push_back("low disk: " + pairName + " " + std::to_string(available));
    }
    void notifyTrashReminder(std::int64_t size) override {
        sent.push_back("trash: " + std::to_string(size));
    }
    void notifyVolumeLost(const std::string& pairName) override {
        sent.push_back("volume lost: " + pairName);
    }
    void notifyBackupComplete(const std::string& pairName, int fileCount,
                              const std::optional<std::string>& message) override {
        sent.push_back("complete: " + pairName + " " + std::to_string(fileCount) + " " +
                       message.value_or("(no message)"));
    }
    std::vector<std::string> sent;
};

}  // namespace quillstow::testing
