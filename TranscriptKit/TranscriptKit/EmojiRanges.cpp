#include "TranscriptKit/EmojiRanges.h"

#include "TranscriptKit/Characters.h"

#include <algorithm>
#include <iterator>
#include <utf8proc.h>

namespace {

struct CodePoints {
    char32_t first;
    char32_t last;
};

/// Emoji_Presentation of emoji-data.txt, Unicode 15.0, without the letters of flags. In order.
constexpr CodePoints shownAsEmoji[] = {
    {0x231A, 0x231B},   {0x23E9, 0x23EC},   {0x23F0, 0x23F0},   {0x23F3, 0x23F3},   {0x25FD, 0x25FE},
    {0x2614, 0x2615},   {0x2648, 0x2653},   {0x267F, 0x267F},   {0x2693, 0x2693},   {0x26A1, 0x26A1},
    {0x26AA, 0x26AB},   {0x26BD, 0x26BE},   {0x26C4, 0x26C5},   {0x26CE, 0x26CE},   {0x26D4, 0x26D4},
    {0x26EA, 0x26EA},   {0x26F2, 0x26F3},   {0x26F5, 0x26F5},   {0x26FA, 0x26FA},   {0x26FD, 0x26FD},
    {0x2705, 0x2705},   {0x270A, 0x270B},   {0x2728, 0x2728},   {0x274C, 0x274C},   {0x274E, 0x274E},
    {0x2753, 0x2755},   {0x2757, 0x2757},   {0x2795, 0x2797},   {0x27B0, 0x27B0},   {0x27BF, 0x27BF},
    {0x2B1B, 0x2B1C},   {0x2B50, 0x2B50},   {0x2B55, 0x2B55},   {0x1F004, 0x1F004}, {0x1F0CF, 0x1F0CF},
    {0x1F18E, 0x1F18E}, {0x1F191, 0x1F19A}, {0x1F201, 0x1F201}, {0x1F21A, 0x1F21A}, {0x1F22F, 0x1F22F},
    {0x1F232, 0x1F236}, {0x1F238, 0x1F23A}, {0x1F250, 0x1F251}, {0x1F300, 0x1F320}, {0x1F32D, 0x1F335},
    {0x1F337, 0x1F37C}, {0x1F37E, 0x1F393}, {0x1F3A0, 0x1F3CA}, {0x1F3CF, 0x1F3D3}, {0x1F3E0, 0x1F3F0},
    {0x1F3F4, 0x1F3F4}, {0x1F3F8, 0x1F43E}, {0x1F440, 0x1F440}, {0x1F442, 0x1F4FC}, {0x1F4FF, 0x1F53D},
    {0x1F54B, 0x1F54E}, {0x1F550, 0x1F567}, {0x1F57A, 0x1F57A}, {0x1F595, 0x1F596}, {0x1F5A4, 0x1F5A4},
    {0x1F5FB, 0x1F64F}, {0x1F680, 0x1F6C5}, {0x1F6CC, 0x1F6CC}, {0x1F6D0, 0x1F6D2}, {0x1F6D5, 0x1F6D7},
    {0x1F6DC, 0x1F6DF}, {0x1F6EB, 0x1F6EC}, {0x1F6F4, 0x1F6FC}, {0x1F7E0, 0x1F7EB}, {0x1F7F0, 0x1F7F0},
    {0x1F90C, 0x1F93A}, {0x1F93C, 0x1F945}, {0x1F947, 0x1F9FF}, {0x1FA70, 0x1FA7C}, {0x1FA80, 0x1FA88},
    {0x1FA90, 0x1FABD}, {0x1FABF, 0x1FAC5}, {0x1FACE, 0x1FADB}, {0x1FAE0, 0x1FAE8}, {0x1FAF0, 0x1FAF8},
};

constexpr char32_t textSelector = 0xFE0E;
constexpr char32_t emojiSelector = 0xFE0F;
constexpr char32_t keycap = 0x20E3;

bool isShownAsEmoji(char32_t c) {
    const auto* range =
        std::lower_bound(std::begin(shownAsEmoji), std::end(shownAsEmoji), c,
                         [](const CodePoints& points, char32_t wanted) { return points.last < wanted; });
    return range != std::end(shownAsEmoji) && range->first <= c;
}

bool isPictograph(char32_t c) {
    return utf8proc_get_property(static_cast<utf8proc_int32_t>(c))->boundclass ==
           UTF8PROC_BOUNDCLASS_EXTENDED_PICTOGRAPHIC;
}

bool isFlagLetter(char32_t c) { return c >= 0x1F1E6 && c <= 0x1F1FF; }

bool isSkinTone(char32_t c) { return c >= 0x1F3FB && c <= 0x1F3FF; }

bool isKeycapBase(char32_t c) { return (c >= '0' && c <= '9') || c == '#' || c == '*'; }

/// Whether a user-perceived character is shown as an emoji.
bool isEmoji(const QString& text, qsizetype start, qsizetype end) {
    CodePoint point = CodePoint::at(text, start);
    const char32_t base = point.value;
    bool isDefault = false;
    for (qsizetype at = start; at < end; at += point.length) {
        point = CodePoint::at(text, at);
        const qsizetype behind = at + point.length;
        const char32_t next = behind < end ? CodePoint::at(text, behind).value : 0;
        if (isFlagLetter(point.value) && isFlagLetter(next)) return true;
        if (isPictograph(point.value) && (next == emojiSelector || isSkinTone(next))) return true;
        if (isShownAsEmoji(point.value) && next != textSelector) isDefault = true;
    }
    // A keycap such as "1" needs the emoji selector and then the frame of a key.
    if (isKeycapBase(base) && start + 2 < end)
        return text[start + 1] == QChar(emojiSelector) && text[start + 2] == QChar(keycap);
    return isDefault;
}

/// A quick check whether there may be an emoji at all. Most texts have none, and are spared the walk.
bool mayHaveEmoji(const QString& text) {
    return std::any_of(text.begin(), text.end(), [](QChar c) {
        return c.isHighSurrogate() || c == QChar(emojiSelector) || (c.unicode() >= 0x2300 && c.unicode() <= 0x2BFF);
    });
}

}  // namespace

std::vector<EmojiRanges::Range> EmojiRanges::find(const QString& text) {
    std::vector<Range> ranges;
    if (!mayHaveEmoji(text)) return ranges;
    for (Characters characters(text); characters.next();) {
        const qsizetype start = characters.start(), end = characters.end();
        if (!isEmoji(text, start, end)) continue;
        if (!ranges.empty() && ranges.back().start + ranges.back().length == start)
            ranges.back().length = end - ranges.back().start;
        else
            ranges.push_back({.start = start, .length = end - start});
    }
    return ranges;
}

bool EmojiRanges::isOnlyEmoji(const QString& text, int most) {
    if (!mayHaveEmoji(text)) return false;
    int count = 0;
    for (Characters characters(text); characters.next();) {
        if (text[characters.start()].isSpace()) continue;
        if (!isEmoji(text, characters.start(), characters.end()) || ++count > most) return false;
    }
    return count > 0;
}
