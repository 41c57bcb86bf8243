#include "verify/IntegrityVerifier.hpp"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "model/Coding.hpp"
#include "support/AtomicFile.hpp"
#include "support/FileInfo.hpp"
#include "support/Paths.hpp"

namespace quillstow {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t digestBufferSize = std::size_t(4) << 20;
constexpr double secondsPerDay = 86400.0;

struct DigestCloser {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

fs::path databaseFile(const fs::path& backupRoot) {
    return paths::appending(backupRoot, hashDatabaseName);
}

// Beside the database, whatever the root was called.
fs::path lastCheckFile(const fs::path& backupRoot) {
    return databaseFile(backupRoot).parent_path() / lastCheckName;
}

json::Value toJson(const HashEntry& entry) {
    json::Value value{{"relativePath", entry.relativePath},
                      {"sha256", entry.sha256},
                      {"fileSize", entry.fileSize},
                      {"recordedAt", coding::fromDate(entry.recordedAt)}};
    if (entry.lastVerifiedAt) value["lastVerifiedAt"] = coding::fromDate(*entry.lastVerifiedAt);
    return value;
}

HashEntry hashEntryFromJson(const json::Value& value) {
    using namespace coding;
    const Value& source = object(value, "a hash entry");
    HashEntry entry;
    entry.relativePath = toString(required(source, "relativePath"), "relativePath");
    entry.sha256 = toString(required(source, "sha256"), "sha256");
    entry.fileSize = toInteger(required(source, "fileSize"), "fileSize");
    entry.recordedAt = toDate(required(source, "recordedAt"), "recordedAt");
    if (const Value* verified = optional(source, "lastVerifiedAt")) {
        entry.lastVerifiedAt = toDate(*verified, "lastVerifiedAt");
    }
    return entry;
}

double secondsBetween(Date earlier, Date later) {
    return std::chrono::duration<double>(later - earlier).count();
}

}  // namespace

std::optional<std::string> sha256OfFile(const fs::path& file, std::stop_token stop,
                                        const std::function<void(std::int64_t)>& onChunk) {
    auto digest = digestOfFile(file, stop, onChunk);
    if (!digest) return std::nullopt;
    return std::move(digest->sha256);
}

std::optional<FileDigest> digestOfFile(const fs::path& file, std::stop_token stop,
                                       const std::function<void(std::int64_t)>& onChunk) {
    const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    (void)::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    const std::unique_ptr<EVP_MD_CTX, DigestCloser> context(EVP_MD_CTX_new());
    bool isWhole = context && EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1;
    // One buffer per thread, reused for every file: memory doesn't grow with the files.
    thread_local const std::unique_ptr<unsigned char[]> buffer(new unsigned char[digestBufferSize]);
    std::int64_t bytesRead = 0;
    while (isWhole) {
        // Between chunks: a stop ends the digest of a large file within one buffer's read.
        if (stop.stop_requested()) {
            isWhole = false;
            break;
        }
        const ssize_t count = ::read(fd, buffer.get(), digestBufferSize);
        if (count == 0) break;
        if (count < 0) {
            if (errno == EINTR) continue;
            isWhole = false;
            break;
        }
        isWhole = EVP_DigestUpdate(context.get(), buffer.get(), std::size_t(count)) == 1;
        bytesRead += count;
        if (onChunk) onChunk(bytesRead);
    }
    ::close(fd);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!isWhole || EVP_DigestFinal_ex(context.get(), digest, &length) != 1) return std::nullopt;
    static constexpr char hex[] = "0123456789abcdef";
    std::string text;
    text.reserve(length * 2);
    for (unsigned int i = 0; i < length; ++i) {
        text += hex[digest[i] >> 4];
        text += hex[digest[i] & 0xF];
    }
    return FileDigest{std::move(text), bytesRead};
}

std::vector<HashEntry> selectSample(const HashDatabase& database) {
    std::vector<HashEntry> entries;
    entries.reserve(database.size());
    for (const auto& [path, entry] : database)
        entries.push_back(entry);
    // Never verified counts as the distant past; equal dates go by path.
    std::stable_sort(entries.begin(), entries.end(), [](const HashEntry& a, const HashEntry& b) {
        const Date first = a.lastVerifiedAt.value_or(Date::min());
        const Date second = b.lastVerifiedAt.value_or(Date::min());
        if (first != second) return first < second;
        return a.relativePath < b.relativePath;
    });
    std::vector<HashEntry> sample;
    std::int64_t bytes = 0;
    for (auto& entry : entries) {
        if (int(sample.size()) >= IntegrityVerifier::sampleSize) break;
        bytes += entry.fileSize;
        sample.push_back(std::move(entry));
        if (bytes > IntegrityVerifier::maxBytesPerCheck - 1) break;
    }
    return sample;
}

std::optional<Date> oldestVerifiedDate(const HashDatabase& database) {
    std::optional<Date> oldest;
    for (const auto& [path, entry] : database) {
        if (!entry.lastVerifiedAt) return std::nullopt;
        if (!oldest || *entry.lastVerifiedAt < *oldest) oldest = entry.lastVerifiedAt;
    }
    return oldest;
}

std::string coverageDescription(const IntegrityResult& result, Date now) {
    if (result.totalTracked < 1) return "No files are being checked yet.";
    if (result.neverVerified >= 1) {
        return std::to_string(result.neverVerified) +
               (result.neverVerified == 1 ? " file still waiting for a first check."
                                          : " files still waiting for a first check.");
    }
    if (!result.oldestVerifiedAt) return "Every file has been checked.";
    const auto days =
        static_cast<long long>(secondsBetween(*result.oldestVerifiedAt, now) / secondsPerDay);
    if (days < 1) return "Every file checked today.";
    if (days == 1) return "Every file checked within the last day.";
    return "Every file checked within the last " + std::to_string(days) + " days.";
}

IntegrityVerifier::IntegrityVerifier(const WallClock& clock, FolderTest isFolder, ItemTest exists)
    : clock_(clock),
      isFolder_(isFolder ? std::move(isFolder) : FolderTest(files::isFolder)),
      exists_(exists ? std::move(exists) : ItemTest(files::exists)) {}

HashDatabase IntegrityVerifier::loadDatabase(const fs::path& backupRoot) const {
    HashDatabase database;
    try {
        // Entry by entry: a mirror of a million files would otherwise hold its whole document
        // as a tree of values, several times the size of the database it becomes.
        json::readMembers(atomicfile::read(databaseFile(backupRoot)),
                          [&](const std::string& path, json::Value&& value) {
                              database.insert_or_assign(path, hashEntryFromJson(value));
                          });
    } catch (const Failure&) {
        // Missing or damaged: the database starts over, and the next save replaces the file.
        return {};
    }
    return database;
}

void IntegrityVerifier::saveDatabase(const HashDatabase& database,
                                     const fs::path& backupRoot) const {
    json::ObjectWriter document;
    for (const auto& [path, entry] : database)
        document.add(path, toJson(entry));
    const fs::path file = databaseFile(backupRoot);
    try {
        atomicfile::write(file, std::move(document).finish());
    } catch (const Failure& failure) {
        log_.error("Failed to write hash database to %{private}s: %{public}s", file.native(),
                   failure.error().description);
    }
}

bool isCheckDue(std::optional<Date> lastCheck, Date now) {
    return !lastCheck || secondsBetween(*lastCheck, now) > IntegrityVerifier::checkPeriod;
}

std::optional<SampleCheck> IntegrityVerifier::afterPass(const PassFiles& pass,
                                                        const fs::path& backupRoot,
                                                        std::stop_token stop) {
    HashDatabase database = loadDatabase(backupRoot);
    PathSet recorded;
    bool changed = recordHashes(database, pass.copied, backupRoot, stop, &recorded);
    const auto isKnownPresent = [&](std::string_view relative) {
        return recorded.contains(relative) ||
               (pass.isKeptUnchanged && pass.isKeptUnchanged(relative));
    };
    changed = pruneStaleEntries(database, backupRoot, isKnownPresent) > 0 || changed;
    std::optional<SampleCheck> check;
    if (isCheckDue(lastCheckDate(backupRoot), clock_.now())) {
        check = SampleCheck{verifySample(database, backupRoot, stop), ""};
        check->coverage = coverageDescription(check->result, clock_.now());
        changed = changed || check->result.verified > 0 || !check->result.corrupted.empty();
    }
    if (changed) saveDatabase(database, backupRoot);
    if (check) writeLastCheck(backupRoot);
    return check;
}

bool IntegrityVerifier::recordHashes(HashDatabase& database,
                                     const std::vector<std::string>& relativePaths,
                                     const fs::path& backupRoot, std::stop_token stop,
                                     PathSet* recorded) const {
    bool wrote = false;
    for (const auto& relative : relativePaths) {
        if (stop.stop_requested()) break;
        auto digest = digestOfFile(paths::appending(backupRoot, relative), stop);
        // What can't be read keeps its older entry, if it has one.
        if (!digest) continue;
        database[relative] = HashEntry{relative, std::move(digest->sha256), digest->size,
                                       clock_.now(), std::nullopt};
        if (recorded) recorded->insert(relative);
        wrote = true;
    }
    return wrote;
}

int IntegrityVerifier::pruneStaleEntries(HashDatabase& database, const fs::path& backupRoot,
                                         const PathTest& isKnownPresent) const {
    if (database.empty() || !isFolder_(backupRoot)) return 0;
    int removed = 0;
    // Tied to the removals, once for each hundred of them: a drive pulled out now makes every
    // file look gone, and then at most a hundred entries go before the folder is found missing;
    // entries that stay cost no test.
    int testedAt = -1;
    for (auto entry = database.begin(); entry != database.end();) {
        if (removed % 100 == 0 && removed != testedAt) {
            testedAt = removed;
            if (!isFolder_(backupRoot)) break;
        }
        if ((isKnownPresent && isKnownPresent(entry->first)) ||
            exists_(paths::appending(backupRoot, entry->first))) {
            ++entry;
            continue;
        }
        entry = database.erase(entry);
        ++removed;
    }
    return removed;
}

std::optional<Date> IntegrityVerifier::lastCheckDate(const fs::path& backupRoot) const {
    try {
        std::string text = atomicfile::read(lastCheckFile(backupRoot));
        const auto first = text.find_first_not_of(" \t\r\n");
        const auto last = text.find_last_not_of(" \t\r\n");
        if (first == std::string::npos) return std::nullopt;
        return dates::parseISO8601(std::string_view(text).substr(first, last - first + 1));
    } catch (const Failure&) {
        return std::nullopt;
    }
}

void IntegrityVerifier::writeLastCheck(const fs::path& backupRoot) const {
    try {
        atomicfile::write(lastCheckFile(backupRoot), dates::formatISO8601(clock_.now()));
    } catch (const Failure& failure) {
        log_.error("Failed to write last-check timestamp: %{public}s", failure.error().description);
    }
}

IntegrityResult IntegrityVerifier::verifySample(HashDatabase& database, const fs::path& backupRoot,
                                                std::stop_token stop) const {
    IntegrityResult result;
    std::vector<std::string> checked;
    for (const auto& entry : selectSample(database)) {
        if (stop.stop_requested()) break;
        const fs::path file = paths::appending(backupRoot, entry.relativePath);
        if (!files::exists(file)) {
            result.missing.push_back(entry.relativePath);
            continue;
        }
        const auto digest = sha256OfFile(file, stop);
        // A file cut short by a stop is neither good nor damaged: it waits for the next check.
        if (stop.stop_requested()) break;
        if (digest && *digest == entry.sha256) {
            ++result.verified;
        } else {
            result.corrupted.push_back(entry.relativePath);
        }
        checked.push_back(entry.relativePath);
    }
    const Date now = clock_.now();
    for (const auto& relative : checked)
        database.at(relative).lastVerifiedAt = now;
    result.totalTracked = int(database.size());
    for (const auto& [path, entry] : database)
        result.neverVerified += !entry.lastVerifiedAt;
    result.oldestVerifiedAt = oldestVerifiedDate(database);
    result.timestamp = now;
    return result;
}

}  // namespace quillstow
