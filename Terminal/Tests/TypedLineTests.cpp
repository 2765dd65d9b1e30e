#include "TerminalKit/TypedLine.h"

#include <gtest/gtest.h>

using Kind = TypedLine::Kind;

TEST(TypedLineTest, ASlashMakesACommandAndIsDropped) {
    EXPECT_EQ(TypedLine::parse("/name Ann"), (TypedLine{Kind::command, "name Ann"}));
    EXPECT_EQ(TypedLine::parse("//help"), (TypedLine{Kind::command, "/help"}));
    EXPECT_EQ(TypedLine::parse("/"), TypedLine{});
    EXPECT_EQ(TypedLine::parse("/  "), TypedLine{});
}

TEST(TypedLineTest, AnAtSignMakesADirectMessageWhateverIsBehindIt) {
    EXPECT_EQ(TypedLine::parse("@bob hi"), (TypedLine{Kind::direct, "bob hi"}));
    EXPECT_EQ(TypedLine::parse("@"), (TypedLine{Kind::direct, ""}));
    EXPECT_EQ(TypedLine::parse("@ home"), (TypedLine{Kind::direct, " home"}));
}

TEST(TypedLineTest, AnyOtherLineGoesToTheRoomAsItStands) {
    EXPECT_EQ(TypedLine::parse("hello "), (TypedLine{Kind::room, "hello "}));
    EXPECT_EQ(TypedLine::parse(" /etc"), (TypedLine{Kind::room, " /etc"}));
    EXPECT_EQ(TypedLine::parse(" @bob"), (TypedLine{Kind::room, " @bob"}));
}

TEST(TypedLineTest, BlanksAloneAreNothing) {
    EXPECT_EQ(TypedLine::parse(""), TypedLine{});
    EXPECT_EQ(TypedLine::parse(" \t\u00a0"), TypedLine{});
}

TEST(TypedLineTest, TheServerAnswersWhatTheClientDoesNotKeepForItself) {
    EXPECT_TRUE(TypedLine::parse("/who").expectsAnswer());
    EXPECT_TRUE(TypedLine::parse("/Name Ann").expectsAnswer());
    EXPECT_TRUE(TypedLine::parse("/names").expectsAnswer());
    EXPECT_FALSE(TypedLine::parse("/name Ann").expectsAnswer());
    EXPECT_FALSE(TypedLine::parse("/  emoji 🙂").expectsAnswer());
    EXPECT_FALSE(TypedLine::parse("/name").expectsAnswer());
    EXPECT_FALSE(TypedLine::parse("hello").expectsAnswer());
}
