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

ConfigStore::ConfigStore(fs::path settingsFolder, MainQueue& mainQueue, UserDefaults& defaults,
                         WriteFile writeFile)
    : appSupportURL_(std::move(settingsFolder)),
      configFileURL_(appSupportURL_ / "config.json"),
      logFileURL_(appSupportURL_ / "backup-log.json"),
      mainQueue_(mainQueue),
      defaults_(defaults),
      writeFile_(writeFile ? std::move(writeFile) : WriteFile(atomicfile::write)) {
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
    // What the file held that this version can't use is the store's to keep, not the caller's
    // copy's: once the user sets a field, its kept value is gone for good.
    KeptValues kept = appConfig_.keptValues;
    appConfig_ = config;
    appConfig_.keptValues = std::move(kept);
    coding::forgetOverwrittenValues(appConfig_);
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

namespace {

// Whether anything stands at the path, even a link to nowhere.
bool isAnythingAt(const fs::path& path) {
    std::error_code ignored;
    return fs::symlink_status(path, ignored).type() != fs::file_type::not_found;
}

// The whole file, or nothing when it can't be read.
std::optional<std::string> contentOf(const fs::path& file) {
    try {
        return atomicfile::read(file);
    } catch (const Failure&) {
        return std::nullopt;
    }
}

bool isReadableConfig(const std::string& text) {
    try {
        configFileFromJson(json::read(text));
        return true;
    } catch (const Failure&) {
        return false;
    }
}

}  // namespace

void ConfigStore::takeOver(ConfigFile file) {
    pairs_ = std::move(file.pairs);
    unreadablePairs_ = std::move(file.unreadablePairs);
    keptValues_ = std::move(file.keptValues);
    pairsObservers_.notify(pairs_);
    // Observers of the settings are not woken for nothing.
    if (file.appConfig != appConfig_) {
        appConfig_ = std::move(file.appConfig);
        appConfigObservers_.notify(appConfig_);
    }
}

ConfigFile ConfigStore::readConfig(const fs::path& file) const {
    coding::DecodingNotes notes;
    ConfigFile config = configFileFromJson(json::read(atomicfile::read(file)), &notes);
    for (const auto& note : notes)
        log_.error("Reading %{public}s: %{public}s", file.filename().native(), note);
    return config;
}

void ConfigStore::loadConfig() {
    // Only a first run has neither file. A config.json gone or turned into something else
    // beside its backup is damage like any other.
    if (!isAnythingAt(configFileURL_) && !isAnythingAt(backupFileURL())) return;
    try {
        takeOver(readConfig(configFileURL_));
        return;
    } catch (const Failure& failure) {
        log_.error("Failed to load config.json: %{public}s", failure.error().description);
    }

    if (!isAnythingAt(backupFileURL())) return;
    try {
        takeOver(readConfig(backupFileURL()));
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

ConfigFile ConfigStore::fileToSave() {
    for (auto& pair : pairs_)
        coding::forgetOverwrittenValues(pair);
    coding::forgetOverwrittenValues(appConfig_);
    ConfigFile file{pairs_, appConfig_, unreadablePairs_, keptValues_};
    coding::forgetOverwrittenValues(file);
    keptValues_ = file.keptValues;
    return file;
}

void ConfigStore::saveConfig() {
    // The snapshot is taken here; the disk is the writer's.
    writer_.submit("config.json",
                   [this, text = json::write(toJson(fileToSave()))] { writeConfig(text); });
}

void ConfigStore::writeConfig(const std::string& text) const {
    keepPreviousConfig();
    try {
        writeFile_(configFileURL_, text);
    } catch (const Failure& failure) {
        log_.error("Failed to write %{public}s: %{public}s", "config.json",
                   failure.error().description);
    }
}

// Copies config.json to its backup by the same atomic write, so that a failed copy leaves the
// old backup whole. A copy that can't be read never replaces a backup that can.
void ConfigStore::keepPreviousConfig() const {
    // Nothing there, or nothing that can be read: the backup stays as it is.
    const auto previous = contentOf(configFileURL_);
    if (!previous) return;
    if (!isReadableConfig(*previous) && isReadableConfig(contentOf(backupFileURL()).value_or(""))) {
        return;
    }
    try {
        writeFile_(backupFileURL(), *previous);
    } catch (const Failure&) {
        // Ignored, as the copy always was: the write of config.json goes on.
    }
}

void ConfigStore::writeLog() {
    // A copy of the events: the main thread goes on changing its own.
    writer_.submit("backup-log.json", [this, events = events_] {
        try {
            writeFile_(logFileURL_, json::write(toJson(events)));
        } catch (const Failure& failure) {
            log_.error("Failed to write %{public}s: %{public}s", "backup-log.json",
                       failure.error().description);
        }
    });
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
