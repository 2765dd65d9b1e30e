#include "CodeSignature/EscapedText.h"

#include <cstddef>
#include <cstdint>

namespace {

struct Character {
    std::size_t length;  // in bytes, at least 1
    bool isPlain;        // whole, and visible or a blank
};

bool isHidden(std::uint32_t point) {
    return point < 0x20 || (point >= 0x7F && point < 0xA0) || point == 0xAD || point == 0x61C ||
           (point >= 0x200B && point <= 0x200F) || (point >= 0x2028 && point <= 0x202E) ||
           (point >= 0x2060 && point <= 0x206F) || point == 0xFEFF || (point >= 0xFFF9 && point <= 0xFFFB) ||
           (point >= 0xE0000 && point <= 0xE0FFF);
}

Character firstOf(std::string_view text) {
    constexpr Character broken{1, false};
    const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(text[at]); };
    const std::uint8_t lead = byte(0);
    if (lead < 0x80) return {1, !isHidden(lead)};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return broken;
    std::uint32_t point = lead & (0xFF >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return broken;
        point = point << 6 | (byte(i) & 0x3F);
    }
    // Refuse a longer form than needed, half of a surrogate pair, and numbers beyond the last character.
    if ((length == 3 && point < 0x800) || (length == 4 && point < 0x10000)) return broken;
    if ((point >= 0xD800 && point <= 0xDFFF) || point > 0x10FFFF) return broken;
    return {length, !isHidden(point)};
}

}  // namespace

std::string escapedText(std::string_view text) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string result;
    while (!text.empty()) {
        const Character character = firstOf(text);
        const std::string_view bytes = text.substr(0, character.length);
        if (character.isPlain && bytes != "\\") {
            result += bytes;
        } else {
            for (const char c : bytes) {
                const auto value = static_cast<std::uint8_t>(c);
                result += "\\x";
                result += digits[value >> 4];
                result += digits[value & 15];
            }
        }
        text.remove_prefix(character.length);
    }
    return result;
}

bool isPlainText(std::string_view text) {
    while (!text.empty()) {
        const Character character = firstOf(text);
        if (!character.isPlain) return false;
        text.remove_prefix(character.length);
    }
    return true;
}
