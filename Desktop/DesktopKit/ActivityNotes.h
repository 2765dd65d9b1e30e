#pragma once

#include "TranscriptKit/TranscriptBuilder.h"
#include "VimbleKit/Event.h"
#include "VimbleKit/Person.h"

#include <optional>

/// What events leave between the messages of a transcript. Names and emoji are made safe to stand beside
/// these words.
namespace ActivityNotes {

/// "OLD NAME name → NEW NAME" and "NAME emoji → EMOJI", of whoever it is; nothing for any other event.
std::optional<Activity> ofChange(const Event& event);

/// "NAME was added to the conversation" and "NAME was removed from the conversation"; nothing for any
/// other event.
std::optional<Activity> ofMembership(const Event& event);

/// Whose name or emoji an event changes; null for any other event. Holds as long as the event.
const Person* changed(const Event& event);

}  // namespace ActivityNotes
