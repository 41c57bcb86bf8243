#pragma once

// A pair as tests make it: a fresh id, a name and its two folders. Nothing is made on disk.

#include <filesystem>
#include <string>

#include "model/BackupPair.hpp"

namespace quillstow::testing {

inline BackupPair pairOf(const std::string& name, const std::filesystem::path& source,
                         const std::filesystem::path& destination) {
    BackupPair pair;
    pair.id = Uuid::random();
    pair.name = name;
    pair.sourceURL = source;
    pair.destinationURL = destination;
    return pair;
}

}  // namespace quillstow::testing
