#include "DesktopKit/RoomVC.h"
#include "DesktopKit/RoomWindow.h"
#include "TalkWorld.h"

#include <QPointer>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;

class RoomWindowTest : public testing::Test {
protected:
    TalkWorld world;
    RoomWindow window{world.kit(), world.session.loop};
};

TEST_F(RoomWindowTest, HasTheTitleAndTheSizesOfATalk) {
    EXPECT_FALSE(window.isVisible());
    EXPECT_EQ(window.windowTitle(), "Room");
    EXPECT_STREQ(RoomWindow::identifier, "RoomWindowID");
    window.show();
    EXPECT_EQ(window.size(), QSize(512, 384));
    window.resize(10, 10);
    EXPECT_EQ(window.size(), QSize(256, 192));
}

TEST_F(RoomWindowTest, ClosingOnlyHidesIt) {
    world.annIsCalled("Anna");
    window.show();
    EXPECT_TRUE(window.close());
    TalkWorld::sweep();
    EXPECT_FALSE(window.isVisible());
    world.session.loop.advance(1);
    world.says(world.bob, {"room", "Bob", "🦉", "while hidden"});
    window.show();
    EXPECT_THAT(TalkWorld::rows(window.roomVC().output()),
                ElementsAre("daybreak", "activity: Ann name → Anna", "text: while hidden"));
    EXPECT_EQ(world.state().room.readCount, 1);
}

TEST_F(RoomWindowTest, TheFocusGoesThroughTheWindowToTheInput) {
    window.show();
    window.roomVC().output().setFocus();
    window.setFocus();
    EXPECT_EQ(window.focusWidget(), &window.roomVC().input().textView());
}

}  // namespace
