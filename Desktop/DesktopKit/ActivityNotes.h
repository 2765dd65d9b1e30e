#pragma once

#include "TranscriptKit/TranscriptBuilder.h"
#include "VimbleKit/Event.h"
#include "VimbleKit/Person.h"

#include <optional>

/// The notes that events leave between the messages of a transcript. Names and emoji in them have been made
/// safe to stand beside our own words.
namespace ActivityNotes {

/// "OLD NAME name → NEW NAME" and "NAME emoji → EMOJI", for any person; nothing for any other event.
std::optional<Activity> ofChange(const Event& event);

/// "NAME was added to the conversation" and "NAME was removed from the conversation"; nothing for any
/// other event.
std::optional<Activity> ofMembership(const Event& event);

/// The person whose name or emoji an event changes; null for any other event. Valid as long as the event.
const Person* changed(const Event& event);

}  // namespace ActivityNotes
