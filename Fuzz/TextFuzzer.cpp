// Text: prefixes and trimmed texts are parts of the text, and escaping leaves nothing that steers a line.

#include "FuzzSupport/FuzzInput.h"

#include "Base/Check.h"
#include "StateKit/Printed.h"
#include "Text/Text.h"
#include "VimbleKit/ConsoleLines.h"

#include <simdjson.h>

namespace {

/// Decodes a text that is UTF-8, without the library that the code under test uses.
template <class Each>
void forEachCodePoint(std::string_view text, Each&& each) {
    for (std::size_t at = 0; at < text.size();) {
        const auto lead = static_cast<std::uint8_t>(text[at]);
        const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        std::uint32_t c = length == 1 ? lead : lead & (0x7F >> length);
        for (std::size_t i = 1; i < length; ++i) c = c << 6 | (static_cast<std::uint8_t>(text[at + i]) & 0x3F);
        each(c);
        at += length;
    }
}

bool steersLine(std::uint32_t c) {
    return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x61C || c == 0x200E || c == 0x200F ||
           (c >= 0x2028 && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069) || (c >= 0xD800 && c < 0xE000);
}

void appendUtf8(std::string& out, std::uint32_t c) {
    const auto put = [&](std::uint32_t byte) { out += static_cast<char>(byte); };
    if (c < 0x80) return put(c);
    if (c < 0x800) {
        put(0xC0 | c >> 6);
    } else {
        if (c < 0x10000) {
            put(0xE0 | c >> 12);
        } else {
            put(0xF0 | c >> 18);
            put(0x80 | (c >> 12 & 0x3F));
        }
        put(0x80 | (c >> 6 & 0x3F));
    }
    put(0x80 | (c & 0x3F));
}

/// Turns escapes back into the text: an escaped text must stand for one text only.
std::string unescaped(const std::string& text) {
    std::string out;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            out += text[at];
            continue;
        }
        const char kind = text.at(++at);
        if (kind == '\\') {
            out += '\\';
        } else if (kind == 'n') {
            out += '\n';
        } else if (kind == 'r') {
            out += '\r';
        } else if (kind == 't') {
            out += '\t';
        } else if (kind == 'x') {
            out += static_cast<char>(std::stoul(text.substr(at + 1, 2), nullptr, 16));
            at += 2;
        } else {
            check(kind == 'u' && text.at(at + 1) == '{', "an escape of an unknown kind");
            const std::size_t end = text.find('}', at);
            check(end != std::string::npos, "an escape without an end");
            appendUtf8(out, static_cast<std::uint32_t>(std::stoul(text.substr(at + 2, end - at - 2), nullptr, 16)));
            at = end;
        }
    }
    return out;
}

void checkText(std::string_view text, std::size_t count) {
    const bool isUtf8 = Text::isUtf8(text);
    check(isUtf8 == simdjson::validate_utf8(text.data(), text.size()), "two opinions on what is UTF-8");

    const std::string_view prefix = Text::prefix(text, count);
    check(prefix.data() == text.data() && prefix.size() <= text.size(), "a prefix is no prefix");
    check(Text::prefix(prefix, count) == prefix, "a prefix of a prefix is another");
    check(Text::prefix(text, count + 1).size() >= prefix.size(), "a longer prefix is shorter");
    check(Text::prefix(text, text.size()) == text, "a text has more characters than bytes");
    check((count > 0 && !text.empty()) != prefix.empty(), "a prefix is empty without a reason, or is not");
    check(!isUtf8 || Text::isUtf8(prefix), "a prefix ends inside a character");

    const std::string_view trimmed = Text::trimmed(text);
    check(Text::trimmed(trimmed) == trimmed, "trimming twice differs");
    check(trimmed.size() <= text.size(), "trimming adds");
    if (!trimmed.empty()) {
        check(trimmed.data() >= text.data() && trimmed.data() + trimmed.size() <= text.data() + text.size(),
              "what was trimmed is no part of the text");
        check(!Text::hasWhitespace(Text::prefix(trimmed, 1)) || trimmed.size() > 1, "whitespace is left in front");
    }
    check(Text::hasWhitespace(text) || trimmed == text, "something but whitespace was trimmed");

    const std::string escaped = Text::escaped(text);
    check(Text::isUtf8(escaped), "an escaped text is no UTF-8");
    forEachCodePoint(escaped, [](std::uint32_t c) { check(!steersLine(c), "something steers the line it stands in"); });
    check(unescaped(escaped) == text, "an escaped text stands for another");

    // The printed form promises less: no controls below U+0080, so that it is one line.
    const std::string line = printed(std::string(text));
    for (const char c : line) check(static_cast<std::uint8_t>(c) >= 0x20 && c != 0x7F, "a printed text has a control");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::size_t count = input.byte();
    const std::string text(textOf(input.rest()));
    checkText(text, count);
    ConsoleLines::line(NetworkIO{count % 2 ? NetworkIO::Direction::inbound : NetworkIO::Direction::outbound, text});
    ConsoleLines::line(Event(Events::Message{Person{text, text, text, false, false}, text, {}}));
    ConsoleLines::line(Event(Events::NameSet{Person{text, "", text, false, false}, text, {}}));
    return 0;
}
