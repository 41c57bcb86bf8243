#pragma once

// The hidden folder a filing copies into and proves, ".quillstowtmp-…-{name}" beside its final
// place in the year's folder, and what becomes of it: published under the final name, or
// removed again.
//
// Removing a large copy takes long (tens of seconds for many gigabytes on some drives), and a
// program that quits must not wait for it: once a stop has been asked for, removing goes on for
// a quarter of a second more, with small files only, and what is left stays hidden. The next filing
// into the same year sweeps such leftovers before it copies. Every filing holds a shared lock on
// its year's folder for its life, and a filing sweeps only what it listed while it held the lock
// alone, so no filing ever sweeps another one's copy under way, in this process or another.
//
// Used on the filing's task only.

#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>
#include <vector>

#include "copy/FileSystem.hpp"
#include "support/Clock.hpp"
#include "support/FileHandle.hpp"

namespace quillstow {

// Hears the name of each file as it goes, and of a big one as it is cut down.
using OnRemoved = std::function<void(const std::string& name)>;

// Removes `item` with everything in it, entry by entry, never through a link; a file of 64 MiB
// or more is cut down from its end 64 MiB at a time first, each step heard by `onRemoved`. Once
// `stop` has been asked for, it goes on for at most `graceSeconds` by `clock`, with small files
// only. Answers whether all is gone; entries that can't be removed stay, and so does the rest
// once time is up.
bool removeWithinGrace(const std::filesystem::path& item, std::stop_token stop, const Clock& clock,
                       double graceSeconds, const OnRemoved& onRemoved = nullptr);

class StagingFolder {
  public:
    static constexpr double graceAfterStop = 0.25;

    // Makes the year's folder as needed and the hidden folder in it. Throws Failure when either
    // can't be made.
    StagingFolder(FileSystem& fileSystem, const std::filesystem::path& destination,
                  const std::string& name, std::stop_token stop, const Clock& clock);
    StagingFolder(const StagingFolder&) = delete;
    StagingFolder& operator=(const StagingFolder&) = delete;
    // Removes the copy unless it was published, then the folders made for the year if empty.
    ~StagingFolder();

    const std::filesystem::path& path() const { return path_; }

    // Removes what stopped filings left in the year's folder, as found when this one began.
    void sweepLeftovers(const OnRemoved& onRemoved);

    // Gives the copy its final name, never replacing anything. Into a folder that already stands
    // there (empty, or with hidden entries), the copy's entries move one by one, and back again
    // if one can't. Throws Failure when it can't.
    void publish(const std::filesystem::path& destination);

  private:
    void lockYear(const std::filesystem::path& yearFolder);
    void removeFoldersMadeHere(const std::filesystem::path& yearFolder) const;
    void moveEntriesInto(const std::filesystem::path& destination);

    FileSystem& fileSystem_;
    std::stop_token stop_;
    const Clock& clock_;
    FileHandle yearLock_;  // shared while this filing lives
    std::vector<std::filesystem::path> leftovers_;
    std::filesystem::path path_;
    std::filesystem::path firstMadeFolder_;  // empty when the year's folder stood already
    bool published_ = false;
};

}  // namespace quillstow
