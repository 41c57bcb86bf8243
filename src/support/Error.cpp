#include "support/Error.hpp"

#include <cstring>

namespace quillstow {
namespace errors {

Error quillstow(ErrorCode code, std::string description) {
    return Error{std::string(quillstowDomain), int(code), std::move(description)};
}

Error posix(int errnoValue) {
    // strerrordesc_np is the thread-safe form: passes run off the main thread.
    const char* text = strerrordesc_np(errnoValue);
    return Error{std::string(posixDomain), errnoValue,
                 text ? text : "Unknown error " + std::to_string(errnoValue)};
}

Error cancellation() {
    return Error{std::string(cancellationDomain), 1, "The operation was cancelled."};
}

bool isPosix(const Error& error, int errnoValue) {
    return error.domain == posixDomain && error.code == errnoValue;
}

bool isCancellation(const Error& error) {
    return error.domain == cancellationDomain;
}

}  // namespace errors

bool Error::is(ErrorCode ownCode) const {
    return domain == errors::quillstowDomain && code == int(ownCode);
}

void throwPosix(int errnoValue) {
    throw Failure(errors::posix(errnoValue));
}

}  // namespace quillstow
