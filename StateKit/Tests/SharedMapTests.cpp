#include "StateKit/SharedMap.h"

#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

template <class Key, class Value>
std::vector<std::pair<Key, Value>> entriesOf(const SharedMap<Key, Value>& map) {
    return std::vector<std::pair<Key, Value>>(map.begin(), map.end());
}
template <class Key, class Value>
std::vector<std::pair<Key, Value>> entriesOf(const std::map<Key, Value>& map) {
    return std::vector<std::pair<Key, Value>>(map.begin(), map.end());
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

TEST(SharedMapTest, ANewMapIsEmpty) {
    const SharedMap<std::string, int> map;
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(map.size(), 0u);
    EXPECT_TRUE(map.begin() == map.end());
    EXPECT_EQ(map.find("a"), nullptr);
    EXPECT_FALSE(map.contains("a"));
}

TEST(SharedMapTest, EntriesStandInTheOrderOfTheirKeys) {
    const SharedMap<std::string, int> map = {{"b", 2}, {"a", 1}, {"c", 3}};
    EXPECT_EQ(entriesOf(map), (std::vector<std::pair<std::string, int>>{{"a", 1}, {"b", 2}, {"c", 3}}));
    EXPECT_EQ(*map.find("b"), 2);
    EXPECT_EQ(*map.find(std::string_view("c")), 3);
}

TEST(SharedMapTest, ACopyDoesNotSeeTheOthersChanges) {
    SharedMap<std::string, int> map = {{"a", 1}};
    const SharedMap<std::string, int> copy = map;
    map.set("a", 2);
    map.set("b", 3);
    EXPECT_EQ(entriesOf(copy), (std::vector<std::pair<std::string, int>>{{"a", 1}}));
    map.erase("a");
    EXPECT_EQ(*copy.find("a"), 1);
    EXPECT_EQ(entriesOf(map), (std::vector<std::pair<std::string, int>>{{"b", 3}}));
}

TEST(SharedMapTest, UpdateStartsFromAnEmptyValueWhereThereIsNone) {
    SharedMap<std::string, int> map;
    map.update("a", [](int& value) { value += 5; });
    map.update("a", [](int& value) { value += 5; });
    EXPECT_EQ(*map.find("a"), 10);
}

TEST(SharedMapTest, UpdateExistingLeavesAnUnknownKeyAlone) {
    SharedMap<std::string, int> map = {{"a", 1}};
    EXPECT_FALSE(map.updateExisting("b", [](int& value) { value = 9; }));
    EXPECT_TRUE(map.updateExisting("a", [](int& value) { value = 9; }));
    EXPECT_EQ(entriesOf(map), (std::vector<std::pair<std::string, int>>{{"a", 9}}));
}

TEST(SharedMapTest, ErasingTellsWhetherTheKeyWasThere) {
    SharedMap<std::string, int> map = {{"a", 1}};
    EXPECT_FALSE(map.erase("b"));
    EXPECT_TRUE(map.erase("a"));
    EXPECT_FALSE(map.erase("a"));
    EXPECT_TRUE(map.empty());
    EXPECT_TRUE(map.begin() == map.end());
    map.set("c", 1);
    EXPECT_EQ(map.size(), 1u);
}

TEST(SharedMapTest, AKeyBeforeAllOthersGoesToTheFrontOfManyChunks) {
    SharedMap<int, int> map;
    for (int i = 1000; i > 0; --i) map.set(i, i);
    EXPECT_EQ(map.size(), 1000u);
    EXPECT_EQ(map.begin()->first, 1);
    EXPECT_EQ(map.find(0), nullptr);
    EXPECT_FALSE(map.erase(0));
    int expected = 1;
    for (const auto& [key, value] : map) {
        EXPECT_EQ(key, expected++);
        EXPECT_EQ(key, value);
    }
}

TEST(SharedMapTest, AReferenceHoldsWhileCopiesChange) {
    SharedMap<std::string, std::string> map = {{"a", "a value that lies on the heap, surely"}};
    const std::string& value = *map.find("a");
    SharedMap<std::string, std::string> copy = map;
    for (int i = 0; i < 200; ++i) copy.set(std::to_string(i), "x");
    copy.set("a", "other");
    EXPECT_EQ(value, "a value that lies on the heap, surely");
    EXPECT_EQ(&value, map.find("a"));
}

TEST(SharedMapTest, AValueOfTheMapItselfMayBeSetAgain) {
    SharedMap<std::string, std::string> map = {{"a", "a value that lies on the heap, surely"}};
    map.set("a", *map.find("a"));
    map.set(map.begin()->first, "other");
    EXPECT_EQ(*map.find("a"), "other");
}

TEST(SharedMapTest, ComparingWithAnUnchangedCopyLooksAtNoEntry) {
    SharedMap<int, Counted> map;
    for (int i = 0; i < 500; ++i) map.set(i, {i});
    const SharedMap<int, Counted> copy = map;
    Counted::comparisons = 0;
    EXPECT_TRUE(map == copy);
    EXPECT_EQ(Counted::comparisons, 0);
}

TEST(SharedMapTest, ComparingAfterOneChangeLooksAtOneEntry) {
    SharedMap<int, Counted> map;
    for (int i = 0; i < 500; ++i) map.set(i, {i});
    SharedMap<int, Counted> copy = map;
    copy.set(250, {250});
    Counted::comparisons = 0;
    EXPECT_TRUE(map == copy);
    EXPECT_EQ(Counted::comparisons, 1);
    copy.set(250, {-1});
    EXPECT_FALSE(map == copy);
}

TEST(SharedMapTest, MapsWithTheSameEntriesAreEqualHoweverTheirChunksFell) {
    SharedMap<int, int> rising, falling;
    for (int i = 0; i < 300; ++i) rising.set(i, i);
    for (int i = 299; i >= 0; --i) falling.set(i, i);
    EXPECT_TRUE(rising == falling);
    falling.set(299, 0);
    EXPECT_FALSE(rising == falling);
    SharedMap<int, int> fewer = rising;
    fewer.erase(299);
    EXPECT_FALSE(rising == fewer);
    EXPECT_FALSE((rising == SharedMap<int, int>()));
    fewer.set(300, 299);  // as many entries, one under another key
    EXPECT_FALSE(rising == fewer);
}

TEST(SharedMapTest, AnEmptiedMapEqualsANewOne) {
    SharedMap<int, int> map = {{1, 1}};
    map.erase(1);
    EXPECT_TRUE((map == SharedMap<int, int>()));
}

TEST(SharedMapTest, ManyLiveCopiesBehaveLikeMaps) {
    const unsigned seed = 815;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto below = [&](std::size_t limit) { return static_cast<std::size_t>(random() % limit); };

    std::vector<std::pair<SharedMap<int, int>, std::map<int, int>>> lives(1);
    lives.reserve(30);  // so that `live` stays valid when another map is added
    for (int step = 0; step < 20'000; ++step) {
        auto& live = lives[below(lives.size())];
        const int key = static_cast<int>(below(300));
        const int value = static_cast<int>(below(2));
        switch (below(12)) {
            case 0: {
                const auto copy = live;
                if (lives.size() < 30)
                    lives.push_back(copy);
                else
                    lives[below(lives.size())] = copy;
                break;
            }
            case 1:
            case 2:
            case 3: ASSERT_EQ(live.first.erase(key), live.second.erase(key) == 1) << "step " << step; break;
            case 4:
                live.first.update(key, [](int& number) { ++number; });
                ++live.second[key];
                break;
            case 5: {
                const auto& other = lives[below(lives.size())];
                ASSERT_EQ(live.first == other.first, live.second == other.second) << "step " << step;
                break;
            }
            case 6: {
                const int* found = live.first.find(key);
                const auto expected = live.second.find(key);
                ASSERT_EQ(found != nullptr, expected != live.second.end()) << "step " << step;
                ASSERT_EQ(found ? *found : 0, expected != live.second.end() ? expected->second : 0) << "step " << step;
                break;
            }
            case 7:
                // Now and then, empty the map, which removes its chunks one by one.
                if (below(20) == 0) {
                    for (const auto& entry : live.second) ASSERT_TRUE(live.first.erase(entry.first));
                    live.second.clear();
                }
                break;
            default: live.first.set(key, value); live.second[key] = value;
        }
        ASSERT_EQ(live.first.size(), live.second.size());
        if (step % 100 != 0) continue;
        for (const auto& [map, expected] : lives) ASSERT_EQ(entriesOf(map), entriesOf(expected)) << "step " << step;
    }
    for (const auto& [map, expected] : lives) ASSERT_EQ(entriesOf(map), entriesOf(expected));
}

}  // namespace
