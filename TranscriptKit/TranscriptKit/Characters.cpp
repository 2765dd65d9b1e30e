#include "TranscriptKit/Characters.h"

#include <utf8proc.h>

CodePoint CodePoint::at(const QString& text, qsizetype index) {
    const QChar unit = text[index];
    if (unit.isHighSurrogate() && index + 1 < text.size() && text[index + 1].isLowSurrogate())
        return {QChar::surrogateToUcs4(unit, text[index + 1]), 2};
    return {unit.unicode(), 1};
}

bool Characters::next() {
    _start = _end;
    if (_start >= text.size()) return false;
    CodePoint before = CodePoint::at(text, _start);
    _end += before.length;
    utf8proc_int32_t state = 0;
    while (_end < text.size()) {
        const CodePoint point = CodePoint::at(text, _end);
        if (utf8proc_grapheme_break_stateful(static_cast<utf8proc_int32_t>(before.value),
                                             static_cast<utf8proc_int32_t>(point.value), &state))
            break;
        _end += point.length;
        before = point;
    }
    return true;
}
