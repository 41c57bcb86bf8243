#include "support/Uuid.hpp"

#include <sys/random.h>
#include <uuid/uuid.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace quillstow {

namespace {

// Random bytes from the kernel, fetched a page at a time: a pass names a temporary file for
// every copy, and one system call per name would be felt.
void fillRandom(std::uint8_t* bytes, std::size_t count) {
    thread_local std::uint8_t pool[4096];
    thread_local std::size_t filled = 0;
    thread_local std::size_t used = 0;
    while (count > 0) {
        if (used == filled) {
            ssize_t got;
            do {
                got = ::getrandom(pool, sizeof pool, 0);
            } while (got < 0 && errno == EINTR);
            if (got <= 0) throw std::runtime_error("getrandom failed");
            filled = std::size_t(got);
            used = 0;
        }
        const std::size_t taken = std::min(count, filled - used);
        std::memcpy(bytes, pool + used, taken);
        used += taken;
        bytes += taken;
        count -= taken;
    }
}

}  // namespace

Uuid Uuid::random() {
    Uuid uuid;
    fillRandom(uuid.bytes_.data(), uuid.bytes_.size());
    uuid.bytes_[6] = std::uint8_t((uuid.bytes_[6] & 0x0F) | 0x40);  // version 4
    uuid.bytes_[8] = std::uint8_t((uuid.bytes_[8] & 0x3F) | 0x80);  // RFC 4122 variant
    return uuid;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    char buffer[37];
    std::memcpy(buffer, text.data(), 36);
    buffer[36] = '\0';
    Uuid uuid;
    if (uuid_parse(buffer, uuid.bytes_.data()) != 0) return std::nullopt;
    return uuid;
}

std::string Uuid::text() const {
    char buffer[37];
    uuid_unparse_upper(bytes_.data(), buffer);
    return buffer;
}

}  // namespace quillstow
