#pragma once

#include "TranscriptKit/Transcript.h"

#include <cstddef>
#include <string>

#include <QString>

/// What a row of a transcript shows besides its text.
///
/// Messages of one author within 300 seconds, each counted from the one before, are one block: only the
/// first row has emoji and time. Activities and daybreaks between them don't end a block.
struct RowLook {
    bool showTime = false;
    bool showEmoji = false;

    bool operator==(const RowLook&) const = default;
};

namespace RowRules {

/// @param index  of a `Transcript::Text`; for any other row nothing is shown
RowLook look(const Transcript& transcript, std::size_t index);

/// "h:mm" in the user's time zone: a clock of twelve hours. Any time will do; one beyond the years 1 to 9999
/// shows that of the nearest instant within.
QString timeText(Date time);

}  // namespace RowRules
