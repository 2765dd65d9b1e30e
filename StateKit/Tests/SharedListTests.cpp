#include "StateKit/SharedList.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

template <class Element>
std::vector<Element> elementsOf(const SharedList<Element>& list) {
    return std::vector<Element>(list.begin(), list.end());
}

SharedList<int> listOf(int count) {
    SharedList<int> list;
    for (int i = 0; i < count; ++i) list.push_back(i);
    return list;
}

/// Counts how often two objects of this type are compared.
struct Counted {
    int number = 0;
    static inline int comparisons = 0;

    bool operator==(const Counted& other) const {
        ++comparisons;
        return number == other.number;
    }
};

TEST(SharedListTest, ANewListIsEmpty) {
    const SharedList<int> list;
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(list.size(), 0u);
    EXPECT_TRUE(list.begin() == list.end());
    EXPECT_EQ(list, SharedList<int>());
}

TEST(SharedListTest, HoldsWhatWasAppendedInItsOrder) {
    const SharedList<std::string> list = {"a", "b", "c"};
    EXPECT_EQ(list.size(), 3u);
    EXPECT_EQ(list[0], "a");
    EXPECT_EQ(list.back(), "c");
    EXPECT_EQ(elementsOf(list), (std::vector<std::string>{"a", "b", "c"}));
}

TEST(SharedListTest, ACopyDoesNotSeeWhatIsAppendedToTheOther) {
    SharedList<int> list = {1};
    const SharedList<int> copy = list;
    list.push_back(2);
    EXPECT_EQ(elementsOf(copy), (std::vector{1}));
    EXPECT_EQ(elementsOf(list), (std::vector{1, 2}));
}

TEST(SharedListTest, TwoCopiesThatGoOnDifferentlyStayApart) {
    SharedList<int> list = {1, 2};
    SharedList<int> copy = list;
    copy.push_back(3);
    list.push_back(4);
    copy.push_back(5);
    list.push_back(6);
    EXPECT_EQ(elementsOf(copy), (std::vector{1, 2, 3, 5}));
    EXPECT_EQ(elementsOf(list), (std::vector{1, 2, 4, 6}));
}

TEST(SharedListTest, ACopyOfAnEmptyListGoesItsOwnWay) {
    SharedList<int> list;
    SharedList<int> copy = list;
    list.push_back(1);
    copy.push_back(2);
    EXPECT_EQ(elementsOf(list), (std::vector{1}));
    EXPECT_EQ(elementsOf(copy), (std::vector{2}));
}

TEST(SharedListTest, GoesOnBehindEveryLengthAroundTheEndOfAChunk) {
    for (const int length : {0, 1, 255, 256, 257, 511, 512, 513}) {
        SCOPED_TRACE(length);
        const SharedList<int> base = listOf(length);
        SharedList<int> first = base, second = base, third = base;
        for (int i = 0; i < 600; ++i) first.push_back(1000 + i);
        for (int i = 0; i < 300; ++i) second.push_back(2000 + i);
        third.push_back(3000);
        EXPECT_EQ(base, listOf(length));
        std::vector<int> expected = elementsOf(base);
        expected.push_back(3000);
        EXPECT_EQ(elementsOf(third), expected);
        expected.back() = 2000;
        for (int i = 1; i < 300; ++i) expected.push_back(2000 + i);
        EXPECT_EQ(elementsOf(second), expected);
        EXPECT_EQ(first.size(), static_cast<std::size_t>(length) + 600);
        EXPECT_EQ(first[static_cast<std::size_t>(length)], 1000);
        EXPECT_EQ(first.back(), 1599);
    }
}

TEST(SharedListTest, ElementsStayWhereTheyAreWhileTheListGrows) {
    SharedList<std::string> list = {"first"};
    const std::string* first = &list[0];
    SharedList<std::string> other = list;
    for (int i = 0; i < 2000; ++i) list.push_back("x");
    EXPECT_EQ(&list[0], first);
    EXPECT_EQ(&other[0], first);
    EXPECT_EQ(*first, "first");
}

TEST(SharedListTest, ASharedElementIsTheListsOwnAndOutlivesIt) {
    std::shared_ptr<const std::string> first, last;
    {
        SharedList<std::string> list;
        for (int i = 0; i < 300; ++i) list.push_back("element number " + std::to_string(i));
        first = list.shared(0);
        last = list.shared(299);
        EXPECT_EQ(first.get(), &list[0]);
        EXPECT_EQ(last.get(), &list[299]);
        for (int i = 0; i < 300; ++i) list.push_back("more");
        EXPECT_EQ(last.get(), &list[299]);
    }
    EXPECT_EQ(*first, "element number 0");
    EXPECT_EQ(*last, "element number 299");
}

TEST(SharedListTest, ASharedElementIsTheSameOneInACopyThatShares) {
    SharedList<std::string> list = {"a", "b"};
    const SharedList<std::string> copy = list;
    list.push_back("c");
    EXPECT_EQ(list.shared(1), copy.shared(1));
}

TEST(SharedListTest, APrefixSharesItsElementsAndGoesItsOwnWay) {
    for (const int length : {0, 1, 255, 256, 257, 599, 600, 900}) {
        SCOPED_TRACE(length);
        const SharedList<int> list = listOf(600);
        SharedList<int> prefix = list.prefix(static_cast<std::size_t>(length));
        const int expected = std::min(length, 600);
        EXPECT_EQ(prefix, listOf(expected));
        EXPECT_EQ(prefix.sharedBeginning(list), static_cast<std::size_t>(expected));
        prefix.push_back(-1);
        EXPECT_EQ(prefix.back(), -1);
        EXPECT_EQ(prefix.size(), static_cast<std::size_t>(expected) + 1);
        EXPECT_EQ(list, listOf(600));
    }
    EXPECT_TRUE(SharedList<int>().prefix(3).empty());
}

TEST(SharedListTest, AppendingAnElementOfTheListItselfIsSafe) {
    SharedList<std::string> list = {"long enough to lie on the heap, surely"};
    for (int i = 0; i < 600; ++i) list.push_back(list[0]);
    EXPECT_EQ(list.back(), list[0]);
}

TEST(SharedListTest, ALiveCopyOutlivesTheListThatItCameFrom) {
    SharedList<std::string> copy;
    {
        SharedList<std::string> list = {"a"};
        copy = list;
        list.push_back("b");
    }
    copy.push_back("c");
    EXPECT_EQ(elementsOf(copy), (std::vector<std::string>{"a", "c"}));
}

TEST(SharedListTest, ComparingWithAnUnchangedCopyLooksAtNoElement) {
    SharedList<Counted> list;
    for (int i = 0; i < 1000; ++i) list.push_back({i});
    const SharedList<Counted> copy = list;
    Counted::comparisons = 0;
    EXPECT_TRUE(list == copy);
    EXPECT_EQ(Counted::comparisons, 0);
}

TEST(SharedListTest, ComparingListsOfDifferentLengthLooksAtNoElement) {
    SharedList<Counted> list = {{1}, {2}};
    const SharedList<Counted> copy = list;
    list.push_back({3});
    Counted::comparisons = 0;
    EXPECT_FALSE(list == copy);
    EXPECT_EQ(Counted::comparisons, 0);
}

TEST(SharedListTest, ComparingSkipsTheChunksThatTwoCopiesShare) {
    SharedList<Counted> list;
    for (int i = 0; i < 1000; ++i) list.push_back({i});
    SharedList<Counted> copy = list;
    list.push_back({1});
    copy.push_back({1});
    Counted::comparisons = 0;
    EXPECT_TRUE(list == copy);
    EXPECT_LE(Counted::comparisons, 256);
    EXPECT_GT(Counted::comparisons, 0);
}

TEST(SharedListTest, ListsWithTheSameContentsAreEqualHoweverTheyWereMade) {
    EXPECT_EQ(listOf(300), listOf(300));
    SharedList<int> other = listOf(299);
    other.push_back(-1);
    EXPECT_FALSE(other == listOf(300));
}

TEST(SharedListTest, TheSharedBeginningOfAListAndItsSuccessorIsTheWholeList) {
    const SharedList<int> before = listOf(700);
    SharedList<int> after = before;
    for (int i = 0; i < 500; ++i) after.push_back(i);
    EXPECT_EQ(after.sharedBeginning(before), 700u);
    EXPECT_EQ(before.sharedBeginning(after), 700u);
    EXPECT_EQ(before.sharedBeginning(before), 700u);
}

TEST(SharedListTest, TheSharedBeginningNeverCountsWhatDiffers) {
    SharedList<int> a = listOf(700), b = a;
    a.push_back(1);
    b.push_back(2);
    EXPECT_LE(a.sharedBeginning(b), 700u);
    EXPECT_GE(a.sharedBeginning(b), 512u);
    EXPECT_EQ(listOf(3).sharedBeginning(listOf(3)), 0u);
    EXPECT_EQ(listOf(3).sharedBeginning({}), 0u);
}

TEST(SharedListTest, IteratorsReachEveryElementFromEveryOther) {
    const SharedList<int> list = listOf(600);
    EXPECT_EQ(list.end() - list.begin(), 600);
    EXPECT_EQ(*(list.begin() + 300), 300);
    EXPECT_EQ(*(300 + list.begin()), 300);
    EXPECT_EQ(*(list.end() - 1), 599);
    EXPECT_EQ(list.begin()[599], 599);
    EXPECT_TRUE(list.begin() < list.end());
    auto it = list.begin();
    EXPECT_EQ(*it++, 0);
    EXPECT_EQ(*it--, 1);
    EXPECT_EQ(*it, 0);
    EXPECT_EQ(*std::lower_bound(list.begin(), list.end(), 256), 256);
    EXPECT_EQ(
        std::vector<int>(std::make_reverse_iterator(list.end()), std::make_reverse_iterator(list.begin())).front(),
        599);
}

TEST(SharedListTest, ManyLiveCopiesBehaveLikeVectors) {
    const unsigned seed = 4711;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };

    std::vector<std::pair<SharedList<std::string>, std::vector<std::string>>> lives(1);
    for (int step = 0; step < 4000; ++step) {
        auto& live = lives[below(lives.size())];
        switch (below(10)) {
            case 0: {
                const auto copy = live;
                if (lives.size() < 40)
                    lives.push_back(copy);
                else
                    lives[below(lives.size())] = copy;
                break;
            }
            case 1:
                if (lives.size() > 1) lives.erase(lives.begin() + static_cast<std::ptrdiff_t>(below(lives.size())));
                break;
            case 2: {
                const auto& other = lives[below(lives.size())];
                ASSERT_EQ(live.first == other.first, live.second == other.second) << "step " << step;
                const std::size_t shared = live.first.sharedBeginning(other.first);
                ASSERT_LE(shared, std::min(live.second.size(), other.second.size()));
                for (std::size_t i = 0; i < shared; ++i) ASSERT_EQ(live.second[i], other.second[i]) << "step " << step;
                break;
            }
            default:
                for (std::size_t count = below(40); count > 0; --count) {
                    // Only two different elements, so that lists that grew apart are sometimes equal.
                    const std::string element = std::to_string(below(2));
                    live.first.push_back(element);
                    live.second.push_back(element);
                }
        }
        if (step % 50 != 0) continue;
        for (const auto& [list, vector] : lives) ASSERT_EQ(elementsOf(list), vector) << "step " << step;
    }
    for (const auto& [list, vector] : lives) ASSERT_EQ(elementsOf(list), vector);
}

}  // namespace
