#include "NaiveTranscript.h"
#include "TranscriptKit/TranscriptBuilder.h"
#include "ZoneGuard.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

/// A chat with its people and activities; each step changes something at random.
class Life {
public:
    explicit Life(unsigned seed) : random(seed) {}

    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(random() % limit); }

    void step() {
        switch (below(24)) {
            case 0: chat.messages = chat.messages.prefix(below(chat.messages.size() + 1)); break;
            case 1: isThere = !isThere; break;
            case 2: activities.clear(); break;
            case 3: switchChat(); break;
            case 4:
            case 5: changePeople(); break;
            case 6:
                if (!activities.empty()) activities[below(activities.size())].text += "!";
                break;
            case 7: copyUnshared(); break;
            case 8:
            case 9:
            case 10: activities.push_back({"note " + std::to_string(below(1000)), time()}); break;
            case 11: break;
            default:
                for (std::size_t count = below(8); count > 0; --count)
                    chat.messages.push_back({author(), "text " + std::to_string(below(1000)), time()});
        }
    }

    const Chat* shown() const { return isThere ? &chat : nullptr; }

    Chat chat;
    People people;
    std::vector<Activity> activities;

private:
    Date time() {
        switch (below(12)) {
            case 0: clock = clock - static_cast<double>(below(200'000)); break;  // set back
            case 1: clock = clock + static_cast<double>(below(300'000)); break;  // set forward, or a long pause
            case 2: return clock - static_cast<double>(below(100));
            case 3:
            case 4: break;  // the same time once more
            default: clock = clock + static_cast<double>(below(4000)) / 3;
        }
        return clock;
    }

    std::string author() { return std::string(64, static_cast<char>('a' + below(6))); }

    void changePeople() {
        const std::string key(64, static_cast<char>('a' + below(12)));
        switch (below(4)) {
            case 0: people.erase(key); break;
            case 1: people.set(key, {.publicKey = key, .name = "n" + std::to_string(below(9)), .emoji = ""}); break;
            case 2: people.set(key, {.publicKey = key, .name = "x", .emoji = below(2) == 0 ? "🙂" : "🐙"}); break;
            case 3: people.updateExisting(key, [](Person& person) { person.isOnline = !person.isOnline; }); break;
        }
    }

    void switchChat() { std::swap(chat, other); }

    void copyUnshared() {
        SharedList<Message> copy;
        for (const Message& message : chat.messages) copy.push_back(message);
        chat.messages = copy;
    }

    std::mt19937 random;
    Chat other;
    bool isThere = true;
    Date clock = Date::fromUnix(1541289600 - 86400 * 3);  // days before the clocks of São Paulo skip a midnight
};

TEST(TranscriptBuilderRandomTest, EveryStepShowsWhatAFullBuildAndAPlainOneShow) {
    for (const char* zone : {"America/Sao_Paulo", "Europe/Berlin", "UTC"}) {
        const ZoneGuard guard(zone);
        for (const unsigned seed : {1u, 20u, 300u}) {
            SCOPED_TRACE(std::string(zone) + ", seed " + std::to_string(seed));
            Life life(seed);
            TranscriptBuilder builder;
            Transcript before;
            std::vector<Transcript::Item> rowsBefore;
            for (int step = 0; step < 1500; ++step) {
                life.step();
                const Transcript transcript = builder.build(life.shown(), life.people, life.activities);
                const auto expected = naiveTranscript(life.shown(), life.people, life.activities);
                ASSERT_EQ(rowsOf(transcript) == expected, true) << "step " << step;
                ASSERT_EQ(buildTranscript(life.shown(), life.people, life.activities), transcript) << "step " << step;
                // A later build does not change a transcript that was handed out before.
                ASSERT_EQ(rowsOf(before) == rowsBefore, true) << "step " << step;
                before = transcript;
                rowsBefore = expected;
            }
        }
    }
}

}  // namespace
