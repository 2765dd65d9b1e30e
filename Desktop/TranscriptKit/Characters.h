#pragma once

#include <QString>

/// Walks the user-perceived characters of a text, by the rules of Unicode: an emoji with all that belongs to
/// it is one. (Qt 6.4 takes some emoji apart.)
class Characters {
public:
    /// The text must outlive this.
    explicit Characters(const QString& text) : text(text) {}

    /// Goes to the next one. @return whether there was one
    bool next();

    // Of the present one, in UTF-16 units.
    qsizetype start() const { return _start; }
    qsizetype end() const { return _end; }

private:
    const QString& text;
    qsizetype _start = 0;
    qsizetype _end = 0;
};

/// One code point of a text, and its place.
struct CodePoint {
    char32_t value = 0;
    qsizetype length = 1;  // in UTF-16 units

    /// The one at a place; half a surrogate pair is given as it is.
    static CodePoint at(const QString& text, qsizetype index);
};
