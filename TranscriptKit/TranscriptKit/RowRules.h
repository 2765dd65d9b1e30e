#pragma once

#include "TranscriptKit/Transcript.h"

#include <cstddef>
#include <string>

#include <QString>

/// What a row of a transcript shows besides its text.
///
/// Messages of one author form a block while each comes less than 300 seconds after the one before: only the
/// first row of a block has emoji and time. Activities and daybreaks between them don't end a block.
struct RowLook {
    bool showTime = false;
    bool showEmoji = false;

    bool operator==(const RowLook&) const = default;
};

namespace RowRules {

/// @param index  a row; shows nothing if it is no `Transcript::Text`
RowLook look(const Transcript& transcript, std::size_t index);

/// "h:mm" in the user's time zone, by a twelve-hour clock. A time outside the years 1 to 9999 is shown as the
/// nearest instant within them.
QString timeText(Date time);

}  // namespace RowRules
