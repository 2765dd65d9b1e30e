#pragma once

#include "TranscriptKit/Transcript.h"

#include <cstddef>
#include <optional>

/// What became of the rows of a transcript when another took its place.
///
/// What both share costs nothing to compare; a change at the end costs the same at any length.
class TranscriptChange {
public:
    TranscriptChange(const Transcript& before, const Transcript& after);

    /// How many rows at the beginning are the same.
    std::size_t sameAtBeginning() const { return beginning; }
    bool isNothing() const { return isAppend() && before.items.size() == after.items.size(); }
    /// Whether nothing happened but that rows may have been added at the end.
    bool isAppend() const { return beginning == before.items.size(); }

    /// Where a row is now: at the same distance from the beginning or the end where it is equal there,
    /// else wherever an equal one is found. Where the number of rows stayed, a message with the same text
    /// and time in the same place is the same row, though its emoji be another.
    std::optional<std::size_t> newRow(std::size_t row) const;

private:
    Transcript before;
    Transcript after;
    std::size_t beginning = 0;
};
