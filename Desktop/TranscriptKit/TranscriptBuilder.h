#pragma once

#include "StateKit/Date.h"
#include "StateKit/SharedMap.h"
#include "TranscriptKit/Transcript.h"
#include "VimbleKit/Chat.h"
#include "VimbleKit/Person.h"

#include <string>
#include <vector>

/// A local note of one window, never stored.
struct Activity {
    std::string text;
    Date time;

    bool operator==(const Activity&) const = default;
};

using People = SharedMap<std::string, Person>;

/// The rows of a chat: its messages and the activities by time, messages first where the times are
/// equal, with a daybreak before the first of each day (in the user's time zone).
/// @param chat  null for a chat that is not there: only the activities are shown
Transcript buildTranscript(const Chat* chat, const People& people, const std::vector<Activity>& activities);

/// The same, again and again for one chat, at the cost of what changed: a message or an activity more at
/// the end costs the same at any length, and the result shares its beginning with the one before. The
/// result is always equal to a full `buildTranscript`, except that days are judged by the time zone that
/// held when a row was first built.
class TranscriptBuilder {
public:
    Transcript build(const Chat* chat, const People& people, const std::vector<Activity>& activities);

private:
    // up to the implementation
};
