#pragma once

// Guards a finished backup against silent decay of the drive: a SHA-256 digest of every file a
// pass copied, kept in the pair's folder, and once a day at most a re-read of a bounded sample
// (50 files, about 8 GiB), those checked longest ago first, so that over time the whole backup
// is covered. It reports; it never repairs.
//
//   .quillstow-hashes.json   relative path to entry, written whole and atomically
//   .quillstow-lastcheck     the time of the last check
//
// No state between calls: every operation takes the pair's folder. Called on a run's task.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "control/EngineStages.hpp"
#include "support/Clock.hpp"
#include "support/Logger.hpp"

namespace quillstow {

inline constexpr const char* hashDatabaseName = ".quillstow-hashes.json";
inline constexpr const char* lastCheckName = ".quillstow-lastcheck";

struct HashEntry {
    std::string relativePath;
    std::string sha256;  // 64 lower-case hexadecimal characters
    std::int64_t fileSize = 0;
    Date recordedAt;
    std::optional<Date> lastVerifiedAt;  // absent: never verified

    bool operator==(const HashEntry&) const = default;
};

using HashDatabase = std::map<std::string, HashEntry>;

// The digest of a file's content, read through one buffer of 4 MiB; nothing when the file can't
// be opened or read to its end, or when a stop is asked for before the end. `onChunk`, when
// given, hears the bytes read so far after every buffer, so a long digest can show progress.
std::optional<std::string> sha256OfFile(
    const std::filesystem::path& file, std::stop_token stop = {},
    const std::function<void(std::int64_t bytesRead)>& onChunk = nullptr);

// The digest with the size of what was read, which is the file's size: no second look at it.
struct FileDigest {
    std::string sha256;
    std::int64_t size = 0;
};
std::optional<FileDigest> digestOfFile(const std::filesystem::path& file, std::stop_token stop = {},
                                       const std::function<void(std::int64_t)>& onChunk = nullptr);

// The files a check re-reads: never verified first, then those verified longest ago, ties by
// path; at most 50, and no more once their recorded sizes pass 8 GiB (the file that crosses the
// budget is taken, so a huge file is checked on its own).
std::vector<HashEntry> selectSample(const HashDatabase& database);

// The earliest check; nothing when any entry was never checked or there is none.
std::optional<Date> oldestVerifiedDate(const HashDatabase& database);

// The sentence for the log: how much of the backup has been checked, and how recently.
std::string coverageDescription(const IntegrityResult& result, Date now);

// Whether a sample is due: never checked, or checked more than a day ago. A clock set back
// makes it not due.
bool isCheckDue(std::optional<Date> lastCheck, Date now);

class IntegrityVerifier final : public IntegrityStage {
  public:
    static constexpr int sampleSize = 50;
    static constexpr std::int64_t maxBytesPerCheck = std::int64_t(8) << 30;
    static constexpr double checkPeriod = 86400.0;

    // `isFolder` is the test that a backup folder is still there; pruning repeats it so that a
    // drive pulled out meanwhile can't empty the database. `exists` is the look on the disk for
    // a file that pruning can't settle from what the pass knows.
    using FolderTest = std::function<bool(const std::filesystem::path&)>;
    using ItemTest = std::function<bool(const std::filesystem::path&)>;
    explicit IntegrityVerifier(const WallClock& clock, FolderTest isFolder = nullptr,
                               ItemTest exists = nullptr);

    // Reads the database once, records, prunes, checks a sample when one is due (and then
    // notes the time of the check, also of one cut short), and writes the database once, when
    // it changed. A file the pass kept unchanged, or one just read for its digest, is known to
    // be there: only the others are looked up.
    std::optional<SampleCheck> afterPass(const PassFiles& pass,
                                         const std::filesystem::path& backupRoot,
                                         std::stop_token stop) override;

    // The steps, on the database in memory. Each says whether it changed it.
    // Puts in a fresh entry for every file that can be read, into `recorded` too where given;
    // one that can't keeps its older one.
    using PathSet = std::unordered_set<std::string_view>;
    bool recordHashes(HashDatabase& database, const std::vector<std::string>& relativePaths,
                      const std::filesystem::path& backupRoot, std::stop_token stop,
                      PathSet* recorded = nullptr) const;
    // Forgets entries whose file is gone; how many. `isKnownPresent` settles a file without a
    // look at the disk.
    using PathTest = std::function<bool(std::string_view relativePath)>;
    int pruneStaleEntries(HashDatabase& database, const std::filesystem::path& backupRoot,
                          const PathTest& isKnownPresent = nullptr) const;
    // Re-reads the sample and stamps what it read, damaged or not.
    IntegrityResult verifySample(HashDatabase& database, const std::filesystem::path& backupRoot,
                                 std::stop_token stop) const;

    // Empty, silently, when missing or damaged.
    HashDatabase loadDatabase(const std::filesystem::path& backupRoot) const;
    void saveDatabase(const HashDatabase& database, const std::filesystem::path& backupRoot) const;
    // Nothing when never written or unreadable: a check is due.
    std::optional<Date> lastCheckDate(const std::filesystem::path& backupRoot) const;
    void writeLastCheck(const std::filesystem::path& backupRoot) const;

  private:
    const WallClock& clock_;
    FolderTest isFolder_;
    ItemTest exists_;
    const Logger log_{"IntegrityVerifier"};
};

}  // namespace quillstow
