#include "TranscriptKit/DisplayText.h"

#include "Text/Text.h"
#include "TranscriptKit/Characters.h"

#include <string>
#include <vector>

namespace {

constexpr int mostCharacters = 200;
constexpr int mostMarks = 16;
constexpr int mostCodePoints = 32;

constexpr char16_t replacement = 0xFFFD;
constexpr char16_t firstStrongIsolate = 0x2068;
constexpr char16_t popIsolate = 0x2069;
constexpr char16_t popFormatting = 0x202C;

bool isLineEnd(char32_t c) { return (c >= 0x0A && c <= 0x0D) || c == 0x85 || c == 0x2028 || c == 0x2029; }

bool isControl(char32_t c) { return QChar::category(c) == QChar::Other_Control; }

bool opensIsolate(char32_t c) { return c >= 0x2066 && c <= 0x2068; }

bool opensEmbedding(char32_t c) { return c == 0x202A || c == 0x202B || c == 0x202D || c == 0x202E; }

bool turnsDirection(char32_t c) {
    return c == 0x061C || c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x206F);
}

/// Whether the code point is no character, or stands for an embedded object or annotation in a text layout.
bool isNoCharacter(char32_t c) {
    return QChar::isNonCharacter(c) || QChar::isSurrogate(c) || (c >= 0xFFF9 && c <= 0xFFFC);
}

/// Whether a reader sees anything of this code point by itself.
bool isInk(char32_t c) {
    // Unicode calls these letters (U+2800: a symbol), but they are drawn blank.
    if (c == 0x115F || c == 0x1160 || c == 0x2800 || c == 0x3164 || c == 0xFFA0) return false;
    if (QChar::isMark(c) || QChar::isSpace(c)) return false;
    const QChar::Category category = QChar::category(c);
    return category != QChar::Other_Control && category != QChar::Other_Format && category != QChar::Other_NotAssigned;
}

bool isRightToLeft(char32_t c) {
    const QChar::Direction direction = QChar::direction(c);
    return direction == QChar::DirR || direction == QChar::DirAL || direction == QChar::DirAN;
}

QString decoded(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

void append(QString& out, char32_t c) { out += QChar::fromUcs4(c); }

/// One line without control or direction characters, and whether any letter runs from right to left.
struct Line {
    QString text;
    bool hasRightToLeft = false;
};

Line oneLine(const QString& text) {
    Line line;
    line.text.reserve(text.size());
    for (qsizetype at = 0; at < text.size();) {
        const CodePoint point = CodePoint::at(text, at);
        at += point.length;
        const char32_t c = point.value;
        if (c == '\r' && at < text.size() && text[at] == u'\n') continue;
        if (c == '\t' || isLineEnd(c)) {
            line.text += u' ';
        } else if (isNoCharacter(c)) {
            line.text += replacement;
        } else if (!isControl(c) && !turnsDirection(c)) {
            append(line.text, c);
            line.hasRightToLeft = line.hasRightToLeft || isRightToLeft(c);
        }
    }
    return line;
}

/// Appends a user-perceived character, but at most `mostMarks` marks and `mostCodePoints` code points of it, so
/// that it does not tower over other lines.
void appendCharacter(QString& out, const QString& text, qsizetype start, qsizetype end) {
    int marks = 0;
    int points = 0;
    while (start < end && points < mostCodePoints) {
        const CodePoint point = CodePoint::at(text, start);
        start += point.length;
        if (QChar::isMark(point.value) && ++marks > mostMarks) continue;
        ++points;
        append(out, point.value);
    }
}

/// Keeps track of the changes of direction that a line has opened.
class Directions {
public:
    /// @return whether to keep the character: one that closes nothing here could close something around the text
    bool take(char32_t c) {
        if (opensIsolate(c)) {
            open.push_back(popIsolate);
            ++isolates;
        } else if (opensEmbedding(c)) {
            open.push_back(popFormatting);
        } else if (c == popFormatting) {
            // An embedding that was opened before an isolate can't be closed inside it.
            if (open.empty() || open.back() != popFormatting) return false;
            open.pop_back();
        } else if (c == popIsolate) {
            if (isolates == 0) return false;
            while (open.back() != popIsolate) open.pop_back();
            open.pop_back();
            --isolates;
        }
        return true;
    }

    void close(QString& out) {
        for (; !open.empty(); open.pop_back()) out += QChar(open.back());
        isolates = 0;
    }

private:
    std::vector<char16_t> open;  // the character that closes each, the innermost last
    std::size_t isolates = 0;
};

}  // namespace

QString DisplayText::name(std::string_view text) {
    const Line line = oneLine(decoded(text));
    QString shown;
    if (line.hasRightToLeft) shown += QChar(firstStrongIsolate);
    int count = 0;
    for (Characters characters(line.text); characters.next();) {
        if (count++ == mostCharacters) {
            shown += u'…';
            break;
        }
        appendCharacter(shown, line.text, characters.start(), characters.end());
    }
    if (line.hasRightToLeft) shown += QChar(popIsolate);
    return shown;
}

QString DisplayText::person(const Person& person) {
    const QString shown = name(person.displayName());
    for (qsizetype at = 0; at < shown.size();) {
        const CodePoint point = CodePoint::at(shown, at);
        if (isInk(point.value)) return shown;
        at += point.length;
    }
    Person nameless = person;
    nameless.name.clear();
    return name(nameless.displayName());
}

QString DisplayText::line(std::string_view text) {
    // `escaped` writes a backslash of the text as two, and starts each escape with one: make the two one again.
    const std::string escaped = Text::escaped(text);
    std::string shown;
    shown.reserve(escaped.size());
    for (std::size_t at = 0; at < escaped.size(); ++at) {
        shown += escaped[at];
        if (escaped[at] == '\\' && escaped.compare(at + 1, 1, "\\") == 0) ++at;
    }
    return decoded(shown);
}

QString DisplayText::message(std::string_view text) {
    const QString raw = decoded(text);
    QString shown;
    shown.reserve(raw.size());
    Directions directions;
    for (qsizetype at = 0; at < raw.size();) {
        const CodePoint point = CodePoint::at(raw, at);
        at += point.length;
        const char32_t c = point.value;
        if (c == '\r' && at < raw.size() && raw[at] == u'\n') continue;
        if (c == '\n' || c == '\r' || c == 0x2028 || c == 0x2029) {
            directions.close(shown);
            shown += u'\n';
        } else if (isNoCharacter(c)) {
            shown += replacement;
        } else if ((c == '\t' || !isControl(c)) && directions.take(c)) {
            append(shown, c);
        }
    }
    directions.close(shown);
    return shown;
}
