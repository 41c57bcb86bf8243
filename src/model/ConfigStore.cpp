#include "model/ConfigStore.hpp"

#include <cstdlib>

#include "model/EventLogReader.hpp"
#include "support/AtomicFile.hpp"
#include "support/Paths.hpp"

namespace quillstow {

namespace fs = std::filesystem;

fs::path defaultSettingsFolder() {
    // A relative XDG_CONFIG_HOME is invalid and ignored, as the base directory rules say.
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && config[0] == '/') {
        return fs::path(config) / "Quillstow";
    }
    return paths::homeFolder() / ".config" / "Quillstow";
}

std::string packageUpgradeKey(const Uuid& pairId) {
    return "didLogPackageUpgrade_" + pairId.text();
}

ConfigStore::ConfigStore(fs::path settingsFolder, MainQueue& mainQueue, UserDefaults& defaults)
    : appSupportURL_(std::move(settingsFolder)),
      configFileURL_(appSupportURL_ / "config.json"),
      logFileURL_(appSupportURL_ / "backup-log.json"),
      mainQueue_(mainQueue),
      defaults_(defaults) {
    ensureDirectory();
    loadConfig();
    loadLog();
}

ConfigStore::~ConfigStore() {
    if (logFlushWorkItem_) logFlushWorkItem_->cancel();
}

fs::path ConfigStore::backupFileURL() const {
    return configFileURL_.parent_path() / (configFileURL_.filename().native() + ".backup");
}

void ConfigStore::setAppConfig(const AppConfig& config) {
    appConfig_ = config;
    appConfigObservers_.notify(appConfig_);
}

void ConfigStore::setEvents(std::vector<BackupEvent> events) {
    events_ = std::move(events);
    eventsObservers_.notify(events_);
}

void ConfigStore::addPair(const BackupPair& pair) {
    pairs_.push_back(pair);
    pairsObservers_.notify(pairs_);
    saveConfig();
}

void ConfigStore::updatePair(const BackupPair& pair) {
    updatePair(pair.id, [&](BackupPair& stored) { stored = pair; });
}

void ConfigStore::updatePair(const Uuid& id, const std::function<void(BackupPair&)>& change) {
    const auto found = std::find_if(pairs_.begin(), pairs_.end(), [&](const BackupPair& candidate) {
        return candidate.id == id;
    });
    if (found == pairs_.end()) return;
    change(*found);
    pairsObservers_.notify(pairs_);
    saveConfig();
}

void ConfigStore::removePair(const Uuid& id) {
    std::erase_if(pairs_, [&](const BackupPair& pair) { return pair.id == id; });
    pairsObservers_.notify(pairs_);
    saveConfig();
    defaults_.removeValue(packageUpgradeKey(id));
}

void ConfigStore::addEvent(const BackupEvent& event) {
    events_.push_back(event);
    if (events_.size() > maxLogEntries) {
        events_.erase(events_.begin(), events_.end() - std::ptrdiff_t(maxLogEntries));
    }
    eventsObservers_.notify(events_);
    scheduleLogFlush();
}

void ConfigStore::save() {
    saveConfig();
    if (logFlushWorkItem_) {
        logFlushWorkItem_->cancel();
        logFlushWorkItem_.reset();
    }
    writeLog();
}

Subscription ConfigStore::observePairs(Observers<std::vector<BackupPair>>::Observer observer) {
    return pairsObservers_.subscribe(std::move(observer));
}

Subscription ConfigStore::observeAppConfig(Observers<AppConfig>::Observer observer) {
    return appConfigObservers_.subscribe(std::move(observer));
}

Subscription ConfigStore::observeEvents(Observers<std::vector<BackupEvent>>::Observer observer) {
    return eventsObservers_.subscribe(std::move(observer));
}

void ConfigStore::ensureDirectory() {
    std::error_code error;
    if (fs::exists(appSupportURL_, error)) return;
    fs::create_directories(appSupportURL_, error);
    if (error) {
        log_.error("Failed to create Application Support directory: %{public}s", error.message());
    }
}

void ConfigStore::takeOver(ConfigFile file) {
    pairs_ = std::move(file.pairs);
    pairsObservers_.notify(pairs_);
    // Observers of the settings are not woken for nothing.
    if (file.appConfig != appConfig_) setAppConfig(file.appConfig);
}

void ConfigStore::loadConfig() {
    std::error_code missing;
    if (!fs::exists(configFileURL_, missing)) return;
    try {
        takeOver(configFileFromJson(json::read(atomicfile::read(configFileURL_))));
        return;
    } catch (const Failure& failure) {
        log_.error("Failed to load config.json: %{public}s", failure.error().description);
    }

    if (!fs::exists(backupFileURL(), missing)) return;
    try {
        takeOver(configFileFromJson(json::read(atomicfile::read(backupFileURL()))));
    } catch (const Failure& failure) {
        log_.error("Backup recovery also failed: %{public}s", failure.error().description);
        return;
    }
    log_.notice("Recovered from config.json.backup");
    saveConfig();
}

void ConfigStore::loadLog() {
    std::error_code missing;
    if (!fs::exists(logFileURL_, missing)) return;
    try {
        // Only the newest are ever shown or written again, and a log grown far past its limit
        // by another hand would otherwise cost gigabytes to read.
        events_ = readNewestEventsFromFile(logFileURL_, maxLogEntries);
        eventsObservers_.notify(events_);
    } catch (const Failure& failure) {
        log_.error("Failed to load backup-log.json: %{public}s", failure.error().description);
    }
}

void ConfigStore::saveConfig() {
    std::error_code ignored;
    if (fs::exists(configFileURL_, ignored)) {
        const fs::path backup = backupFileURL();
        if (fs::exists(backup, ignored)) fs::remove(backup, ignored);
        if (!ignored) fs::copy_file(configFileURL_, backup, ignored);
    }
    try {
        atomicfile::write(configFileURL_, json::write(toJson(ConfigFile{pairs_, appConfig_})));
    } catch (const Failure& failure) {
        log_.error("Failed to write %{public}s: %{public}s", "config.json",
                   failure.error().description);
    }
}

void ConfigStore::writeLog() {
    try {
        atomicfile::write(logFileURL_, json::write(toJson(events_)));
    } catch (const Failure& failure) {
        log_.error("Failed to write %{public}s: %{public}s", "backup-log.json",
                   failure.error().description);
    }
}

void ConfigStore::scheduleLogFlush() {
    if (logFlushWorkItem_) logFlushWorkItem_->cancel();
    // The store cancels the work when it goes, so the work never outlives it.
    logFlushWorkItem_ = mainQueue_.postDelayed(logFlushDelay, [this] {
        writeLog();
        logFlushWorkItem_.reset();
    });
}

}  // namespace quillstow
