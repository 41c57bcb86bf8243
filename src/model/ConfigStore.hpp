#pragma once

// The persisted state of the application: the pairs, the settings and the event log, and the
// JSON files that hold them in the settings folder:
//
//   config.json          the pairs and the settings, written at once on every change of a pair
//   config.json.backup   a byte copy of the previous config.json, made before every write
//   backup-log.json      the events, oldest first, written 0.5 s after the last of a burst
//
// A damaged config.json is replaced from its backup, and the backup is only ever replaced by a
// copy that reads at least as well. Each pair is read on its own: an odd value takes its
// default and stays in the file, a pair that can't be read at all stays in the file as it
// stood. Failures are logged and never reach the user: the state in memory stands.
//
// Threading: every operation runs on the main thread, and observers are told there, at once.
// The files are written on a writer thread of the store's own, from a snapshot taken on the
// main thread, which never waits for the disk; flush() (and the store's end) waits for the last
// write. Copying is deleted: there is one store.

#include <filesystem>
#include <functional>
#include <vector>

#include "model/ConfigFile.hpp"
#include "support/BackgroundWriter.hpp"
#include "support/Logger.hpp"
#include "support/MainQueue.hpp"
#include "support/Observable.hpp"
#include "support/UserDefaults.hpp"

namespace quillstow {

// ${XDG_CONFIG_HOME:-~/.config}/Quillstow
std::filesystem::path defaultSettingsFolder();

class ConfigStore {
  public:
    static constexpr std::size_t maxLogEntries = 500;
    static constexpr double logFlushDelay = 0.5;

    // Writes a whole file by the atomic rule; tests put a slow or failing one in its place.
    using WriteFile = std::function<void(const std::filesystem::path&, std::string_view)>;

    // Makes the folder if needed and loads both files; of a log longer than 500 entries only
    // the newest 500 are loaded.
    ConfigStore(std::filesystem::path settingsFolder, MainQueue& mainQueue, UserDefaults& defaults,
                WriteFile writeFile = nullptr);
    ConfigStore(const ConfigStore&) = delete;
    ConfigStore& operator=(const ConfigStore&) = delete;
    // A log write still waiting for its half second is dropped with the store (the app calls
    // save() before); a write already handed to the writer is waited for.
    ~ConfigStore();

    const std::vector<BackupPair>& pairs() const { return pairs_; }
    const AppConfig& appConfig() const { return appConfig_; }
    const std::vector<BackupEvent>& events() const { return events_; }

    // Reaches the disk only through save().
    void setAppConfig(const AppConfig& config);
    // For clearing the history; save() writes it.
    void setEvents(std::vector<BackupEvent> events);

    void addPair(const BackupPair& pair);
    // Replaces the pair with the same id and saves; does nothing at all for an unknown id.
    void updatePair(const BackupPair& pair);
    // Changes the pair as the store holds it now and saves; does nothing at all for an unknown
    // id. Each writer changes its own fields only, so that two updates never undo each other.
    void updatePair(const Uuid& id, const std::function<void(BackupPair&)>& change);
    // Removes every pair with this id, saves, and forgets the pair's catch-up default.
    void removePair(const Uuid& id);
    // Appends, keeps the newest 500, and schedules the log write; never writes inside the call.
    void addEvent(const BackupEvent& event);
    // Hands the settings, and the log at once in place of any pending write, to the writer.
    void save();
    // Until everything handed to the writer so far is on disk.
    void flush() { writer_.flush(); }

    [[nodiscard]] Subscription observePairs(Observers<std::vector<BackupPair>>::Observer observer);
    [[nodiscard]] Subscription observeAppConfig(Observers<AppConfig>::Observer observer);
    [[nodiscard]] Subscription observeEvents(
        Observers<std::vector<BackupEvent>>::Observer observer);

    const std::filesystem::path& configFileURL() const { return configFileURL_; }
    const std::filesystem::path& logFileURL() const { return logFileURL_; }
    std::filesystem::path backupFileURL() const;

  private:
    void ensureDirectory();
    void loadConfig();
    ConfigFile readConfig(const std::filesystem::path& file) const;
    void loadLog();
    void saveConfig();
    // On the writer's thread.
    void writeConfig(const std::string& text) const;
    void keepPreviousConfig() const;
    // The settings as they are written; kept values the program has overwritten are forgotten.
    ConfigFile fileToSave();
    void writeLog();
    void scheduleLogFlush();
    void takeOver(ConfigFile file);

    const std::filesystem::path appSupportURL_;
    const std::filesystem::path configFileURL_;
    const std::filesystem::path logFileURL_;
    MainQueue& mainQueue_;
    UserDefaults& defaults_;
    const Logger log_{"ConfigStore"};

    std::vector<BackupPair> pairs_;
    AppConfig appConfig_;
    // What config.json held that this version can't read, written back with every save.
    std::vector<json::Value> unreadablePairs_;
    KeptValues keptValues_;
    std::vector<BackupEvent> events_;
    std::optional<DelayedWork> logFlushWorkItem_;

    Observers<std::vector<BackupPair>> pairsObservers_;
    Observers<AppConfig> appConfigObservers_;
    Observers<std::vector<BackupEvent>> eventsObservers_;
    const WriteFile writeFile_;
    // Last: its thread ends, its writes done, before anything a write reads goes.
    BackgroundWriter writer_;
};

// The user default that remembers that a pair's catch-up message was logged.
std::string packageUpgradeKey(const Uuid& pairId);

}  // namespace quillstow
