#include "DesktopViews/RowHeights.h"

#include <gtest/gtest.h>

#include <numeric>
#include <random>

namespace {

/// Does what RowHeights does, in the plainest way.
struct NaiveHeights {
    std::vector<int> heights;
    std::vector<bool> measured;

    void resize(std::size_t count, std::size_t kept, int estimate) {
        heights.resize(std::min(kept, heights.size()));
        measured.resize(heights.size());
        heights.resize(count, estimate);
        measured.resize(count, false);
    }
    std::int64_t top(std::size_t row) const {
        return std::accumulate(heights.begin(), heights.begin() + static_cast<std::ptrdiff_t>(row), std::int64_t{0});
    }
    std::size_t rowAt(std::int64_t y) const {
        for (std::size_t row = 0; row < heights.size(); ++row)
            if ((y -= heights[row]) < 0) return row;
        return heights.size() - 1;
    }
};

unsigned seedOfThisRun() {
    const unsigned seed = std::random_device()();
    testing::Test::RecordProperty("seed", std::to_string(seed));
    return seed;
}

}  // namespace

TEST(RowHeightsTest, WithEqualEstimatesItAgreesWithAPlainListAfterAnyChanges) {
    const unsigned seed = seedOfThisRun();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    RowHeights heights([](std::size_t) { return 20; });
    NaiveHeights naive;
    const auto below = [&random](std::size_t limit) { return static_cast<std::size_t>(random() % (limit + 1)); };
    for (int step = 0; step < 3000; ++step) {
        const std::size_t count = naive.heights.size();
        if (count == 0 || step % 10 == 0) {
            const std::size_t next = step % 100 == 0 ? below(3000) : count + below(40);
            const std::size_t kept = step % 30 == 0 ? below(std::min(count, next)) : std::min(count, next);
            heights.resize(next, kept);
            naive.resize(next, kept, 20);
        } else {
            const std::size_t row = below(count - 1);
            const int height = 1 + static_cast<int>(below(500));
            heights.setMeasured(row, height);
            naive.heights[row] = height;
            naive.measured[row] = true;
        }
        ASSERT_EQ(heights.count(), naive.heights.size());
        ASSERT_EQ(heights.total(), naive.top(naive.heights.size()));
        if (naive.heights.empty()) continue;
        const std::size_t row = below(naive.heights.size() - 1);
        ASSERT_EQ(heights.isMeasured(row), naive.measured[row]);
        ASSERT_EQ(heights.top(row), naive.top(row));
        ASSERT_EQ(heights.height(row), naive.heights[row]);
        const auto y = static_cast<std::int64_t>(below(static_cast<std::size_t>(heights.total()) + 50));
        ASSERT_EQ(heights.rowAt(y), naive.rowAt(y));
    }
}

TEST(RowHeightsTest, WithAnyEstimatesRowsStandOneBehindTheOther) {
    const unsigned seed = seedOfThisRun();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    RowHeights heights([](std::size_t row) { return 1 + static_cast<int>(row * 7919 % 97); });
    heights.resize(5000, 0);
    for (int step = 0; step < 2000; ++step) {
        const auto place = static_cast<std::int64_t>(random() % 300000);
        const std::size_t row = heights.rowAt(place);
        ASSERT_LE(heights.top(row), place);
        if (row + 1 < heights.count()) {
            ASSERT_GT(heights.top(row) + heights.height(row), place);
            ASSERT_EQ(heights.top(row) + heights.height(row), heights.top(row + 1));
        }
        if (step % 3 == 0) heights.setMeasured(row, 1 + static_cast<int>(random() % 400));
        if (step % 50 == 0) heights.resize(heights.count() + random() % 300, heights.count());
    }
    EXPECT_EQ(heights.top(heights.count()), heights.total());
}

TEST(RowHeightsTest, OpeningALongListAsksForFewRowsAndOneMoreForOne) {
    std::size_t asked = 0;
    RowHeights heights([&asked](std::size_t) { return ++asked, 20; });
    heights.resize(100000, 0);
    EXPECT_LT(asked, 4000U);
    asked = 0;
    heights.resize(100001, 100000);
    EXPECT_EQ(asked, 1U);
    EXPECT_EQ(heights.total(), 20 * 100001);
}

TEST(RowHeightsTest, PlacesBeyondTheListBelongToItsFirstAndLastRow) {
    RowHeights heights([](std::size_t) { return 10; });
    heights.resize(600, 0);
    EXPECT_EQ(heights.rowAt(-5), 0U);
    EXPECT_EQ(heights.rowAt(6000), 599U);
    EXPECT_EQ(heights.rowAt(1'000'000), 599U);
}
