#include "TerminalKit/InputLines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

struct Fed {
    std::vector<std::string> lines;
    std::vector<std::string> refusals;
    InputLines input{{.line = [this](std::string line) { lines.push_back(std::move(line)); },
                      .refused = [this](std::string_view reason) { refusals.emplace_back(reason); }}};
};

}  // namespace

TEST(InputLinesTest, LinesEndInALineFeedWithOrWithoutACarriageReturn) {
    Fed fed;
    fed.input.feed("one\ntwo\r\n\nthree\r\r\n");
    EXPECT_THAT(fed.lines, ElementsAre("one", "two", "", "three\r"));
}

TEST(InputLinesTest, ALineMayComeByteByByte) {
    Fed fed;
    for (const char c : std::string("é\r\n€\n")) fed.input.feed({&c, 1});
    EXPECT_THAT(fed.lines, ElementsAre("é", "€"));
    EXPECT_THAT(fed.refusals, IsEmpty());
}

TEST(InputLinesTest, ALastLineWithoutAnEndIsALineToo) {
    Fed fed;
    fed.input.feed("one\ntwo");
    EXPECT_THAT(fed.lines, ElementsAre("one"));
    fed.input.end();
    EXPECT_THAT(fed.lines, ElementsAre("one", "two"));
    fed.input.end();
    EXPECT_THAT(fed.lines, SizeIs(2));
}

TEST(InputLinesTest, ALineOfExactlyTheLimitIsTakenAndALongerOneIsRefusedWhole) {
    const std::string longest(InputLines::maximumBytes, 'x');
    Fed fed;
    fed.input.feed(longest + "\r\n");
    EXPECT_THAT(fed.lines, ElementsAre(longest));
    fed.input.feed(longest + "y\nnext\n");
    EXPECT_THAT(fed.lines, ElementsAre(longest, "next"));
    EXPECT_THAT(fed.refusals, ElementsAre("a line is longer than 64 KiB"));
    fed.input.feed(longest);
    fed.input.feed(longest);
    fed.input.feed("\nlast");
    fed.input.end();
    EXPECT_THAT(fed.lines, ElementsAre(longest, "next", "last"));
    EXPECT_THAT(fed.refusals, SizeIs(2));
}

TEST(InputLinesTest, AnOverlongLastLineIsRefusedAtTheEnd) {
    Fed fed;
    fed.input.feed(std::string(InputLines::maximumBytes * 3, 'x'));
    EXPECT_THAT(fed.refusals, IsEmpty());
    fed.input.end();
    EXPECT_THAT(fed.refusals, SizeIs(1));
    EXPECT_THAT(fed.lines, IsEmpty());
}

TEST(InputLinesTest, WhatIsNotUtf8IsRefused) {
    for (const char* bad : {"\xff", "a\xc3", "\xed\xa0\x80", "\xc0\x80", "\xf5\x80\x80\x80"}) {
        Fed fed;
        fed.input.feed(std::string(bad) + "\ngood\n");
        EXPECT_THAT(fed.refusals, ElementsAre("a line is not UTF-8"));
        EXPECT_THAT(fed.lines, ElementsAre("good"));
    }
}
