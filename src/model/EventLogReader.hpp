#pragma once

// Reads "backup-log.json" without a tree of the whole document: one pass over its bytes finds
// where each event's text begins and ends, following only strings and brackets, and only the
// newest events are decoded. So a log that some outside hand let grow to hundreds of megabytes
// loads in a second and in little memory, where a tree of it took gigabytes. Older events are
// passed over unread, since the log drops them at its next write anyway; a flaw among them
// can't cost the newest.
//
// Pure functions; any thread.

#include <cstddef>
#include <filesystem>
#include <string_view>
#include <vector>

#include "model/BackupEvent.hpp"

namespace quillstow {

// The newest `keep` events of the log, oldest first. Throws the decoding Failure when the text
// is not a list, or when one of the newest is not an event.
std::vector<BackupEvent> readNewestEvents(std::string_view text, std::size_t keep);

// The same from a file, read in chunks; throws the POSIX Failure when it can't be read.
std::vector<BackupEvent> readNewestEventsFromFile(const std::filesystem::path& file,
                                                  std::size_t keep);

}  // namespace quillstow
