#include "model/BookmarkManager.hpp"

#include <blkid/blkid.h>
#include <fcntl.h>
#include <libmount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "model/Coding.hpp"
#include "support/Error.hpp"
#include "support/Json.hpp"
#include "support/Logger.hpp"
#include "support/Paths.hpp"

namespace quillstow {

namespace fs = std::filesystem;

std::string BookmarkError::errorDescription() const {
    return "Access denied for security-scoped resource at " + url.native() + ".";
}

namespace BookmarkManager {

namespace {

struct Record {
    std::string path;
    std::string volume;      // file system UUID or mount source; may be empty
    std::string belowMount;  // the path relative to the mount point
    std::uint64_t inode = 0;
    std::int64_t birth = 0;  // nanoseconds since the epoch; 0 where the file system keeps none
    bool readOnly = true;
};

struct TableCloser {
    void operator()(libmnt_table* table) const { mnt_unref_table(table); }
};

struct MountOf {
    std::string mountPoint;
    std::string source;
};

// The mount that holds a device, from this process's mount table; of several, the one on top.
std::optional<MountOf> mountHolding(dev_t device) {
    const std::unique_ptr<libmnt_table, TableCloser> table(mnt_new_table());
    if (!table || mnt_table_parse_mtab(table.get(), nullptr) != 0) return std::nullopt;
    libmnt_fs* found = mnt_table_find_devno(table.get(), device, MNT_ITER_BACKWARD);
    if (!found || !mnt_fs_get_target(found)) return std::nullopt;
    const char* source = mnt_fs_get_source(found);
    return MountOf{mnt_fs_get_target(found), source ? source : ""};
}

// The UUID of the file system on a block device, from blkid's cache or the device itself.
std::string fileSystemUuid(const std::string& source) {
    if (!source.starts_with("/dev/")) return {};
    blkid_cache cache = nullptr;
    if (blkid_get_cache(&cache, nullptr) != 0) cache = nullptr;
    char* uuid = blkid_get_tag_value(cache, "UUID", source.c_str());
    std::string text = uuid ? uuid : "";
    std::free(uuid);
    if (cache) blkid_put_cache(cache);
    return text;
}

Record recordOf(const fs::path& folder, bool readOnly) {
    struct statx status {};
    if (::statx(AT_FDCWD, folder.c_str(), 0, STATX_INO | STATX_BTIME, &status) != 0) {
        throwPosix(errno);
    }
    Record record;
    record.path = paths::standardized(folder).native();
    record.inode = status.stx_ino;
    if (status.stx_mask & STATX_BTIME) {
        record.birth =
            std::int64_t(status.stx_btime.tv_sec) * 1'000'000'000 + status.stx_btime.tv_nsec;
    }
    record.readOnly = readOnly;
    if (const auto mount = mountHolding(makedev(status.stx_dev_major, status.stx_dev_minor))) {
        const std::string uuid = fileSystemUuid(mount->source);
        record.volume = uuid.empty() ? mount->source : uuid;
        record.belowMount = fs::path(record.path).lexically_relative(mount->mountPoint).native();
    }
    return record;
}

base64::Bytes encode(const Record& record) {
    const json::Value value{{"version", 1},
                            {"path", record.path},
                            {"volume", record.volume},
                            {"belowMount", record.belowMount},
                            {"inode", std::int64_t(record.inode)},
                            {"birth", record.birth},
                            {"readOnly", record.readOnly}};
    const std::string text = value.dump(-1, ' ', false, json::Value::error_handler_t::replace);
    return base64::Bytes(text.begin(), text.end());
}

std::optional<Record> decode(const base64::Bytes& data) {
    using namespace coding;
    try {
        const json::Value document = json::read(std::string(data.begin(), data.end()));
        const json::Value& value = object(document, "a bookmark");
        if (toInteger(required(value, "version"), "version") != 1) return std::nullopt;
        Record record;
        record.path = toString(required(value, "path"), "path");
        record.volume = toString(required(value, "volume"), "volume");
        record.belowMount = toString(required(value, "belowMount"), "belowMount");
        record.inode = std::uint64_t(toInteger(required(value, "inode"), "inode"));
        record.birth = toInteger(required(value, "birth"), "birth");
        record.readOnly = toBool(required(value, "readOnly"), "readOnly");
        if (!record.path.starts_with('/')) return std::nullopt;
        return record;
    } catch (const Failure&) {
        return std::nullopt;
    }
}

bool isSameFolder(const Record& recorded, const Record& current) {
    if (recorded.inode != current.inode) return false;
    if (recorded.birth != 0 && current.birth != 0 && recorded.birth != current.birth) return false;
    if (!recorded.volume.empty() && !current.volume.empty() && recorded.volume != current.volume) {
        return false;
    }
    return true;
}

[[noreturn]] void raise(BackupError error) {
    throw BackupFailure(std::move(error));
}

}  // namespace

base64::Bytes bookmarkData(const fs::path& folder, bool readOnly) {
    return encode(recordOf(folder, readOnly));
}

Resolved resolveBookmark(const base64::Bytes& data, const fs::path& fallbackURL, bool readOnly) {
    const auto recorded = decode(data);
    if (!recorded) raise(BackupError::bookmarkStale(fallbackURL));
    const fs::path url = recorded->path;

    // Renamed or moved away: nothing a bookmark of ours can follow, and nothing to back up
    // silently in a new place.
    struct stat status {};
    if (::stat(url.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
        raise(BackupError::bookmarkStale(fallbackURL));
    }

    const int access = R_OK | X_OK | (readOnly ? 0 : W_OK);
    if (::faccessat(AT_FDCWD, url.c_str(), access, AT_EACCESS) != 0) {
        raise(BackupError::bookmarkAccessDenied(fallbackURL));
    }

    Record current;
    try {
        current = recordOf(url, readOnly);
    } catch (const Failure&) {
        raise(BackupError::bookmarkStale(fallbackURL));
    }
    if (isSameFolder(*recorded, current)) return {url, std::nullopt};

    // Another folder stands at the path. It is the path the user chose, so the record is made
    // anew for it, unless the record had followed the folder somewhere else.
    if (paths::resolved(fallbackURL) != paths::resolved(url)) {
        raise(BackupError::bookmarkStale(fallbackURL));
    }
    return {url, encode(current)};
}

void makeBookmarksForNewPair(BackupPair& pair, bool withPath) {
    const Logger log("Bookmark");
    const auto make = [&](const fs::path& folder, bool readOnly,
                          const char* which) -> std::optional<base64::Bytes> {
        try {
            return bookmarkData(folder, readOnly);
        } catch (const Failure& failure) {
            if (withPath) {
                log.error(std::string("Could not create ") + which +
                              " bookmark for %{private}s: %{public}s",
                          paths::lastPathComponent(folder), failure.error().description);
            } else {
                log.error(std::string("Could not create ") + which + " bookmark: %{public}s",
                          failure.error().description);
            }
            return std::nullopt;
        }
    };
    pair.sourceBookmark = make(pair.sourceURL, true, "source");
    pair.destinationBookmark = make(pair.destinationURL, false, "destination");
    if (pair.offsiteURL) pair.offsiteBookmark = make(*pair.offsiteURL, false, "offsite");
}

}  // namespace BookmarkManager
}  // namespace quillstow
