#include "StateKit/Printed.h"

#include "StateKit/SharedList.h"
#include "StateKit/SharedMap.h"

#include <limits>
#include <vector>

#include <gtest/gtest.h>

namespace Zoo {

enum class Diet { plants = 3, meat };

struct Animal {
    std::string name;
    std::optional<int> legs;
    bool isTame = false;

    static constexpr auto fields =
        std::tuple{Field{"name", &Animal::name}, Field{"legs", &Animal::legs}, Field{"isTame", &Animal::isTame, false}};
};

struct Cage {
    std::vector<Animal> animals;
    SharedMap<std::string, double> prices;
    Date built;

    static constexpr auto fields =
        std::tuple{Field{"animals", &Cage::animals}, Field{"prices", &Cage::prices}, Field{"built", &Cage::built}};
};

struct Secret {
    std::string text = "hidden";

    static constexpr auto fields = std::tuple{Field{"text", &Secret::text}};
};
void appendPrinted(std::string& out, const Secret&) { out += "Secret(…)"; }

template <class Type>
struct Box {};

}  // namespace Zoo

namespace {

TEST(PrintedTest, ARecordShowsItsFieldsByName) {
    EXPECT_EQ(printed(Zoo::Animal{"Leo", 4, false}), R"(Animal(name: "Leo", legs: 4, isTame: false))");
}

TEST(PrintedTest, RecordsListsAndMapsNest) {
    Zoo::Cage cage{{{"Leo", 4, false}, {"", {}, true}}, {{"adult", 12.5}, {"child", 6}}, {-1.5}};
    EXPECT_EQ(
        printed(cage),
        "Cage(animals: [Animal(name: \"Leo\", legs: 4, isTame: false), Animal(name: \"\", legs: nil, isTame: true)], "
        "prices: [\"adult\": 12.5, \"child\": 6], built: -1.5)");
    EXPECT_EQ(printed(Zoo::Cage{}), "Cage(animals: [], prices: [:], built: 0)");
}

TEST(PrintedTest, AnOptionalIsItsValueOrNil) {
    EXPECT_EQ(printed(std::optional<int>()), "nil");
    EXPECT_EQ(printed(std::optional(5)), "5");
    EXPECT_EQ(printed(std::optional<std::string>("nil")), "\"nil\"");
}

TEST(PrintedTest, TextsAreQuotedOnOneLineWithoutControlCharacters) {
    EXPECT_EQ(printed(std::string("a \"b\" \\ \n\r\t é😀")), R"("a \"b\" \\ \n\r\t é😀")");
    EXPECT_EQ(printed(std::string("\x1B[2J\x07\x7F") + '\0'), R"("\u{1B}[2J\u{7}\u{7F}\u{0}")");
    EXPECT_EQ(printed(std::string()), "\"\"");
    EXPECT_EQ(printed("literal"), "\"literal\"");
    EXPECT_EQ(printed(std::string_view("view")), "\"view\"");
}

TEST(PrintedTest, NumbersBooleansDatesAndEnumerations) {
    EXPECT_EQ(printed(true), "true");
    EXPECT_EQ(printed(-5), "-5");
    EXPECT_EQ(printed(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
    EXPECT_EQ(printed(0.1), "0.1");
    EXPECT_EQ(printed(1e300), "1e+300");
    EXPECT_EQ(printed(Date{5.25}), "5.25");
    EXPECT_EQ(printed(Zoo::Diet::meat), "4");
}

TEST(PrintedTest, ATypeMayPrintItself) {
    EXPECT_EQ(printed(Zoo::Secret{}), "Secret(…)");
    EXPECT_EQ(printed(std::vector{Zoo::Secret{}, Zoo::Secret{}}), "[Secret(…), Secret(…)]");
}

TEST(PlainTypeNameTest, LeavesOutNamespacesAndArguments) {
    EXPECT_EQ(plainTypeName<Zoo::Animal>(), "Animal");
    EXPECT_EQ(plainTypeName<Zoo::Box<Zoo::Box<Zoo::Animal>>>(), "Box");
    EXPECT_EQ((plainTypeName<SharedMap<std::string, Zoo::Animal>>()), "SharedMap");
    EXPECT_EQ(plainTypeName<std::optional<Zoo::Animal>>(), "Animal");
    EXPECT_EQ(plainTypeName<std::string>(), "String");
    EXPECT_EQ(plainTypeName<int>(), "int");
}

namespace Inner {
struct Hidden {};
}  // namespace Inner

template <class Type>
auto local() {
    struct Local {};
    return Local();
}

TEST(PlainTypeNameTest, OfWhatHasNoNameOutside) {
    EXPECT_EQ(plainTypeName<Inner::Hidden>(), "Hidden");
    EXPECT_EQ(plainTypeName<decltype(local<Zoo::Animal>())>(), "Local");
}

}  // namespace
