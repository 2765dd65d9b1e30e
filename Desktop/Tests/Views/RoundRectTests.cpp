#include "DesktopViews/RoundRect.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

class Watched : public RoundRect {
public:
    mutable std::vector<QRectF> built;

protected:
    QPainterPath outline(const QRectF& bounds) const override {
        built.push_back(bounds);
        return RoundRect::outline(bounds);
    }
};

QColor at(QWidget& widget, int x, int y) { return widget.grab().toImage().pixelColor(x, y); }

}  // namespace

TEST(RoundRectTest, TheOutlineIsBuiltForEachNewSizeAndNotForRedraws) {
    Watched rect;
    rect.resize(40, 20);
    rect.grab();
    rect.grab();
    EXPECT_EQ(rect.built, std::vector<QRectF>{QRectF(0, 0, 40, 20)});

    rect.resize(40, 21);
    rect.grab();
    rect.grab();
    rect.resize(50, 21);
    rect.grab();
    rect.grab();
    EXPECT_EQ(rect.built, (std::vector<QRectF>{{0, 0, 40, 20}, {0, 0, 40, 21}, {0, 0, 50, 21}}));
}

TEST(RoundRectTest, AChangeOfTheRadiusWaitsForTheNextSize) {
    Watched rect;
    rect.setColor(Qt::red);
    rect.resize(40, 40);
    EXPECT_EQ(at(rect, 3, 3), QColor(Qt::red));

    rect.setRadius(20);
    EXPECT_EQ(at(rect, 3, 3), QColor(Qt::red));
    rect.resize(40, 41);
    EXPECT_NE(at(rect, 3, 3), QColor(Qt::red));
    EXPECT_EQ(rect.built.size(), 2U);
}

TEST(RoundRectTest, ANewColourFillsTheOutlineThatIsThere) {
    Watched rect;
    rect.resize(40, 20);
    rect.setColor(Qt::red);
    EXPECT_EQ(at(rect, 20, 10), QColor(Qt::red));
    rect.setColor(Qt::green);
    EXPECT_EQ(at(rect, 20, 10), QColor(Qt::green));
    EXPECT_EQ(rect.built.size(), 1U);
}

TEST(RoundRectTest, WithoutAColourItIsTheWindowBackgroundWithCornersOfSix) {
    RoundRect rect;
    EXPECT_EQ(rect.color(), rect.palette().color(QPalette::Window));
    EXPECT_EQ(rect.radius(), 6);
}
