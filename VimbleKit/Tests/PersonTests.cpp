#include "VimbleKit/Chat.h"
#include "VimbleKit/Person.h"

#include <gtest/gtest.h>

#include <cmath>
#include <unordered_set>

namespace {

TEST(PersonTest, ANameIsShownAsItIs) {
    EXPECT_EQ((Person{"0123456789", "Ada", "", false, false}.displayName()), "Ada");
    EXPECT_EQ((Person{"0123456789", " ", "", false, false}.displayName()), " ");
}

TEST(PersonTest, WithoutANameThePersonIsAnonymousWithTheBeginningOfTheKey) {
    EXPECT_EQ((Person{"0123456789", "", "", false, false}.displayName()), "anonymous012345");
    EXPECT_EQ((Person{"0123", "", "", false, false}.displayName()), "anonymous0123");
    EXPECT_EQ((Person{"", "", "", false, false}.displayName()), "anonymous");
}

TEST(PersonTest, WithoutAnEmojiThereIsANeutralFace) {
    EXPECT_EQ((Person{"0", "", "", false, false}.displayEmoji()), "\U0001F610");
    EXPECT_EQ((Person{"0", "", " ", false, false}.displayEmoji()), " ");
    EXPECT_EQ((Person{"0", "", "🦊", false, false}.displayEmoji()), "🦊");
}

TEST(PersonTest, EqualityAndHashLookAtAllFiveFields) {
    const Person base{"a", "b", "c", false, false};
    const Person others[] = {{"x", "b", "c", false, false},
                             {"a", "x", "c", false, false},
                             {"a", "b", "x", false, false},
                             {"a", "b", "c", true, false},
                             {"a", "b", "c", false, true}};
    for (const Person& other : others) {
        EXPECT_NE(base, other);
        EXPECT_NE(std::hash<Person>()(base), std::hash<Person>()(other));
    }
    EXPECT_EQ(base, Person(base));
    EXPECT_EQ(std::hash<Person>()(base), std::hash<Person>()(Person(base)));
}

TEST(MessageTest, AnotherInstantIsAnotherMessage) {
    const Message base{"a", "t", {800000000.25}};
    EXPECT_EQ(base, (Message{"a", "t", {800000000.25}}));
    EXPECT_NE(base, (Message{"a", "t", {std::nextafter(800000000.25, 1e9)}}));
    EXPECT_NE(base, (Message{"b", "t", {800000000.25}}));
    EXPECT_NE(base, (Message{"a", "u", {800000000.25}}));
    const std::unordered_set<Message> set{base, base, {"a", "u", {0}}};
    EXPECT_EQ(set.size(), 2u);
}

}  // namespace
