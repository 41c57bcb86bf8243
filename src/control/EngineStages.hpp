#pragma once

// What the engine asks of services that have a life of their own: what the user is told, and
// the upkeep of the hash database and the offsite copy. The default of the first means that
// the stage isn't there: nobody is told anything. An engine without the other two keeps no hashes
// and makes no offsite copy. The engine runs on without any of them.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "copy/ExclusionFilter.hpp"
#include "copy/StreamedCopy.hpp"
#include "model/Results.hpp"
#include "support/Dates.hpp"

namespace quillstow {

// Called on the main thread.
class Notifier {
  public:
    virtual ~Notifier() = default;
    virtual void notifyError(const std::string& /*pairName*/, const std::string& /*message*/) {}
    virtual void notifyLowDisk(const std::string& /*pairName*/, std::int64_t /*available*/) {}
    virtual void notifyTrashReminder(std::int64_t /*size*/) {}
    virtual void notifyVolumeLost(const std::string& /*pairName*/) {}
    virtual void notifyBackupComplete(const std::string& /*pairName*/, int /*fileCount*/,
                                      const std::optional<std::string>& /*message*/) {}
    // At the start, where the desktop wants the user's permission first.
    virtual void requestPermission() {}
};

// The hash database of a pair's folder and its daily sample check. Called on a run's task.
class IntegrityStage {
  public:
    virtual ~IntegrityStage() = default;
    // Stops between files and chunks when asked; what was recorded by then is kept.
    virtual void recordHashes(const std::vector<std::string>& relativePaths,
                              const std::filesystem::path& backupRoot, std::stop_token stop) = 0;
    virtual int pruneStaleEntries(const std::filesystem::path& backupRoot) = 0;
    virtual std::optional<Date> lastCheckDate(const std::filesystem::path& backupRoot) = 0;
    virtual IntegrityResult verifySample(const std::filesystem::path& backupRoot,
                                         std::stop_token stop) = 0;
    virtual void writeLastCheck(const std::filesystem::path& backupRoot) = 0;
    virtual std::string coverageDescription(const IntegrityResult& result, Date now) const = 0;
};

// The weekly second copy of a pair's folder. Called on a run's task.
class OffsiteStage {
  public:
    virtual ~OffsiteStage() = default;
    virtual OffsiteSyncResult sync(const std::filesystem::path& backupRoot,
                                   const std::filesystem::path& offsiteRoot,
                                   const ExclusionFilter& filter, const ProgressCallback& progress,
                                   std::stop_token stop) = 0;
};

}  // namespace quillstow
