#pragma once

// What a file operation does after it failed: try once more, or let go.
//
// withRetry is the one retry policy of the file operations: an attempt that fails with a
// transient error (EINTR, EIO, EBUSY, EAGAIN) is made once more at once, unless a stop was asked
// for; any other failure, and the second one, is raised. The attempt is told whether it is the
// retry, so that one whose first try left something behind (a temporary name, a partial file)
// can start afresh.
//
// removeQuietly removes what a failed attempt left, a file or a folder with what it holds, and
// drops any failure: a later sweep takes what stays. Nothing here keeps state; any thread.

#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>

#include "support/Error.hpp"

namespace quillstow {

// EINTR, EIO, EBUSY and EAGAIN of the POSIX domain.
bool isTransient(const Error& error);

struct RetryPolicy {
    std::stop_token stop;
    // Runs before the retry, to pace it and report it as the first attempt was.
    std::function<void()> beforeRetry;
};

template <typename Attempt>
auto withRetry(Attempt&& attempt, const RetryPolicy& policy = {}) -> decltype(attempt(false)) {
    try {
        return attempt(false);
    } catch (const Failure& failure) {
        if (!isTransient(failure.error()) || policy.stop.stop_requested()) throw;
    }
    if (policy.beforeRetry) policy.beforeRetry();
    if (policy.stop.stop_requested()) throw Failure(errors::cancellation());
    return attempt(true);
}

// Removes the item `name` in the open folder `folder` (AT_FDCWD with a whole path), never
// following a link, with everything below it. Raises Failure; a missing item is no failure.
void removeTree(int folder, const std::string& name);

// removeTree, with every failure dropped.
void removeQuietly(int folder, const std::string& name) noexcept;
void removeQuietly(const std::filesystem::path& path) noexcept;

}  // namespace quillstow
