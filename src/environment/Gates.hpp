#pragma once

// Two gates keep backups polite. The activity gate thins out copying while the user works: a
// short sleep per file and per chunk, never a stop. The power gate keeps a backup from starting
// while the machine is hot, saving power, or low on battery; it is asked at the start of a run
// and by the resume poll, never in the middle.
//
// The activity gate owns the bandwidth mode: one writer (the main thread, from the settings),
// read by copy loops on any thread without a lock; a stale read costs one file's pause.

#include <atomic>
#include <optional>
#include <stop_token>
#include <string>

#include "environment/Readings.hpp"
#include "model/AppConfig.hpp"

namespace quillstow {

inline constexpr double userIdleThreshold = 120.0;
inline constexpr double activeFilePause = 0.010;
inline constexpr double quietFilePause = 0.030;
inline constexpr double chunkPause = 0.002;
inline constexpr int lowBatteryPercent = 30;
inline constexpr double powerPollInterval = 30.0;

class ActivityGate {
  public:
    // The readings of this machine and real sleeps, with no user input reported.
    ActivityGate();
    ActivityGate(const UserActivity& activity, const Sleeper& sleeper);

    // Main thread, from the settings; starts at auto.
    void setBandwidthMode(BandwidthMode mode) { mode_.store(mode, std::memory_order_relaxed); }
    BandwidthMode bandwidthMode() const { return mode_.load(std::memory_order_relaxed); }

    // quiet: always; full: never, without reading the idle time; auto: while the user's last
    // input is less than 120 seconds old, read afresh at every call.
    bool isThrottling() const;

    // Before each file a pass copies: 10 ms in auto while the user is active, 30 ms in quiet,
    // none otherwise. A stop request cuts the sleep short and is left for the caller to see.
    void pauseBetweenFiles(std::stop_token stop) const;

    // After each chunk of a streamed copy: 2 ms while throttling.
    void pauseBetweenChunks() const;

  private:
    const UserActivity& activity_;
    const Sleeper& sleeper_;
    std::atomic<BandwidthMode> mode_{BandwidthMode::automatic};
    static_assert(std::atomic<BandwidthMode>::is_always_lock_free);
};

// Current capacity over maximum capacity, in percent, truncated; nothing without a battery or a
// readable, positive maximum.
std::optional<int> batteryPercent(const PowerReadings& power);

// True unless the battery says, in so many words, that it is not on AC power.
bool isOnACPower(const PowerReadings& power);

// Why a backup may not start now, or nothing: heat first, then power saving, then a battery
// under 30 percent that isn't charging.
std::optional<std::string> powerPauseReason(const PowerReadings& power);

}  // namespace quillstow
