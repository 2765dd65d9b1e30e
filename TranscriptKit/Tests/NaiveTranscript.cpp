#include "NaiveTranscript.h"

#include <QDateTime>
#include <QTimeZone>

#include <algorithm>
#include <cmath>
#include <optional>

std::vector<Transcript::Item> naiveTranscript(const Chat* chat, const People& people,
                                              const std::vector<Activity>& activities) {
    std::vector<std::pair<Date, Transcript::Item>> entries;
    if (chat != nullptr) {
        for (const Message& message : chat->messages) {
            std::string emoji = "😐";
            if (const Person* person = people.find(message.author)) emoji = person->displayEmoji();
            entries.push_back({message.timestamp, Transcript::Text{.text = message.text,
                                                                   .time = message.timestamp,
                                                                   .emoji = emoji,
                                                                   .author = message.author,
                                                                   .toolTip = message.author}});
        }
    }
    for (const Activity& activity : activities)
        entries.push_back({activity.time, Transcript::Activity{.text = activity.text, .time = activity.time}});
    std::stable_sort(entries.begin(), entries.end(),
                     [](const auto& one, const auto& other) { return one.first < other.first; });

    std::vector<Transcript::Item> rows;
    std::optional<Day> last;
    for (const auto& [time, item] : entries) {
        const auto seconds = static_cast<qint64>(std::floor(time.toUnix()));
        const QDate date = QDateTime::fromSecsSinceEpoch(seconds, QTimeZone::systemTimeZone()).date();
        const Day day(date.year(), date.month(), date.day());
        if (!last || !(*last == day)) rows.push_back(Transcript::Daybreak{day});
        last = day;
        rows.push_back(item);
    }
    return rows;
}

std::vector<Transcript::Item> rowsOf(const Transcript& transcript) {
    return {transcript.items.begin(), transcript.items.end()};
}
