#pragma once

// The system's error record and the exception that carries it.
//
// Errors of the system itself have the domain "Quillstow" and a code of its own; failed system
// calls have the domain "POSIX" and the errno value; a cancelled task has a domain of its own.
// Only what stops an operation before it has touched anything is thrown; later failures are
// entries in a result.

#include <exception>
#include <string>
#include <string_view>

namespace quillstow {

// The codes of the system's own errors, in the domain "Quillstow". The numbers are what a
// result records and a log shows: never renumber one.
enum class ErrorCode : int {
    // The archive phase's rails.
    sourceEmptyBeforeArchival = 1001,
    tooManyToArchive = 1002,
    // The checks before a pass, and the volumes during it.
    destinationIsLink = 1003,
    sourceNotReadable = 1004,
    destinationNotWritable = 1005,
    sourceVolumeLost = 1006,
    destinationVolumeLost = 1007,
    // One file of a pass.
    sourceBecameUnreadable = 1008,
    sizeMismatch = 1009,
    // The streamed copy of a large file. Two texts share 1013 on purpose.
    sourceNotOpened = 1010,
    partialNotOpened = 1011,
    readFailed = 1012,
    writeFailed = 1013,
    resumeMismatch = 1013,
    sourceChangedDuringCopy = 1014,
    // The folders a pair may use.
    sameFolder = 1100,
    destinationInsideSource = 1101,
    sourceInsideDestination = 1102,
    protectedFolder = 1103,
    homeFolder = 1104,
    rootFolder = 1105,
    // The offsite copy.
    offsiteFolderLost = 2001,
    offsiteSizeMismatch = 2010,
    offsiteRoomShort = 2020,
};

struct Error {
    std::string domain;
    // An ErrorCode in the domain "Quillstow", the errno value in "POSIX".
    int code = 0;
    std::string description;

    bool operator==(const Error&) const = default;
    // Whether this is the system's own error of that code.
    bool is(ErrorCode ownCode) const;
};

namespace errors {

inline constexpr std::string_view quillstowDomain = "Quillstow";
inline constexpr std::string_view posixDomain = "POSIX";
inline constexpr std::string_view cancellationDomain = "Cancellation";
inline constexpr std::string_view decodingDomain = "Decoding";

// An error of the system itself, with its user-facing message.
Error quillstow(ErrorCode code, std::string description);

// The error of a failed system call; the description is the system's text for the number.
Error posix(int errnoValue);

// What a cancelled task raises.
Error cancellation();

bool isPosix(const Error& error, int errnoValue);
bool isCancellation(const Error& error);

}  // namespace errors

// Carries an Error through a throw.
class Failure : public std::exception {
  public:
    explicit Failure(Error error) : error_(std::move(error)) {}

    const Error& error() const noexcept { return error_; }
    const char* what() const noexcept override { return error_.description.c_str(); }

  private:
    Error error_;
};

// Throws the POSIX error for errnoValue.
[[noreturn]] void throwPosix(int errnoValue);

}  // namespace quillstow
