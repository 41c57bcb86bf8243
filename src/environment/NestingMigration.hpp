#pragma once

// Repairs a destination that an older layout nested twice: a pair whose destination ends in
// "Quillstow" could have its files in {destination}/Quillstow/{name}; they belong in
// {destination}/{name}. Each item is moved up by one rename that never replaces anything; an
// item whose name is already taken at the right place stays where it is. The moves of a pair are
// one unit: when one fails, those made are put back and a folder made for them is removed, so
// both trees are as they were, and the next start tries again. No marker is kept: a pair with
// nothing to move costs one look at the disk.
//
// Runs on the main thread at start-up, before any engine exists, so nothing else touches these
// folders. Everything it has to say goes to the log.

#include <vector>

#include "model/BackupPair.hpp"

namespace quillstow::NestingMigration {

void run(const std::vector<BackupPair>& pairs);

}  // namespace quillstow::NestingMigration
