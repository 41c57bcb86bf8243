#pragma once

// Everything the engines of a program share: the main queue and the clocks, the task runner,
// the file operations, the readings of the machine, and the stages that live beside the
// engines. Made once by the program (or a test) and outliving every engine.

#include "control/EngineStages.hpp"
#include "copy/FileSystem.hpp"
#include "copy/FileWatcher.hpp"
#include "copy/RunningEditors.hpp"
#include "environment/Gates.hpp"
#include "environment/Gvfs.hpp"
#include "environment/VolumeReconnector.hpp"
#include "environment/Volumes.hpp"
#include "support/Clock.hpp"
#include "support/MainQueue.hpp"
#include "support/NotificationCenter.hpp"
#include "support/Sleeper.hpp"
#include "support/Tasks.hpp"
#include "support/UserDefaults.hpp"

namespace quillstow {

struct BackupServices {
    MainQueue& mainQueue;
    const WallClock& wallClock;
    // Monotonic: the progress throttle, the durations and the debouncer's signals.
    const Clock& clock;
    // The wait between a finished pass and the return to idle.
    const Sleeper& sleeper;
    TaskRunner& tasks;
    FileSystem& fileSystem;
    const RunningEditors& editors;
    const ActivityGate& activityGate;
    const PowerReadings& power;
    UserDefaults& defaults;
    NotificationCenter& notificationCenter;
    // The mount table, free space and whether a destination is really there.
    const Volumes& volumes;
    FileWatcherFactory makeFileWatcher;
    // Absent stages are left out of a run.
    IntegrityStage* integrity = nullptr;
    OffsiteStage* offsite = nullptr;
    // The moments at which a lost destination may be back; by default none comes.
    ReconnectTriggers reconnectTriggers = ReconnectTriggers::none();
    // What asks GVFS to mount a share of its own again; by default nothing does.
    std::shared_ptr<const GvfsMounter> gvfsMounter = std::make_shared<const GvfsMounter>();
};

}  // namespace quillstow
