#include "support/Base64.hpp"

namespace quillstow::base64 {

namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int valueOf(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

}  // namespace

std::string encode(const Bytes& bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const std::uint32_t group = bytes[i] << 16 | bytes[i + 1] << 8 | bytes[i + 2];
        text += alphabet[group >> 18 & 63];
        text += alphabet[group >> 12 & 63];
        text += alphabet[group >> 6 & 63];
        text += alphabet[group & 63];
    }
    const std::size_t left = bytes.size() - i;
    if (left == 1) {
        const std::uint32_t group = bytes[i] << 16;
        text += alphabet[group >> 18 & 63];
        text += alphabet[group >> 12 & 63];
        text += "==";
    } else if (left == 2) {
        const std::uint32_t group = bytes[i] << 16 | bytes[i + 1] << 8;
        text += alphabet[group >> 18 & 63];
        text += alphabet[group >> 12 & 63];
        text += alphabet[group >> 6 & 63];
        text += '=';
    }
    return text;
}

std::optional<Bytes> decode(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    Bytes bytes;
    bytes.reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        int padding = 0;
        if (last && text[i + 3] == '=') padding = text[i + 2] == '=' ? 2 : 1;
        std::uint32_t group = 0;
        for (int j = 0; j < 4; ++j) {
            if (j >= 4 - padding) {
                group <<= 6;
                continue;
            }
            const int value = valueOf(text[i + j]);
            if (value < 0) return std::nullopt;
            group = group << 6 | std::uint32_t(value);
        }
        bytes.push_back(std::uint8_t(group >> 16));
        if (padding < 2) bytes.push_back(std::uint8_t(group >> 8));
        if (padding < 1) bytes.push_back(std::uint8_t(group));
    }
    return bytes;
}

}  // namespace quillstow::base64
