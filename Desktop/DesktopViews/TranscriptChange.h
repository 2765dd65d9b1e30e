#pragma once

#include "TranscriptKit/Transcript.h"

#include <cstddef>
#include <optional>

/// Finds where the rows of a transcript are in the one that replaced it.
///
/// Rows that both share are not compared, so that a change at the end costs the same at any length.
class TranscriptChange {
public:
    TranscriptChange(const Transcript& before, const Transcript& after);

    /// How many rows at the beginning are the same.
    std::size_t sameAtBeginning() const { return beginning; }
    bool isNothing() const { return isAppend() && before.items.size() == after.items.size(); }
    /// Whether rows were only added at the end, or nothing changed.
    bool isAppend() const { return beginning == before.items.size(); }

    /// Where a row is now, if it still exists. An equal row is looked for at the same distance from the beginning
    /// and from the end, then anywhere. A message with the same author, text and time counts as the same row even
    /// if its emoji changed: at the same place if the number of rows stayed, or else as the last resort.
    std::optional<std::size_t> newRow(std::size_t row) const;

private:
    Transcript before;
    Transcript after;
    std::size_t beginning = 0;
};
