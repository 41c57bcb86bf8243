#pragma once

// What a file operation does after it failed: try once more, or let go.
//
// withRetry is the one retry policy of the file operations. By default an attempt that fails
// with a transient error (EINTR, EIO, EBUSY, EAGAIN) is made once more at once, unless a stop
// was asked for; any other failure, and the last one, is raised. A policy may allow more
// attempts, retry every failure, and pace the retries (the offsite copy waits, and tries three
// times). The attempt is told whether it is a retry, so that one whose first try left something
// behind (a temporary name, a partial file) can start afresh.
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

// Any failure at all: for copies whose every failure may pass, such as a cloud folder's.
inline bool isAnyFailure(const Error&) {
    return true;
}

struct RetryPolicy {
    // Once asked, no further attempt is made.
    std::stop_token stop;
    // Runs before each retry, to pace it and report it as the first attempt was.
    std::function<void()> beforeRetry;
    // Attempts in all, the first one included.
    int attempts = 2;
    // Which failures earn another attempt.
    bool (*isWorthRetrying)(const Error&) = isTransient;
};

template <typename Attempt>
auto withRetry(Attempt&& attempt, const RetryPolicy& policy = {}) -> decltype(attempt(false)) {
    for (int made = 1;; ++made) {
        try {
            return attempt(made > 1);
        } catch (const Failure& failure) {
            if (made >= policy.attempts || !policy.isWorthRetrying(failure.error()) ||
                policy.stop.stop_requested()) {
                throw;
            }
        }
        if (policy.beforeRetry) policy.beforeRetry();
        if (policy.stop.stop_requested()) throw Failure(errors::cancellation());
    }
}

// Removes the item `name` in the open folder `folder` (AT_FDCWD with a whole path), never
// following a link, with everything below it. Raises Failure; a missing item is no failure.
void removeTree(int folder, const std::string& name);

// removeTree, with every failure dropped.
void removeQuietly(int folder, const std::string& name) noexcept;
void removeQuietly(const std::filesystem::path& path) noexcept;

}  // namespace quillstow
