#include "DesktopKit/PaperPlace.h"

#include <gtest/gtest.h>

#include <QMarginsF>
#include <QPageLayout>
#include <QPageSize>
#include <QRectF>

namespace {

const QSizeF page(360, 200);
constexpr double border = 16;

QPageLayout paper(double width, double height, const QMarginsF& margins = {}, const QMarginsF& minimum = {}) {
    return {QPageSize(QSizeF(width, height), QPageSize::Point, {}, QPageSize::ExactMatch), QPageLayout::Portrait,
            margins, QPageLayout::Point, minimum};
}

TEST(PaperPlaceTest, WithoutMarginsOnLargePaperThePageStandsHalfAnInchFromTheCornerUnscaled) {
    const auto place = PaperPlace::of(paper(595, 842), page, border);
    ASSERT_TRUE(place);
    EXPECT_EQ(place->scale, 1);
    EXPECT_EQ(place->origin, QPointF(36, 36));
}

TEST(PaperPlaceTest, WiderMarginsAreKeptWhereThePageFitsBetweenThem) {
    const auto place = PaperPlace::of(paper(595, 842, {100, 70, 10, 10}), page, border);
    ASSERT_TRUE(place);
    EXPECT_EQ(place->scale, 1);
    EXPECT_EQ(place->origin, QPointF(116, 86));
}

TEST(PaperPlaceTest, WhereItDoesNotFitOnlyThePrintersOwnMarginsAreKept) {
    const auto place = PaperPlace::of(paper(200, 300, {50, 50, 50, 50}, {12, 12, 12, 12}), page, border);
    ASSERT_TRUE(place);
    EXPECT_DOUBLE_EQ(place->scale, 176.0 / 392);
    EXPECT_DOUBLE_EQ(place->origin.x(), 12 + 16 * place->scale);
}

TEST(PaperPlaceTest, ThePageAndItsBorderStayInsideOfAnyPaper) {
    for (const double width : {30.0, 100.0, 391.0, 420.0, 2000.0})
        for (const double height : {30.0, 100.0, 231.0, 300.0, 2000.0}) {
            const auto place = PaperPlace::of(paper(width, height), page, border);
            ASSERT_TRUE(place);
            const QRectF needed(place->origin - QPointF(border, border) * place->scale,
                                (page + QSizeF(2 * border, 2 * border)) * place->scale);
            EXPECT_TRUE(QRectF(0, 0, width + 1e-6, height + 1e-6).contains(needed)) << width << " x " << height;
            EXPECT_LE(place->scale, 1);
        }
}

TEST(PaperPlaceTest, OnPaperThatIsAllMarginThereIsNoPlace) {
    EXPECT_FALSE(PaperPlace::of(paper(100, 100, {50, 50, 50, 50}, {50, 50, 50, 50}), page, border));
}

}  // namespace
