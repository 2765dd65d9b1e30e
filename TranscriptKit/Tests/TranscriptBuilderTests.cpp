#include "TranscriptKit/TranscriptBuilder.h"

#include "NaiveTranscript.h"
#include "ZoneGuard.h"

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>

namespace {

const std::string ann(64, 'a');
const std::string bob(64, 'b');
const std::string eve(64, 'e');

/// The instant so many seconds after noon (UTC) of 2020-06-01.
Date noon(double behind = 0) { return Date::fromUnix(1591012800 + behind); }

constexpr double day = 86400;

Message message(const std::string& author, const std::string& text, Date time) {
    return {.author = author, .text = text, .timestamp = time};
}

Person person(const std::string& key, const std::string& emoji) {
    return {.publicKey = key, .name = "somebody", .emoji = emoji};
}

Chat chatOf(std::initializer_list<Message> messages) {
    Chat chat;
    for (const Message& one : messages) chat.messages.push_back(one);
    return chat;
}

Chat longChat(int count) {
    Chat chat;
    for (int i = 0; i < count; ++i)
        chat.messages.push_back(message(i % 3 == 0 ? ann : bob, "text " + std::to_string(i), noon(i * 10.0)));
    return chat;
}

/// A row in short: "day 2020-06-01", "🙂 text", "- note".
std::string shortOf(const Transcript::Item& item) {
    if (const auto* text = std::get_if<Transcript::Text>(&item))
        return text->emoji.string() + " " + text->text.string();
    if (const auto* note = std::get_if<Transcript::Activity>(&item)) return "- " + note->text.string();
    return "day " + std::get<Transcript::Daybreak>(item).day.description();
}

std::vector<std::string> shortOf(const Transcript& transcript) {
    std::vector<std::string> rows;
    for (const auto& item : transcript.items) rows.push_back(shortOf(item));
    return rows;
}

using Rows = std::vector<std::string>;

const Transcript::Text& textAt(const Transcript& transcript, std::size_t index) {
    return std::get<Transcript::Text>(transcript.items[index]);
}

class TranscriptBuilderTest : public testing::Test {
protected:
    ZoneGuard zone{"UTC"};
    People people{{ann, person(ann, "🐙")}, {bob, person(bob, "🙂")}};
    std::vector<Activity> activities;
    TranscriptBuilder builder;
};

TEST_F(TranscriptBuilderTest, AnEmptyChatHasNoRows) {
    const Chat chat;
    EXPECT_TRUE(buildTranscript(&chat, people, {}).items.empty());
    EXPECT_TRUE(buildTranscript(nullptr, people, {}).items.empty());
    EXPECT_TRUE(builder.build(&chat, people, {}).items.empty());
}

TEST_F(TranscriptBuilderTest, AMessageOpensWithItsDay) {
    const Chat chat = chatOf({message(ann, "hello", noon())});
    const Transcript transcript = buildTranscript(&chat, people, {});
    ASSERT_EQ(shortOf(transcript), (Rows{"day 2020-06-01", "🐙 hello"}));
    const auto& text = textAt(transcript, 1);
    EXPECT_EQ(text.time, noon());
    EXPECT_EQ(text.author.string(), ann);
    EXPECT_EQ(text.toolTip.string(), ann);
}

TEST_F(TranscriptBuilderTest, WithoutAChatTheActivitiesAreShown) {
    EXPECT_EQ(shortOf(buildTranscript(nullptr, people, {{"note", noon()}})), (Rows{"day 2020-06-01", "- note"}));
}

TEST_F(TranscriptBuilderTest, AMessageGoesBeforeAnActivityOfTheSameInstant) {
    const Chat chat = chatOf({message(ann, "1", noon()), message(bob, "2", noon())});
    EXPECT_EQ(shortOf(buildTranscript(&chat, people, {{"a", noon()}, {"b", noon()}})),
              (Rows{"day 2020-06-01", "🐙 1", "🙂 2", "- a", "- b"}));
    // So does a message that comes when the activity already has its row.
    Chat growing = chatOf({message(ann, "1", noon())});
    builder.build(&growing, people, {{"a", noon()}});
    growing.messages.push_back(message(bob, "2", noon()));
    EXPECT_EQ(shortOf(builder.build(&growing, people, {{"a", noon()}})),
              (Rows{"day 2020-06-01", "🐙 1", "🙂 2", "- a"}));
}

TEST_F(TranscriptBuilderTest, EntriesAreSortedByTimeAndStayInOrderWhereItIsEqual) {
    const Chat chat =
        chatOf({message(ann, "late", noon(20)), message(ann, "early", noon(10)), message(ann, "2nd", noon(20))});
    EXPECT_EQ(shortOf(buildTranscript(&chat, people, {{"last", noon(30)}, {"middle", noon(15)}})),
              (Rows{"day 2020-06-01", "🐙 early", "- middle", "🐙 late", "🐙 2nd", "- last"}));
}

TEST_F(TranscriptBuilderTest, EachDayOpensWithADaybreak) {
    const Chat chat =
        chatOf({message(ann, "1", noon()), message(ann, "2", noon(day)), message(ann, "3", noon(3 * day))});
    EXPECT_EQ(
        shortOf(buildTranscript(&chat, people, {{"note", noon(2 * day)}})),
        (Rows{"day 2020-06-01", "🐙 1", "day 2020-06-02", "🐙 2", "day 2020-06-03", "- note", "day 2020-06-04", "🐙 3"}));
}

TEST_F(TranscriptBuilderTest, AnHourAroundLocalMidnightIsTwoDays) {
    const Chat chat = chatOf({message(ann, "1", noon(9.5 * 3600)), message(ann, "2", noon(10.5 * 3600))});
    const ZoneGuard berlin("Europe/Berlin");  // where it is midnight at 22:00 UTC
    EXPECT_EQ(shortOf(buildTranscript(&chat, people, {})), (Rows{"day 2020-06-01", "🐙 1", "day 2020-06-02", "🐙 2"}));
    const ZoneGuard utc("UTC");
    EXPECT_EQ(shortOf(buildTranscript(&chat, people, {})), (Rows{"day 2020-06-01", "🐙 1", "🐙 2"}));
}

TEST_F(TranscriptBuilderTest, AnAuthorWithoutAnEmojiHasANeutralFace) {
    people.set(eve, person(eve, ""));
    const Chat chat = chatOf({message(eve, "1", noon()), message("nobody", "2", noon())});
    EXPECT_EQ(shortOf(buildTranscript(&chat, people, {})), (Rows{"day 2020-06-01", "😐 1", "😐 2"}));
}

TEST_F(TranscriptBuilderTest, TheReadCountPlaysNoPart) {
    Chat chat = longChat(10);
    const Transcript before = builder.build(&chat, people, {});
    chat.readCount = 7;
    EXPECT_EQ(builder.build(&chat, people, {}), before);
}

TEST_F(TranscriptBuilderTest, TextsAndAuthorsAreThoseOfTheState) {
    const Chat chat = longChat(3);
    const Transcript transcript = buildTranscript(&chat, people, {});
    EXPECT_EQ(&textAt(transcript, 1).text.string(), &chat.messages[0].text);
    EXPECT_EQ(&textAt(transcript, 3).text.string(), &chat.messages[2].text);
    EXPECT_EQ(&textAt(transcript, 1).author.string(), &chat.messages[0].author);
    EXPECT_EQ(&textAt(transcript, 1).toolTip.string(), &chat.messages[0].author);
}

TEST_F(TranscriptBuilderTest, RowsOfOneAuthorShareEmojiAndKey) {
    const Chat chat = longChat(100);
    const Transcript transcript = buildTranscript(&chat, people, {});
    EXPECT_EQ(&textAt(transcript, 1).author.string(), &textAt(transcript, 100).author.string());
    EXPECT_EQ(&textAt(transcript, 1).emoji.string(), &textAt(transcript, 100).emoji.string());
    EXPECT_LE(sizeof(Transcript::Item), 80u);
}

TEST_F(TranscriptBuilderTest, TheRowsOutliveTheChat) {
    Transcript transcript;
    {
        auto chat = std::make_unique<Chat>(longChat(600));
        transcript = TranscriptBuilder().build(chat.get(), people, {});
    }
    EXPECT_EQ(textAt(transcript, 600).text.string(), "text 599");
    EXPECT_EQ(textAt(transcript, 600).author.string(), bob);
}

TEST_F(TranscriptBuilderTest, OneMessageMoreSharesAllThatIsThere) {
    Chat chat = longChat(1000);
    const Transcript before = builder.build(&chat, people, {});
    chat.messages.push_back(message(ann, "new", noon(20'000)));
    const Transcript after = builder.build(&chat, people, {});
    EXPECT_EQ(after.items.size(), before.items.size() + 1);
    EXPECT_EQ(after.items.sharedBeginning(before.items), before.items.size());
    EXPECT_EQ(shortOf(after.items.back()), "🐙 new");
    EXPECT_EQ(rowsOf(after) == naiveTranscript(&chat, people, {}), true);
}

TEST_F(TranscriptBuilderTest, OneActivityMoreSharesAllThatIsThere) {
    const Chat chat = longChat(1000);
    const Transcript before = builder.build(&chat, people, activities);
    activities.push_back({"note", noon(2 * day)});
    const Transcript after = builder.build(&chat, people, activities);
    EXPECT_EQ(after.items.size(), before.items.size() + 2);  // the activity and its daybreak
    EXPECT_EQ(after.items.sharedBeginning(before.items), before.items.size());
    EXPECT_EQ(before, buildTranscript(&chat, people, {}));
}

TEST_F(TranscriptBuilderTest, WithNothingNewTheRowsAreTheVerySame) {
    const Chat chat = longChat(1000);
    const Transcript before = builder.build(&chat, people, {});
    const Transcript after = builder.build(&chat, people, {});
    EXPECT_EQ(after.items.sharedBeginning(before.items), before.items.size());
    EXPECT_EQ(&after.items[0], &before.items[0]);
}

TEST_F(TranscriptBuilderTest, PeopleWhoAreNoAuthorsHereChangeNothing) {
    const Chat chat = longChat(1000);
    const Transcript before = builder.build(&chat, people, {});
    people.set(eve, person(eve, "🦊"));
    people.update(ann, [](Person& one) { one.isOnline = true, one.name = "Ann II"; });
    const Transcript after = builder.build(&chat, people, {});
    EXPECT_EQ(&after.items[0], &before.items[0]);
    EXPECT_EQ(after.items.sharedBeginning(before.items), before.items.size());
    EXPECT_EQ(after.items.size(), before.items.size());
    // An unknown author who is then listed, without an emoji, looks as before.
    const Chat strange = chatOf({message("nobody", "1", noon())});
    TranscriptBuilder other;
    const Transcript unknown = other.build(&strange, people, {});
    people.set("nobody", person("nobody", ""));
    EXPECT_EQ(&other.build(&strange, people, {}).items[0], &unknown.items[0]);
}

TEST_F(TranscriptBuilderTest, AnotherEmojiOfAnAuthorIsShownInAllRows) {
    Chat chat = longChat(600);
    const Transcript before = builder.build(&chat, people, {});
    people.set(ann, person(ann, "🦊"));
    const Transcript after = builder.build(&chat, people, {});
    EXPECT_EQ(textAt(after, 1).emoji.string(), "🦊");
    EXPECT_EQ(textAt(before, 1).emoji.string(), "🐙");
    EXPECT_EQ(rowsOf(after) == naiveTranscript(&chat, people, {}), true);
    people.erase(ann);
    EXPECT_EQ(textAt(builder.build(&chat, people, {}), 1).emoji.string(), "😐");
    people.set(ann, person(ann, "🐙"));
    chat.messages.push_back(message(eve, "hi", noon(20'000)));
    EXPECT_EQ(rowsOf(builder.build(&chat, people, {})) == naiveTranscript(&chat, people, {}), true);
    people.set(eve, person(eve, "🦊"));
    EXPECT_EQ(shortOf(builder.build(&chat, people, {}).items.back()), "🦊 hi");
}

TEST_F(TranscriptBuilderTest, BehindAClockThatWasSetBackOnlyTheRowsBehindAreLaidAgain) {
    Chat chat = longChat(10'000);
    const Transcript before = builder.build(&chat, people, {});
    const Transcript builtBefore = buildTranscript(&chat, people, {});
    chat.messages.push_back(message(eve, "back", noon(99'905)));  // earlier than nine existing rows
    const Transcript after = builder.build(&chat, people, {});
    EXPECT_EQ(rowsOf(after) == naiveTranscript(&chat, people, {}), true);
    EXPECT_EQ(shortOf(after.items[after.items.size() - 10]), "😐 back");
    EXPECT_GE(after.items.sharedBeginning(before.items), before.items.size() - 10 - 256);
    EXPECT_EQ(before, builtBefore);
}

TEST_F(TranscriptBuilderTest, AnEntryBeforeAllOthersMovesTheFirstDaybreak) {
    Chat chat = chatOf({message(ann, "1", noon())});
    builder.build(&chat, people, {});
    chat.messages.push_back(message(ann, "0", noon(-60)));
    EXPECT_EQ(shortOf(builder.build(&chat, people, {})), (Rows{"day 2020-06-01", "🐙 0", "🐙 1"}));
    activities.push_back({"old", noon(-day)});
    EXPECT_EQ(shortOf(builder.build(&chat, people, activities)),
              (Rows{"day 2020-05-31", "- old", "day 2020-06-01", "🐙 0", "🐙 1"}));
    activities.push_back({"between", noon(-day / 2 - 1)});  // a second before midnight
    EXPECT_EQ(shortOf(builder.build(&chat, people, activities)),
              (Rows{"day 2020-05-31", "- old", "- between", "day 2020-06-01", "🐙 0", "🐙 1"}));
}

TEST_F(TranscriptBuilderTest, AnotherChatStartsAfresh) {
    const Chat one = longChat(300);
    const Chat other = chatOf({message(bob, "hi", noon())});
    builder.build(&one, people, {});
    EXPECT_EQ(shortOf(builder.build(&other, people, {})), (Rows{"day 2020-06-01", "🙂 hi"}));
    EXPECT_TRUE(builder.build(nullptr, people, {}).items.empty());
    EXPECT_EQ(builder.build(&one, people, {}), buildTranscript(&one, people, {}));
    const Chat shorter{.messages = one.messages.prefix(2)};
    EXPECT_EQ(builder.build(&shorter, people, {}), buildTranscript(&shorter, people, {}));
}

TEST_F(TranscriptBuilderTest, ActivitiesThatChangedAreShownAsTheyAre) {
    const Chat chat = longChat(3);
    builder.build(&chat, people, {{"a", noon(1)}, {"b", noon(2)}});
    for (const std::vector<Activity>& changed : {std::vector<Activity>{{"a", noon(1)}},
                                                 {{"a", noon(1)}, {"B", noon(2)}},
                                                 {{"b", noon(2)}, {"a", noon(1)}},
                                                 {}})
        EXPECT_EQ(rowsOf(builder.build(&chat, people, changed)) == naiveTranscript(&chat, people, changed), true);
}

TEST_F(TranscriptBuilderTest, ACopyGoesItsOwnWay) {
    Chat chat = longChat(300);
    builder.build(&chat, people, {});
    TranscriptBuilder copy = builder;
    Chat one = chat, other = chat;
    one.messages.push_back(message(ann, "one", noon(9000)));
    other.messages.push_back(message(bob, "other", noon(9000)));
    EXPECT_EQ(rowsOf(builder.build(&one, people, {})) == naiveTranscript(&one, people, {}), true);
    { const TranscriptBuilder gone = std::move(builder); }
    EXPECT_EQ(rowsOf(copy.build(&other, people, {})) == naiveTranscript(&other, people, {}), true);
}

TEST_F(TranscriptBuilderTest, TimesOfADamagedFileHaveRowsLikeAnyOther) {
    const double huge = std::numeric_limits<double>::max(), infinity = std::numeric_limits<double>::infinity();
    Chat chat;
    for (const double time : {huge, -huge, 0.0, infinity, -infinity, 1e15, -1e15, std::nan("")})
        chat.messages.push_back(message(ann, "x", Date{time}));
    chat.messages.push_back(message(ann, "fine", noon()));
    const Rows expected{
        "day 0001-01-01", "🐙 x", "🐙 x", "🐙 x", "🐙 x", "day 2001-01-01", "🐙 x", "day 2020-06-01", "🐙 fine",
        "day 9999-12-31", "🐙 x", "🐙 x", "🐙 x"};
    EXPECT_EQ(shortOf(buildTranscript(&chat, people, {})), expected);
    // The rows are the same if the messages come one by one.
    Chat growing;
    for (const Message& one : chat.messages) {
        growing.messages.push_back(one);
        builder.build(&growing, people, {});
    }
    EXPECT_EQ(shortOf(builder.build(&growing, people, {})), expected);
}

TEST_F(TranscriptBuilderTest, EqualRowsHaveOneHash) {
    const Chat chat = longChat(50);
    Chat unshared;
    for (const Message& one : chat.messages) unshared.messages.push_back(one);
    const Transcript one = buildTranscript(&chat, people, {{"note", noon()}});
    const Transcript other = buildTranscript(&unshared, people, {{"note", noon()}});
    ASSERT_EQ(one, other);
    std::unordered_set<std::size_t> hashes;
    for (std::size_t i = 0; i < one.items.size(); ++i) {
        EXPECT_EQ(std::hash<Transcript::Item>()(one.items[i]), std::hash<Transcript::Item>()(other.items[i]));
        hashes.insert(std::hash<Transcript::Item>()(one.items[i]));
    }
    EXPECT_EQ(hashes.size(), one.items.size());
}

}  // namespace
