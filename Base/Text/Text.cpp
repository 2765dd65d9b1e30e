#include "Text/Text.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utf8proc.h>

namespace {

/// One code point at the front of a text, and how many bytes it takes. A byte that begins none is
/// given as -1 and takes one.
struct CodePoint {
    utf8proc_int32_t value = -1;
    std::size_t length = 1;
};

CodePoint codePointAt(std::string_view text) {
    CodePoint result;
    const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                         static_cast<utf8proc_ssize_t>(text.size()), &result.value);
    if (length <= 0) return {-1, 1};
    result.length = static_cast<std::size_t>(length);
    return result;
}

bool isWhitespace(utf8proc_int32_t c) {
    if ((c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85) return true;
    if (c < 0x80) return false;
    const auto category = utf8proc_category(c);
    return category == UTF8PROC_CATEGORY_ZS || category == UTF8PROC_CATEGORY_ZL || category == UTF8PROC_CATEGORY_ZP;
}

/// Controls, surrogates, line separators, and those of the format
/// characters that turn the writing direction. Joiners and variation selectors stay: emoji and several
/// scripts need them.
bool disturbsLine(utf8proc_int32_t c) {
    const auto category = utf8proc_category(c);
    if (category == UTF8PROC_CATEGORY_CC || category == UTF8PROC_CATEGORY_CS || category == UTF8PROC_CATEGORY_ZL ||
        category == UTF8PROC_CATEGORY_ZP)
        return true;
    const bool isBidiControl =
        c == 0x061C || c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
    return isBidiControl;
}

}  // namespace

std::string_view Text::prefix(std::string_view text, std::size_t count) {
    std::size_t characters = 0;
    std::size_t at = 0;
    utf8proc_int32_t before = -1;
    utf8proc_int32_t state = 0;
    while (at < text.size()) {
        const CodePoint point = codePointAt(text.substr(at));
        const bool begins =
            at == 0 || before < 0 || point.value < 0 || utf8proc_grapheme_break_stateful(before, point.value, &state);
        if (begins && characters++ == count) return text.substr(0, at);
        before = point.value;
        at += point.length;
    }
    return text;
}

std::string_view Text::trimmed(std::string_view text) {
    std::size_t begin = text.size();
    std::size_t end = 0;
    for (std::size_t at = 0; at < text.size();) {
        const CodePoint point = codePointAt(text.substr(at));
        if (!isWhitespace(point.value)) {
            if (begin == text.size()) begin = at;
            end = at + point.length;
        }
        at += point.length;
    }
    return begin < end ? text.substr(begin, end - begin) : std::string_view();
}

bool Text::hasWhitespace(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const CodePoint point = codePointAt(text.substr(at));
        if (isWhitespace(point.value)) return true;
        at += point.length;
    }
    return false;
}

bool Text::isUtf8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const CodePoint point = codePointAt(text.substr(at));
        if (point.value < 0) return false;
        at += point.length;
    }
    return true;
}

std::string Text::escaped(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const CodePoint point = codePointAt(text.substr(at));
        char buffer[16];
        if (point.value < 0) {
            std::snprintf(buffer, sizeof buffer, "\\x%02x", static_cast<unsigned>(static_cast<std::uint8_t>(text[at])));
            result += buffer;
        } else if (point.value == '\\') {
            result += "\\\\";
        } else if (point.value == '\n') {
            result += "\\n";
        } else if (point.value == '\r') {
            result += "\\r";
        } else if (point.value == '\t') {
            result += "\\t";
        } else if (disturbsLine(point.value)) {
            std::snprintf(buffer, sizeof buffer, "\\u{%x}", static_cast<unsigned>(point.value));
            result += buffer;
        } else {
            result += text.substr(at, point.length);
        }
        at += point.length;
    }
    return result;
}

std::string Text::caseFolded(std::string_view text) {
    if (text.empty()) return {};
    utf8proc_uint8_t* folded = nullptr;
    const auto length =
        utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()), static_cast<utf8proc_ssize_t>(text.size()),
                     &folded, static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD));
    const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(folded, &std::free);
    if (length < 0) return std::string(text);
    return {reinterpret_cast<const char*>(folded), static_cast<std::size_t>(length)};
}
