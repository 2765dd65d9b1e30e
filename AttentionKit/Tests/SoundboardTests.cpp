#include "AttentionKit/Soundboard.h"

#include "TestSupport/FakeSoundPlayer.h"
#include "TestSupport/TestLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct SoundboardTest : testing::Test {
    TestLoop loop;
    FakeSoundPlayer player;
    Soundboard soundboard{loop, player};
};

TEST_F(SoundboardTest, EachOperationPlaysItsSound) {
    soundboard.playChat();
    soundboard.playJoin();
    soundboard.playMention();
    EXPECT_THAT(player.take(), ElementsAre("chat", "join", "mention"));
}

TEST_F(SoundboardTest, ASoundIsBegunOnceWithinHalfASecond) {
    soundboard.playJoin();
    loop.advance(0.4);
    soundboard.playJoin();
    EXPECT_THAT(player.take(), ElementsAre("join"));
    loop.advance(0.1);
    soundboard.playJoin();
    EXPECT_THAT(player.take(), ElementsAre("join"));
}

TEST_F(SoundboardTest, AnUnbrokenRowOfOccasionsSoundsTwiceASecond) {
    for (int occasion = 0; occasion < 20; ++occasion) {
        soundboard.playChat();
        loop.advance(0.125);
    }
    EXPECT_THAT(player.take(), ElementsAre("chat", "chat", "chat", "chat", "chat"));
}

TEST_F(SoundboardTest, OneSoundHoldsNoOtherBack) {
    soundboard.playChat();
    soundboard.playMention();
    soundboard.playChat();
    EXPECT_THAT(player.take(), ElementsAre("chat", "mention"));
}

TEST_F(SoundboardTest, AClockSetBackSilencesNothing) {
    soundboard.playChat();
    player.take();
    loop.setClock(loop.now() + -3600);
    soundboard.playChat();
    EXPECT_THAT(player.take(), ElementsAre("chat"));
    soundboard.playChat();
    EXPECT_THAT(player.take(), IsEmpty());
}

}  // namespace
