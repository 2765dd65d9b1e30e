#include "DesktopViews/Wrapping.h"

namespace {

/// Whether the character belongs to a script that may be broken between any two characters.
bool isIdeographic(QChar c) {
    const char16_t u = c.unicode();
    return (u >= 0x2E80 && u <= 0xA4CF) || (u >= 0xAC00 && u <= 0xD7A3) || (u >= 0xD840 && u <= 0xD888) ||
           (u >= 0xF900 && u <= 0xFAFF) || (u >= 0xFF01 && u <= 0xFF9F);
}

}  // namespace

QTextOption::WrapMode Wrapping::of(QStringView text) {
    qsizetype word = 0;
    for (const QChar c : text) {
        word = c.isSpace() || isIdeographic(c) ? 0 : word + 1;
        if (word > longestWord) return QTextOption::WrapAnywhere;
    }
    return QTextOption::WrapAtWordBoundaryOrAnywhere;
}
