#pragma once

// What the engine asks of services that have a life of their own: what the user is told, and
// the upkeep of the hash database and the offsite copy. The default of the first means that
// the stage isn't there: nobody is told anything. An engine without the other two keeps no hashes
// and makes no offsite copy. The engine runs on without any of them.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
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

// The daily re-read of a sample, when one was due, with its sentence for the log.
struct SampleCheck {
    IntegrityResult result;
    std::string coverage;
};

// What a pass hands to the hash upkeep: the files it copied, and what its walk of the mirror
// already knows, so that no file of the folder is looked up a second time.
struct PassFiles {
    const std::vector<std::string>& copied;
    // Whether the pass found the item in the folder unchanged and left it there; nothing, or
    // false, sends the file to the disk to be looked up.
    std::function<bool(std::string_view relativePath)> isKeptUnchanged;
};

// The hash database of a pair's folder and its daily sample check. Called on a run's task.
class IntegrityStage {
  public:
    virtual ~IntegrityStage() = default;
    // After a pass that kept its drive: records the digests of what it copied, forgets what
    // has left the folder, and re-reads a sample when one is due. Stops between files and
    // chunks when asked; what was done by then is kept. The check, when one ran.
    virtual std::optional<SampleCheck> afterPass(const PassFiles& pass,
                                                 const std::filesystem::path& backupRoot,
                                                 std::stop_token stop) = 0;
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
