#pragma once

#include <algorithm>
#include <compare>
#include <cstddef>
#include <limits>
#include <utility>

/// A place in the text of a row, in UTF-16 units.
struct TextPosition {
    std::size_t row = 0;
    int column = 0;

    auto operator<=>(const TextPosition&) const = default;
};

/// The text between two places in a list of texts.
struct TextSpan {
    /// A column that means the end of the row's text, however long it is.
    static constexpr int rowEnd = std::numeric_limits<int>::max();

    TextPosition begin;
    TextPosition end;

    bool operator==(const TextSpan&) const = default;
};

/// The reader's selection: from the span at which it was started (a place, a word, a row) to the span to which it
/// was extended last. A value.
class TextSelection {
public:
    void clear() { *this = {}; }
    void start(const TextSpan& span) { first = last = span; }
    void extend(const TextSpan& span) { last = span; }

    bool isEmpty() const { return begin() == end(); }
    TextPosition begin() const { return std::min(first.begin, last.begin); }
    TextPosition end() const { return std::max(first.end, last.end); }
    bool contains(const TextPosition& position) const { return position >= begin() && position < end(); }

    /// Begin and end of the selection in a row's text; equal if nothing of it is selected. The end can be `rowEnd`.
    std::pair<int, int> inRow(std::size_t row) const {
        if (isEmpty() || row < begin().row || row > end().row) return {0, 0};
        return {row == begin().row ? begin().column : 0, row == end().row ? end().column : TextSpan::rowEnd};
    }

    /// Adapts the row numbers after a change of the list. Clears the selection if one of its rows is gone.
    /// @param newRow  maps a row to an optional of its new number
    template <class Mapping>
    void renumber(const Mapping& newRow) {
        if (isEmpty()) return;
        for (TextPosition* position : {&first.begin, &first.end, &last.begin, &last.end}) {
            const auto row = newRow(position->row);
            if (!row) return clear();
            position->row = *row;
        }
    }

private:
    TextSpan first;
    TextSpan last;
};
