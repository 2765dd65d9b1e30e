#include "DesktopKit/ChatterVC.h"
#include "DesktopKit/ChatterWindow.h"
#include "TalkWorld.h"

#include <QPointer>
#include <QScreen>
#include <QUuid>
#include <QWindow>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Refuses to close windows, as an application may.
class Refusal : public QObject {
public:
    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() != QEvent::Close) return false;
        event->ignore();
        return true;
    }
};

class ChatterWindowTest : public testing::Test {
protected:
    ~ChatterWindowTest() override {
        while (!ChatterWindow::windows().empty()) delete ChatterWindow::windows().back();
        TalkWorld::sweep();
    }

    ChatterWindow* make(const std::string& with) { return new ChatterWindow(world.kit(), world.session.loop, with); }
    ChatterWindow* makeShown(const std::string& with) {
        ChatterWindow* window = make(with);
        window->show();
        return window;
    }
    static QPoint middle(const QWidget& window) {
        const QRect area = window.screen()->availableGeometry();
        return {area.x() + (area.width() - window.width()) / 2, area.y() + (area.height() - window.height()) / 2};
    }
    /// Allows for the decoration, whose size isn't known before a window is shown.
    static bool isInTheMiddle(const QWidget& window) {
        const QPoint distance = window.pos() - middle(window);
        return std::abs(distance.x()) <= 2 && distance.y() <= 0 && distance.y() >= -20;
    }

    TalkWorld world;
};

// ---- the title

TEST_F(ChatterWindowTest, TheTitleIsThePartnersName) { EXPECT_EQ(make(world.annKey)->windowTitle(), "Ann"); }

TEST_F(ChatterWindowTest, TheTitleFollowsANewName) {
    ChatterWindow* window = make(world.annKey);
    world.annIsCalled("Anna");
    EXPECT_EQ(window->windowTitle(), "Anna");
    EXPECT_EQ(window->state().withName, "Anna");
    world.says(world.bob, {std::nullopt, "Bobby", "", std::nullopt});
    EXPECT_EQ(window->windowTitle(), "Anna");
}

TEST_F(ChatterWindowTest, AKeyThatNobodyHasIsAnonymous) {
    ChatterWindow* window = make(keyTextOf(9));
    EXPECT_EQ(window->windowTitle(), "Anonymous");
    world.session.server().sendList({listed(1), listed(2), listed(3), listed(9)});
    EXPECT_EQ(window->windowTitle(), toQt("anonymous" + keyTextOf(9).substr(0, 6)));
}

TEST_F(ChatterWindowTest, ANameThatCantBeSeenIsTheAnonymousFormInTheTitle) {
    world.annIsCalled("\u200B");
    EXPECT_EQ(make(world.annKey)->windowTitle(), toQt("anonymous" + world.annKey.substr(0, 6)));
}

TEST_F(ChatterWindowTest, SomebodyWhoIsRemovedBecomesAnonymousAndTheTalkStays) {
    world.annSays("before");
    ChatterWindow* window = make(world.annKey);
    world.session.server().sendList({listed(1)});
    EXPECT_EQ(window->windowTitle(), "Anonymous");
    EXPECT_THAT(TalkWorld::rows(window->chatterVC().output()), ElementsAre("daybreak", "text: before"));
}

TEST_F(ChatterWindowTest, ATitleShowsTheMarkOfUnsavedChangesAsItIsInAName) {
    for (const char* name : {"[*]", "Ann [*] B", "[*][*]", "[*] [*]", "[[*]]"}) {
        world.annIsCalled(name);
        ChatterWindow* window = makeShown(world.annKey);
        EXPECT_EQ(window->windowHandle()->title(), QString::fromUtf8(name));
        delete window;
    }
}

TEST_F(ChatterWindowTest, ATitleIsOneLineWithoutChangesOfDirection) {
    world.annIsCalled("a\nb\u202Ec");
    const QString title = make(world.annKey)->windowTitle();
    EXPECT_FALSE(title.contains(u'\n'));
    EXPECT_FALSE(title.contains(QChar(0x202E)));
    EXPECT_TRUE(title.startsWith("a b"));
}

// ---- the set of windows

TEST_F(ChatterWindowTest, AWindowStandsInTheSetFromItsMaking) {
    EXPECT_EQ(ChatterWindow::existing(world.annKey), nullptr);
    ChatterWindow* ann = make(world.annKey);
    ChatterWindow* bob = make(world.bobKey);
    EXPECT_EQ(ChatterWindow::existing(world.annKey), ann);
    EXPECT_EQ(ChatterWindow::existing(world.bobKey), bob);
    EXPECT_THAT(ChatterWindow::windows(), ElementsAre(ann, bob));
    EXPECT_FALSE(ann->isVisible());
}

TEST_F(ChatterWindowTest, TheFirstOfTwoWithOnePersonIsFound) {
    ChatterWindow* first = make(world.annKey);
    make(world.annKey);
    EXPECT_EQ(ChatterWindow::existing(world.annKey), first);
}

TEST_F(ChatterWindowTest, ClosingTakesItOutAtOnceAndDeletesItLater) {
    const QPointer<ChatterWindow> ann(makeShown(world.annKey));
    ChatterWindow* bob = makeShown(world.bobKey);
    ann->close();
    EXPECT_EQ(ChatterWindow::existing(world.annKey), nullptr);
    EXPECT_THAT(ChatterWindow::windows(), ElementsAre(bob));
    TalkWorld::sweep();
    EXPECT_FALSE(ann);
    world.annSays("to nobody");
}

TEST_F(ChatterWindowTest, ACloseThatIsRefusedChangesNothing) {
    Refusal refusal;
    const QPointer<ChatterWindow> ann(makeShown(world.annKey));
    ann->installEventFilter(&refusal);
    ann->close();
    TalkWorld::sweep();
    ASSERT_TRUE(ann);
    EXPECT_TRUE(ann->isVisible());
    EXPECT_EQ(ChatterWindow::existing(world.annKey), ann);
    EXPECT_TRUE(ChatterWindow::cascadePoint());
    ann->removeEventFilter(&refusal);
    ann->close();
    TalkWorld::sweep();
    EXPECT_FALSE(ann);
}

TEST_F(ChatterWindowTest, APersonWhoseWindowIsClosingCanBeOpenedAnew) {
    ChatterWindow* before = makeShown(world.annKey);
    before->close();
    ChatterWindow* after = makeShown(world.annKey);
    TalkWorld::sweep();
    EXPECT_THAT(ChatterWindow::windows(), ElementsAre(after));
    EXPECT_TRUE(ChatterWindow::cascadePoint());
}

TEST_F(ChatterWindowTest, TheTalkOutlivesTheWindow) {
    world.annSays("before");
    makeShown(world.annKey)->close();
    EXPECT_THAT(TalkWorld::rows(make(world.annKey)->chatterVC().output()), ElementsAre("daybreak", "text: before"));
}

TEST_F(ChatterWindowTest, EachHasANameOfItsOwn) {
    ChatterWindow* first = make(world.annKey);
    ChatterWindow* second = make(world.annKey);
    EXPECT_FALSE(QUuid(toQt(first->identifier())).isNull());
    EXPECT_NE(first->identifier(), second->identifier());
}

// ---- size and focus

TEST_F(ChatterWindowTest, OpensAt512By384AndShrinksTo256By192) {
    ChatterWindow* window = makeShown(world.annKey);
    EXPECT_EQ(window->size(), QSize(512, 384));
    window->resize(10, 10);
    EXPECT_EQ(window->size(), QSize(256, 192));
}

TEST_F(ChatterWindowTest, TheFocusGoesThroughTheWindowToTheInput) {
    ChatterWindow* window = makeShown(world.annKey);
    InputTextView& input = window->chatterVC().input().textView();
    EXPECT_EQ(window->focusWidget(), &input);
    window->chatterVC().output().setFocus();
    window->setFocus();
    EXPECT_EQ(window->focusWidget(), &input);
}

TEST_F(ChatterWindowTest, ShowingTheWindowReadsTheTalk) {
    world.annSays("one");
    ChatterWindow* window = make(world.annKey);
    EXPECT_EQ(world.state().conversations.find(world.annKey)->readCount, 0);
    window->show();
    EXPECT_EQ(world.state().conversations.find(world.annKey)->readCount, 1);
    world.annSays("two");
    window->raise();
    window->activateWindow();
    EXPECT_EQ(world.state().conversations.find(world.annKey)->readCount, 1);
}

// ---- the place

TEST_F(ChatterWindowTest, TheFirstStandsInTheMiddle) {
    ChatterWindow* window = make(world.annKey);
    EXPECT_TRUE(isInTheMiddle(*window)) << window->pos().x() << ", " << window->pos().y();
}

TEST_F(ChatterWindowTest, ASecondOneWhileTheFirstIsSeenGoesOnFromThere) {
    ChatterWindow* first = makeShown(world.annKey);
    const auto next = ChatterWindow::cascadePoint();
    ASSERT_TRUE(next);
    ChatterWindow* second = make(world.bobKey);
    EXPECT_EQ(second->pos(), *next);
    EXPECT_GT(second->pos().x(), first->pos().x());
    EXPECT_GT(second->pos().y(), first->pos().y());
    EXPECT_NE(ChatterWindow::cascadePoint(), next);
}

TEST_F(ChatterWindowTest, WindowsThatCantBeSeenDontCount) {
    make(world.annKey);
    EXPECT_TRUE(isInTheMiddle(*make(world.bobKey)));
    ChatterWindow* minimised = makeShown(keyTextOf(4));
    minimised->showMinimized();
    EXPECT_TRUE(isInTheMiddle(*make(keyTextOf(5))));
}

TEST_F(ChatterWindowTest, ClosingTheLastForgetsWhereTheNextWouldGo) {
    ChatterWindow* first = makeShown(world.annKey);
    ChatterWindow* second = makeShown(world.bobKey);
    first->close();
    EXPECT_TRUE(ChatterWindow::cascadePoint());
    second->close();
    EXPECT_FALSE(ChatterWindow::cascadePoint());
    EXPECT_TRUE(isInTheMiddle(*make(world.annKey)));
}

TEST_F(ChatterWindowTest, ManyWindowsAllStayOnTheScreen) {
    for (std::uint8_t number = 10; number < 60; ++number) {
        ChatterWindow* window = makeShown(keyTextOf(number));
        EXPECT_TRUE(window->screen()->availableGeometry().contains(QRect(window->pos(), window->size())))
            << window->pos().x() << ", " << window->pos().y();
    }
}

}  // namespace
