#include "DesktopKit/ChatterVC.h"
#include "DesktopKit/ChatterWindows.h"
#include "TalkWorld.h"

#include <QPointer>
#include <QScreen>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

using testing::ElementsAre;

/// Keeps windows open, as an application may.
class Refusal : public QObject {
public:
    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() != QEvent::Close) return false;
        event->ignore();
        return true;
    }
};

class ChatterWindowsTest : public testing::Test {
protected:
    ~ChatterWindowsTest() override { TalkWorld::sweep(); }

    ChatterWindow* make(const std::string& with) { return &windows.make(with); }
    ChatterWindow* makeShown(const std::string& with) {
        ChatterWindow* window = make(with);
        window->show();
        return window;
    }
    static QPoint middle(const QWidget& window) {
        const QRect area = window.screen()->availableGeometry();
        return {area.x() + (area.width() - window.width()) / 2, area.y() + (area.height() - window.height()) / 2};
    }
    /// Up to the decoration, whose size isn't known before a window is shown.
    static bool isInTheMiddle(const QWidget& window) {
        const QPoint distance = window.pos() - middle(window);
        return std::abs(distance.x()) <= 2 && distance.y() <= 0 && distance.y() >= -20;
    }

    TalkWorld world;
    ChatterWindows windows{world.kit(), world.session.loop};
};

// ---- who is there

TEST_F(ChatterWindowsTest, AWindowStandsInTheSetFromItsMaking) {
    EXPECT_EQ(windows.existing(world.annKey), nullptr);
    ChatterWindow* ann = make(world.annKey);
    ChatterWindow* bob = make(world.bobKey);
    EXPECT_EQ(windows.existing(world.annKey), ann);
    EXPECT_EQ(windows.existing(world.bobKey), bob);
    EXPECT_THAT(windows.windows(), ElementsAre(ann, bob));
    EXPECT_FALSE(ann->isVisible());
}

TEST_F(ChatterWindowsTest, TheFirstOfTwoWithOnePersonIsFound) {
    ChatterWindow* first = make(world.annKey);
    make(world.annKey);
    EXPECT_EQ(windows.existing(world.annKey), first);
}

TEST_F(ChatterWindowsTest, ClosingTakesItOutAtOnceAndDeletesItLater) {
    const QPointer<ChatterWindow> ann(makeShown(world.annKey));
    ChatterWindow* bob = makeShown(world.bobKey);
    ann->close();
    EXPECT_EQ(windows.existing(world.annKey), nullptr);
    EXPECT_THAT(windows.windows(), ElementsAre(bob));
    TalkWorld::sweep();
    EXPECT_FALSE(ann);
    world.annSays("to nobody");
}

TEST_F(ChatterWindowsTest, ACloseThatIsRefusedChangesNothing) {
    Refusal refusal;
    const QPointer<ChatterWindow> ann(makeShown(world.annKey));
    ann->installEventFilter(&refusal);
    ann->close();
    TalkWorld::sweep();
    ASSERT_TRUE(ann);
    EXPECT_TRUE(ann->isVisible());
    EXPECT_EQ(windows.existing(world.annKey), ann);
    EXPECT_TRUE(windows.cascadePoint());
    ann->removeEventFilter(&refusal);
    ann->close();
    TalkWorld::sweep();
    EXPECT_FALSE(ann);
}

TEST_F(ChatterWindowsTest, APersonWhoseWindowIsClosingCanBeOpenedAnew) {
    ChatterWindow* before = makeShown(world.annKey);
    before->close();
    ChatterWindow* after = makeShown(world.annKey);
    TalkWorld::sweep();
    EXPECT_THAT(windows.windows(), ElementsAre(after));
    EXPECT_TRUE(windows.cascadePoint());
}

TEST_F(ChatterWindowsTest, AWindowThatIsToldToCloseTwiceLeavesOnce) {
    const QPointer<ChatterWindow> ann(makeShown(world.annKey));
    ChatterWindow* bob = makeShown(world.bobKey);
    ann->close();
    ann->close();
    EXPECT_THAT(windows.windows(), ElementsAre(bob));
    TalkWorld::sweep();
    EXPECT_FALSE(ann);
}

TEST_F(ChatterWindowsTest, TheWindowsDieWithTheirOwnerAlsoTheOneThatHasJustClosed) {
    auto owner = std::make_unique<ChatterWindows>(world.kit(), world.session.loop);
    const QPointer<ChatterWindow> open(&owner->make(world.annKey));
    const QPointer<ChatterWindow> closing(&owner->make(world.bobKey));
    const QPointer<ChatterWindow> gone(&owner->make(keyTextOf(4)));
    gone->show();
    gone->close();
    TalkWorld::sweep();
    ASSERT_FALSE(gone);
    closing->show();
    closing->close();
    ASSERT_TRUE(closing);
    owner.reset();
    EXPECT_FALSE(open);
    EXPECT_FALSE(closing);
    TalkWorld::sweep();
    world.annSays("to nobody");
}

TEST_F(ChatterWindowsTest, TwoOwnersKnowNothingOfEachOther) {
    ChatterWindows others(world.kit(), world.session.loop);
    others.make(world.annKey).show();
    EXPECT_EQ(windows.existing(world.annKey), nullptr);
    EXPECT_FALSE(windows.cascadePoint());
    EXPECT_TRUE(isInTheMiddle(*make(world.annKey)));
}

TEST_F(ChatterWindowsTest, TheTalkOutlivesTheWindow) {
    world.annSays("before");
    makeShown(world.annKey)->close();
    EXPECT_THAT(TalkWorld::rows(make(world.annKey)->chatterVC().output()), ElementsAre("daybreak", "text: before"));
}

// ---- the place

TEST_F(ChatterWindowsTest, TheFirstStandsInTheMiddle) {
    ChatterWindow* window = make(world.annKey);
    EXPECT_TRUE(isInTheMiddle(*window)) << window->pos().x() << ", " << window->pos().y();
}

TEST_F(ChatterWindowsTest, ASecondOneWhileTheFirstIsSeenGoesOnFromThere) {
    ChatterWindow* first = makeShown(world.annKey);
    const auto next = windows.cascadePoint();
    ASSERT_TRUE(next);
    ChatterWindow* second = make(world.bobKey);
    EXPECT_EQ(second->pos(), *next);
    EXPECT_GT(second->pos().x(), first->pos().x());
    EXPECT_GT(second->pos().y(), first->pos().y());
    EXPECT_NE(windows.cascadePoint(), next);
}

TEST_F(ChatterWindowsTest, WindowsThatCantBeSeenDontCount) {
    make(world.annKey);
    EXPECT_TRUE(isInTheMiddle(*make(world.bobKey)));
    ChatterWindow* minimised = makeShown(keyTextOf(4));
    minimised->showMinimized();
    EXPECT_TRUE(isInTheMiddle(*make(keyTextOf(5))));
}

TEST_F(ChatterWindowsTest, ClosingTheLastForgetsWhereTheNextWouldGo) {
    ChatterWindow* first = makeShown(world.annKey);
    ChatterWindow* second = makeShown(world.bobKey);
    first->close();
    EXPECT_TRUE(windows.cascadePoint());
    second->close();
    EXPECT_FALSE(windows.cascadePoint());
    EXPECT_TRUE(isInTheMiddle(*make(world.annKey)));
}

TEST_F(ChatterWindowsTest, ManyWindowsAllStayOnTheScreen) {
    for (std::uint8_t number = 10; number < 60; ++number) {
        ChatterWindow* window = makeShown(keyTextOf(number));
        EXPECT_TRUE(window->screen()->availableGeometry().contains(QRect(window->pos(), window->size())))
            << window->pos().x() << ", " << window->pos().y();
    }
}

}  // namespace
