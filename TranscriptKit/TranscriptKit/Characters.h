#pragma once

#include <QString>

/// Walks the user-perceived characters of a text, by the rules of Unicode: an emoji with its modifiers and
/// joined parts is one. We do not use Qt's own walk, since Qt 6.4 takes some emoji apart.
class Characters {
public:
    /// The text must outlive this.
    explicit Characters(const QString& text) : text(text) {}

    /// Goes to the next character. @return whether there was one
    bool next();

    // The bounds of the present character, in UTF-16 units.
    qsizetype start() const { return _start; }
    qsizetype end() const { return _end; }

private:
    const QString& text;
    qsizetype _start = 0;
    qsizetype _end = 0;
};

/// One code point of a text, and its length there.
struct CodePoint {
    char32_t value = 0;
    qsizetype length = 1;  // in UTF-16 units

    /// The code point that begins at `index`; half a surrogate pair is given as it is.
    static CodePoint at(const QString& text, qsizetype index);
};
