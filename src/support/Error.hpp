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

struct Error {
    std::string domain;
    int code = 0;
    std::string description;

    bool operator==(const Error&) const = default;
};

namespace errors {

inline constexpr std::string_view quillstowDomain = "Quillstow";
inline constexpr std::string_view posixDomain = "POSIX";
inline constexpr std::string_view cancellationDomain = "Cancellation";
inline constexpr std::string_view decodingDomain = "Decoding";

// An error of the system itself, with its user-facing message.
Error quillstow(int code, std::string description);

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
