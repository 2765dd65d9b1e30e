#include "DesktopKit/WindowCascade.h"

#include <gtest/gtest.h>

namespace {

const QRect area(100, 50, 1000, 700);
const QSize frame(512, 408);

TEST(ChatterCascadeTest, TheMiddleLeavesAsMuchOnBothSides) {
    EXPECT_EQ(WindowCascade::centred(frame, area), QPoint(344, 196));
}

TEST(ChatterCascadeTest, AFrameThatIsTooLargeKeepsItsTopLeftInSight) {
    EXPECT_EQ(WindowCascade::centred(QSize(2000, 2000), area), area.topLeft());
    EXPECT_EQ(WindowCascade::step({300, 300}, QSize(2000, 2000), area, 20).topLeft, area.topLeft());
}

TEST(ChatterCascadeTest, EachGoesWhereTheOneBeforePointed) {
    const auto step = WindowCascade::step({200, 100}, frame, area, 20);
    EXPECT_EQ(step, (WindowCascade::Step{{200, 100}, {220, 120}}));
}

TEST(ChatterCascadeTest, TouchingTheEdgesIsInside) {
    const QPoint last(area.x() + area.width() - frame.width(), area.y() + area.height() - frame.height());
    EXPECT_EQ(WindowCascade::step(last, frame, area, 20).topLeft, last);
}

TEST(ChatterCascadeTest, AtTheBottomItBeginsAgainAtTheTop) {
    EXPECT_EQ(WindowCascade::step({200, 343}, frame, area, 20), (WindowCascade::Step{{200, 50}, {220, 70}}));
}

TEST(ChatterCascadeTest, AtTheRightItBeginsAgainAtTheLeft) {
    EXPECT_EQ(WindowCascade::step({589, 100}, frame, area, 20), (WindowCascade::Step{{100, 100}, {120, 120}}));
}

TEST(ChatterCascadeTest, APointOfAScreenThatIsGoneIsBroughtIn) {
    EXPECT_EQ(WindowCascade::step({-3000, -10}, frame, area, 20).topLeft, area.topLeft());
}

TEST(ChatterCascadeTest, WithoutAScreenNothingIsBounded) {
    EXPECT_EQ(WindowCascade::step({-5, 9000}, frame, QRect(), 20), (WindowCascade::Step{{-5, 9000}, {15, 9020}}));
}

}  // namespace
