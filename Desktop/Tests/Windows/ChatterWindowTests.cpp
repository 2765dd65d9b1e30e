#include "DesktopKit/ChatterVC.h"
#include "DesktopKit/ChatterWindow.h"
#include "TalkWorld.h"

#include <QUuid>
#include <QWindow>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <string>

namespace {

using testing::ElementsAre;

class ChatterWindowTest : public testing::Test {
protected:
    ChatterWindow& make(const std::string& with) {
        return windows.emplace_back(world.kit(), world.session.loop, with,
                                    [this](ChatterWindow& closing) { closed.push_back(&closing); });
    }
    ChatterWindow& makeShown(const std::string& with) {
        ChatterWindow& window = make(with);
        window.show();
        return window;
    }

    TalkWorld world;
    std::list<ChatterWindow> windows;
    std::vector<ChatterWindow*> closed;
};

// ---- the title

TEST_F(ChatterWindowTest, TheTitleIsThePartnersName) { EXPECT_EQ(make(world.annKey).windowTitle(), "Ann"); }

TEST_F(ChatterWindowTest, TheTitleFollowsANewName) {
    ChatterWindow& window = make(world.annKey);
    world.annIsCalled("Anna");
    EXPECT_EQ(window.windowTitle(), "Anna");
    EXPECT_EQ(window.state().withName, "Anna");
    world.says(world.bob, {std::nullopt, "Bobby", "", std::nullopt});
    EXPECT_EQ(window.windowTitle(), "Anna");
}

TEST_F(ChatterWindowTest, AKeyThatNobodyHasIsAnonymous) {
    ChatterWindow& window = make(keyTextOf(9));
    EXPECT_EQ(window.windowTitle(), "Anonymous");
    world.session.server().sendList({listed(1), listed(2), listed(3), listed(9)});
    EXPECT_EQ(window.windowTitle(), toQt("anonymous" + keyTextOf(9).substr(0, 6)));
}

TEST_F(ChatterWindowTest, ANameThatCantBeSeenIsTheAnonymousFormInTheTitle) {
    world.annIsCalled("\u200B");
    EXPECT_EQ(make(world.annKey).windowTitle(), toQt("anonymous" + world.annKey.substr(0, 6)));
}

TEST_F(ChatterWindowTest, SomebodyWhoIsRemovedBecomesAnonymousAndTheTalkStays) {
    world.annSays("before");
    ChatterWindow& window = make(world.annKey);
    world.session.server().sendList({listed(1)});
    EXPECT_EQ(window.windowTitle(), "Anonymous");
    EXPECT_THAT(TalkWorld::rows(window.chatterVC().output()), ElementsAre("daybreak", "text: before"));
}

TEST_F(ChatterWindowTest, ATitleShowsTheMarkOfUnsavedChangesAsItIsInAName) {
    for (const char* name : {"[*]", "Ann [*] B", "[*][*]", "[*] [*]", "[[*]]"}) {
        world.annIsCalled(name);
        ChatterWindow& window = makeShown(world.annKey);
        EXPECT_EQ(window.windowHandle()->title(), QString::fromUtf8(name));
    }
}

TEST_F(ChatterWindowTest, ATitleIsOneLineWithoutChangesOfDirection) {
    world.annIsCalled("a\nb\u202Ec");
    const QString title = make(world.annKey).windowTitle();
    EXPECT_FALSE(title.contains(u'\n'));
    EXPECT_FALSE(title.contains(QChar(0x202E)));
    EXPECT_TRUE(title.startsWith("a b"));
}

// ---- the end

TEST_F(ChatterWindowTest, ClosingIsToldAndLeavesTheWindowToItsOwner) {
    ChatterWindow& window = makeShown(world.annKey);
    window.close();
    EXPECT_THAT(closed, ElementsAre(&window));
    TalkWorld::sweep();
    EXPECT_FALSE(window.isVisible());
    EXPECT_EQ(window.windowTitle(), "Ann");
}

TEST_F(ChatterWindowTest, HidingIsNoClosing) {
    makeShown(world.annKey).hide();
    EXPECT_THAT(closed, testing::IsEmpty());
}

TEST_F(ChatterWindowTest, AWindowOfWhichNobodyWantsToHearCloses) {
    ChatterWindow window(world.kit(), world.session.loop, world.annKey);
    window.show();
    window.close();
    EXPECT_FALSE(window.isVisible());
}

TEST_F(ChatterWindowTest, EachHasANameOfItsOwn) {
    ChatterWindow& first = make(world.annKey);
    ChatterWindow& second = make(world.annKey);
    EXPECT_FALSE(QUuid(toQt(first.identifier())).isNull());
    EXPECT_NE(first.identifier(), second.identifier());
}

// ---- size and focus

TEST_F(ChatterWindowTest, OpensAt512By384AndShrinksTo256By192) {
    ChatterWindow& window = makeShown(world.annKey);
    EXPECT_EQ(window.size(), QSize(512, 384));
    window.resize(10, 10);
    EXPECT_EQ(window.size(), QSize(256, 192));
}

TEST_F(ChatterWindowTest, TheFocusGoesThroughTheWindowToTheInput) {
    ChatterWindow& window = makeShown(world.annKey);
    InputTextView& input = window.chatterVC().input().textView();
    EXPECT_EQ(window.focusWidget(), &input);
    window.chatterVC().output().setFocus();
    window.setFocus();
    EXPECT_EQ(window.focusWidget(), &input);
}

TEST_F(ChatterWindowTest, ShowingTheWindowReadsTheTalk) {
    world.annSays("one");
    ChatterWindow& window = make(world.annKey);
    EXPECT_EQ(world.state().conversations.find(world.annKey)->readCount, 0);
    window.show();
    EXPECT_EQ(world.state().conversations.find(world.annKey)->readCount, 1);
    world.annSays("two");
    window.raise();
    window.activateWindow();
    EXPECT_EQ(world.state().conversations.find(world.annKey)->readCount, 1);
}

}  // namespace
