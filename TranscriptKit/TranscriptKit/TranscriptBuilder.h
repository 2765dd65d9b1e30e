#pragma once

#include "StateKit/Date.h"
#include "StateKit/SharedMap.h"
#include "TranscriptKit/Day.h"
#include "TranscriptKit/DayFinder.h"
#include "TranscriptKit/Transcript.h"
#include "VimbleKit/Chat.h"
#include "VimbleKit/Person.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// A note that one window shows; it is never stored.
struct Activity {
    std::string text;
    Date time;

    bool operator==(const Activity&) const = default;
};

using People = SharedMap<std::string, Person>;

/// The rows of a chat: its messages and the activities by time, messages first where the times are
/// equal, with a daybreak before the first of each day (in the user's time zone). A time may lie anywhere
/// (see `Day`); NaN counts as before all others.
///
/// The rows share texts and authors with the messages and so keep the messages in memory. 100,000 messages that
/// are in order already take about 10 ms, and 80 bytes a row; others are sorted first.
/// @param chat  null if there is no such chat: only the activities are shown
Transcript buildTranscript(const Chat* chat, const People& people, const std::vector<Activity>& activities);

/// Builds the transcript of one chat again and again, at the cost of what changed: one more message or activity
/// at the end costs the same at any length, and the result shares its beginning with the one before. If nothing
/// changed that the rows show, the result shares all rows. It is always equal to a full `buildTranscript`,
/// except that a row's day is found with the time zone that held when the row was first built.
///
/// An entry that belongs before existing rows (the clock was set back) costs as much as the rows after its
/// place. Another emoji of an author, or another chat, costs as much as the first build. The activities are
/// compared one by one, since they are not shared: have no more than some thousands.
///
/// Copies are independent. Keeps the messages and people of the last call.
class TranscriptBuilder {
public:
    Transcript build(const Chat* chat, const People& people, const std::vector<Activity>& activities);

private:
    /// What the rows of one author have in common.
    struct Author {
        SharedText key;
        SharedText emoji;
    };

    bool canGoOn(const SharedList<Message>& newMessages, const People& newPeople,
                 const std::vector<Activity>& newActivities) const;
    void addEntries(std::size_t firstMessage, std::size_t firstActivity);
    std::vector<Transcript::Item> takeEntriesBehind(Date time, bool isActivity);
    void addMessage(std::size_t index);
    void addActivity(const Activity& activity);
    void addAgain(Transcript::Item item);
    void breakDay(Date time);
    const Author& authorOf(std::size_t messageIndex);

    // What the rows were built from.
    SharedList<Message> messages;
    std::vector<Activity> activities;
    People people;

    SharedList<Transcript::Item> rows;
    std::optional<Day> lastDay;  // of the last row
    DayFinder days;
    std::vector<Author> authors;                                     // only those whom a message of the chat names
    std::unordered_map<std::string_view, std::size_t> authorPlaces;  // by the `key` in `authors`
    std::size_t lastAuthor = 0;
};
