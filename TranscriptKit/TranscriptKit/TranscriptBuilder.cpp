#include "TranscriptKit/TranscriptBuilder.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <numeric>
#include <type_traits>
#include <utility>
#include <variant>

namespace {

/// The order of entries: by time, then messages before activities. Entries of equal place keep the order in which
/// they came.
struct Place {
    double time = 0;
    bool isActivity = false;

    Place(Date date, bool isActivity)
        : time(std::isnan(date.sinceReference) ? -std::numeric_limits<double>::infinity() : date.sinceReference),
          isActivity(isActivity) {}

    auto operator<=>(const Place&) const = default;
};

/// Indices of entries in the order of their places. Only entries that are out of order are sorted.
class Queue {
public:
    template <class PlaceOf>
    Queue(std::size_t begin, std::size_t end, PlaceOf placeOf) : at(begin), end(end) {
        for (std::size_t i = begin + 1; i < end; ++i) {
            if (!(placeOf(i) < placeOf(i - 1))) continue;
            sorted.resize(end - begin);
            std::iota(sorted.begin(), sorted.end(), begin);
            std::stable_sort(sorted.begin(), sorted.end(),
                             [&](std::size_t a, std::size_t b) { return placeOf(a) < placeOf(b); });
            at = 0;
            this->end = sorted.size();
            return;
        }
    }

    bool empty() const { return at == end; }
    std::size_t front() const { return sorted.empty() ? at : sorted[at]; }
    std::size_t take() {
        const std::size_t index = front();
        ++at;
        return index;
    }

private:
    std::vector<std::size_t> sorted;  // empty if the entries were in order already
    std::size_t at;
    std::size_t end;
};

/// The place of a row that stands for an entry; none for a daybreak.
std::optional<Place> placeOfEntry(const Transcript::Item& item) {
    if (const auto* text = std::get_if<Transcript::Text>(&item)) return Place(text->time, false);
    if (const auto* activity = std::get_if<Transcript::Activity>(&item)) return Place(activity->time, true);
    return std::nullopt;
}

/// A daybreak has the place of the entry after it, and there is always one.
Place placeOfRow(const SharedList<Transcript::Item>& rows, std::size_t index) {
    const auto place = placeOfEntry(rows[index]);
    return place ? *place : *placeOfEntry(rows[index + 1]);
}

std::string emojiOf(const People& people, const std::string& key) {
    const Person* person = people.find(key);
    return person != nullptr ? person->displayEmoji() : Person().displayEmoji();
}

}  // namespace

Transcript buildTranscript(const Chat* chat, const People& people, const std::vector<Activity>& activities) {
    return TranscriptBuilder().build(chat, people, activities);
}

Transcript TranscriptBuilder::build(const Chat* chat, const People& newPeople,
                                    const std::vector<Activity>& newActivities) {
    const SharedList<Message> newMessages = chat != nullptr ? chat->messages : SharedList<Message>();
    if (!canGoOn(newMessages, newPeople, newActivities)) *this = TranscriptBuilder();
    const std::size_t firstMessage = messages.size();
    const std::size_t firstActivity = activities.size();
    messages = newMessages;
    people = newPeople;
    activities.insert(activities.end(), newActivities.begin() + static_cast<std::ptrdiff_t>(firstActivity),
                      newActivities.end());
    addEntries(firstMessage, firstActivity);
    return {.items = rows};
}

/// Whether the rows can be kept: entries were only added, and no author's emoji changed.
bool TranscriptBuilder::canGoOn(const SharedList<Message>& newMessages, const People& newPeople,
                                const std::vector<Activity>& newActivities) const {
    if (newMessages.sharedBeginning(messages) < messages.size()) return false;
    if (newActivities.size() < activities.size() ||
        !std::equal(activities.begin(), activities.end(), newActivities.begin()))
        return false;
    return newPeople == people || std::all_of(authors.begin(), authors.end(), [&](const Author& author) {
               return emojiOf(newPeople, author.key.string()) == author.emoji.string();
           });
}

/// Adds the messages and activities from these indices on.
void TranscriptBuilder::addEntries(std::size_t firstMessage, std::size_t firstActivity) {
    const auto placeOfMessage = [&](std::size_t index) { return Place(messages[index].timestamp, false); };
    const auto placeOfActivity = [&](std::size_t index) { return Place(activities[index].time, true); };
    Queue newMessages(firstMessage, messages.size(), placeOfMessage);
    Queue newActivities(firstActivity, activities.size(), placeOfActivity);

    days.askForZoneAgain();
    std::vector<Transcript::Item> behind;
    std::size_t nextBehind = 0;
    bool isFirst = true;
    while (!newMessages.empty() || !newActivities.empty()) {
        const bool isActivity =
            newMessages.empty() ||
            (!newActivities.empty() && placeOfActivity(newActivities.front()) < placeOfMessage(newMessages.front()));
        const std::size_t index = isActivity ? newActivities.take() : newMessages.take();
        const Place place = isActivity ? placeOfActivity(index) : placeOfMessage(index);
        if (std::exchange(isFirst, false))
            behind = takeEntriesBehind(isActivity ? activities[index].time : messages[index].timestamp, isActivity);
        while (nextBehind < behind.size() && *placeOfEntry(behind[nextBehind]) <= place)
            addAgain(std::move(behind[nextBehind++]));
        if (isActivity)
            addActivity(activities[index]);
        else
            addMessage(index);
    }
    while (nextBehind < behind.size()) addAgain(std::move(behind[nextBehind++]));
}

/// Removes the rows that belong behind a new entry. @return those of them that are no daybreaks
std::vector<Transcript::Item> TranscriptBuilder::takeEntriesBehind(Date time, bool isActivity) {
    const Place place(time, isActivity);
    if (rows.empty() || placeOfRow(rows, rows.size() - 1) <= place) return {};
    std::size_t low = 0;
    std::size_t high = rows.size();
    while (low < high) {
        const std::size_t middle = low + (high - low) / 2;
        if (placeOfRow(rows, middle) <= place)
            low = middle + 1;
        else
            high = middle;
    }
    std::vector<Transcript::Item> entries;
    entries.reserve(rows.size() - low);
    for (std::size_t i = low; i < rows.size(); ++i)
        if (placeOfEntry(rows[i])) entries.push_back(rows[i]);
    rows = rows.prefix(low);
    lastDay.reset();
    for (std::size_t i = low; i-- > 0;) {
        if (const auto* daybreak = std::get_if<Transcript::Daybreak>(&rows[i])) {
            lastDay = daybreak->day;
            break;
        }
    }
    return entries;
}

void TranscriptBuilder::addMessage(std::size_t index) {
    std::shared_ptr<const Message> message = messages.shared(index);
    breakDay(message->timestamp);
    const Author& author = authorOf(index);
    const Date time = message->timestamp;
    const std::string* text = &message->text;
    rows.push_back(Transcript::Text{.text = SharedText(std::shared_ptr<const std::string>(std::move(message), text)),
                                    .time = time,
                                    .emoji = author.emoji,
                                    .author = author.key,
                                    .toolTip = author.key});
}

void TranscriptBuilder::addActivity(const Activity& activity) {
    breakDay(activity.time);
    rows.push_back(Transcript::Activity{.text = activity.text, .time = activity.time});
}

void TranscriptBuilder::addAgain(Transcript::Item item) {
    if (const auto* text = std::get_if<Transcript::Text>(&item))
        breakDay(text->time);
    else if (const auto* activity = std::get_if<Transcript::Activity>(&item))
        breakDay(activity->time);
    rows.push_back(std::move(item));
}

/// Adds a daybreak if the next entry is not on the day of the last row.
void TranscriptBuilder::breakDay(Date time) {
    const Day& day = days.day(time);
    if (lastDay == day) return;
    lastDay = day;
    rows.push_back(Transcript::Daybreak{.day = day});
}

const TranscriptBuilder::Author& TranscriptBuilder::authorOf(std::size_t messageIndex) {
    const Message& message = messages[messageIndex];
    if (lastAuthor < authors.size() && authors[lastAuthor].key.string() == message.author) return authors[lastAuthor];
    if (const auto known = authorPlaces.find(message.author); known != authorPlaces.end()) {
        lastAuthor = known->second;
        return authors[lastAuthor];
    }
    SharedText key(std::shared_ptr<const std::string>(messages.shared(messageIndex), &message.author));
    lastAuthor = authors.size();
    authorPlaces.emplace(key.string(), lastAuthor);
    authors.push_back({.key = std::move(key), .emoji = emojiOf(people, message.author)});
    return authors[lastAuthor];
}
