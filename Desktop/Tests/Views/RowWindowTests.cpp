#include "DesktopViews/RowWindow.h"

#include <gtest/gtest.h>

#include <random>

namespace {

/// A list whose estimates are too small for some rows and too large for others.
struct WrongList {
    static int height(std::size_t row) { return 15 + static_cast<int>(row * 2654435761U % 380); }
    static int estimate(std::size_t row) { return 10 + static_cast<int>(row * 40503U % 200); }

    explicit WrongList(std::size_t count, int page = 300)
        : window(estimate, [this](std::size_t row) { return ++measurements, height(row); }) {
        window.setPage(page);
        window.resize(count, 0);
        window.goToEnd();
        window.settle();
    }

    /// Expects that the rows fill the screen, one below the other without gaps.
    void expectFull(int page) const {
        const std::vector<RowWindow::VisibleRow>& rows = window.rows();
        ASSERT_FALSE(rows.empty());
        EXPECT_LE(rows.front().y, 0);
        EXPECT_GE(rows.back().y + rows.back().height, page);
        for (std::size_t i = 0; i < rows.size(); ++i) {
            ASSERT_EQ(rows[i].height, height(rows[i].row));
            if (i == 0) continue;
            ASSERT_EQ(rows[i].row, rows[i - 1].row + 1);
            ASSERT_EQ(rows[i].y, rows[i - 1].y + rows[i - 1].height);
        }
    }

    std::size_t measurements = 0;
    RowWindow window;
};

}  // namespace

TEST(RowWindowTest, ScrollingUpThroughTenThousandRowsMovesWhatIsReadByTheStepAlone) {
    WrongList list(10000);
    const unsigned seed = 20261115;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    while (list.window.rows().front().row > 0) {
        const RowWindow::VisibleRow before = list.window.rows().front();
        const int step = 1 + static_cast<int>(random() % 290);
        list.window.scrollBy(-step);
        list.window.settle();
        ASSERT_NO_FATAL_FAILURE(list.expectFull(300));
        const RowWindow::VisibleRow* after = list.window.find(before.row);
        if (list.window.rows().front().row == 0 && list.window.rows().front().y == 0) break;
        if (before.y + step < 300) {
            ASSERT_NE(after, nullptr);
            ASSERT_EQ(after->y, before.y + step);
        }
        ASSERT_FALSE(list.window.isAtEnd());
    }
    EXPECT_EQ(list.window.place(), list.window.rows().front().row == 0 ? -list.window.rows().front().y : -1);
    EXPECT_EQ(list.measurements, 10000U);
}

TEST(RowWindowTest, RandomMovesLeaveTheScreenFullAndItsPlaceTrue) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    WrongList list(3000);
    for (int step = 0; step < 3000; ++step) {
        switch (random() % 6) {
            case 0: list.window.jumpTo(static_cast<std::int64_t>(random() % 700000)); break;
            case 1: list.window.goToEnd(); break;
            case 2: list.window.goToStart(); break;
            case 3: list.window.forgetHeights(); break;
            case 4: list.window.goTo(random() % 3000, static_cast<int>(random() % 300)); break;
            default: list.window.scrollBy(static_cast<int>(random() % 2000) - 1000); break;
        }
        list.window.settle();
        ASSERT_NO_FATAL_FAILURE(list.expectFull(300));
        ASSERT_GE(list.window.place(), 0);
        ASSERT_LE(list.window.place(), list.window.lastPlace());
        if (list.window.rows().front().row == 0) {
            ASSERT_EQ(list.window.place(), -list.window.rows().front().y);
        }
    }
}

TEST(RowWindowTest, OnlyRowsThatComeOntoTheScreenAreMeasured) {
    WrongList list(100000);
    EXPECT_LE(list.measurements, 21U);
    list.measurements = 0;
    list.window.jumpTo(list.window.lastPlace() / 2);
    list.window.settle();
    EXPECT_LE(list.measurements, 21U);
}

TEST(RowWindowTest, AShortListFillsFromTheTop) {
    WrongList list(2, 10000);
    EXPECT_EQ(list.window.rows().front().y, 0);
    EXPECT_EQ(list.window.place(), 0);
    EXPECT_EQ(list.window.lastPlace(), 0);
    EXPECT_TRUE(list.window.isAtEnd());
}

TEST(RowWindowTest, ForgottenHeightsLeaveTheFirstRowWhereItIs) {
    WrongList list(1000);
    list.window.goTo(500, 0);
    list.window.settle();
    list.window.forgetHeights();
    list.window.settle();
    EXPECT_EQ(list.window.rows().front().row, 500U);
    EXPECT_EQ(list.window.rows().front().y, 0);
}

TEST(RowWindowTest, TheEndIsWithinFourPoints) {
    WrongList list(1000);
    list.window.scrollBy(-4);
    list.window.settle();
    EXPECT_TRUE(list.window.isAtEnd());
    EXPECT_EQ(list.window.place(), list.window.lastPlace() - 4);
    list.window.scrollBy(-1);
    list.window.settle();
    EXPECT_FALSE(list.window.isAtEnd());
}

TEST(RowWindowTest, AListThatBecomesEmptyAndFullAgainStandsAtItsEnd) {
    WrongList list(1000);
    list.window.goToStart();
    list.window.settle();
    list.window.resize(0, 0);
    list.window.settle();
    EXPECT_TRUE(list.window.rows().empty());
    EXPECT_TRUE(list.window.isAtEnd());
    list.window.resize(1000, 0);
    list.window.settle();
    EXPECT_EQ(list.window.rows().back().row, 999U);
}
