#include "support/Uuid.hpp"

#include <uuid/uuid.h>

#include <cstring>

namespace quillstow {

Uuid Uuid::random() {
    Uuid uuid;
    uuid_generate_random(uuid.bytes_.data());
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
