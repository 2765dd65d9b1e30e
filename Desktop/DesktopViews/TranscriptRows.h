#pragma once

#include "DesktopViews/RowLayout.h"
#include "TranscriptKit/Day.h"
#include "TranscriptKit/Transcript.h"

#include <cstddef>
#include <functional>
#include <string>

#include <QCache>
#include <QString>

/// What the rows of a transcript show, and their layouts at the view's width; some hundred layouts are kept.
///
/// Main thread. Keeps a reference to the transcript; after a change of it, call `forget` for the rows that changed.
class TranscriptRows {
public:
    TranscriptRows(const Transcript& transcript, bool isNamed, const QPalette& palette);

    void setNameOf(std::function<std::string(const std::string&)> nameOf);
    void setToday(const Day& today);
    /// Call this when colours or fonts have changed.
    void setStyle(const QPalette& palette);
    void setWidth(int width);
    /// Drops the layouts of the rows from `firstRow` on.
    void forget(std::size_t firstRow = 0);

    const RowStyle& style() const { return _style; }
    bool isText(std::size_t row) const;
    /// The words of a row as they are shown, in full: a message, a note or a heading.
    QString text(std::size_t row) const;
    /// The row in one line for a screen reader: "Ann, 3:05, text", or the words of a note.
    QString spoken(std::size_t row) const;
    /// The tool-tip, unchanged; empty if the row has none.
    QString toolTip(std::size_t row) const;

    /// A likely height, from the text's length.
    int estimate(std::size_t row) const;
    /// The reference is valid until the next call.
    const RowLayout& layout(std::size_t row);

private:
    RowContent content(std::size_t row) const;
    QString nameOf(const SharedText& author) const;

    const Transcript& transcript;
    bool isNamed;
    std::function<std::string(const std::string&)> askName;
    Day today;
    RowStyle _style;
    int width = 0;
    QCache<std::size_t, RowLayout> layouts;
};
