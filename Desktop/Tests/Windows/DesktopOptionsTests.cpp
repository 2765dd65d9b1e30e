#include "DesktopKit/DesktopOptions.h"

#include "VimbleKit/Arguments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

namespace {

TEST(DesktopOptionsTest, WithoutArgumentsNothingIsChosen) {
    const DesktopOptions options = DesktopOptions::parse({});
    EXPECT_FALSE(options.dataDir);
    EXPECT_FALSE(options.secretFile);
    EXPECT_FALSE(options.server);
    EXPECT_THAT(options.urls, IsEmpty());
    EXPECT_FALSE(options.wantsHelp || options.wantsVersion);
}

TEST(DesktopOptionsTest, AValueStandsBehindItsOptionOrBehindAnEqualsSign) {
    const DesktopOptions options =
        DesktopOptions::parse({"--data-dir", "/a b", "--secret-file=/c", "--server", "localhost", "--server=x=y"});
    EXPECT_EQ(options.dataDir, "/a b");
    EXPECT_EQ(options.secretFile, "/c");
    EXPECT_EQ(options.server, "x=y");
}

TEST(DesktopOptionsTest, LinksOfTheProgramsSchemeAreKept) {
    EXPECT_THAT(DesktopOptions::parse({"vimble://a", "vimble:b"}).urls, ElementsAre("vimble://a", "vimble:b"));
}

TEST(DesktopOptionsTest, WhatIsNeitherOptionNorLinkIsRefused) {
    const auto parse = [](std::string_view argument) {
        return [argument] { static_cast<void>(DesktopOptions::parse({argument})); };
    };
    EXPECT_THAT(parse("https://a"), ThrowsMessage<ArgumentsError>(HasSubstr("no option and no \"vimble:\" link")));
    EXPECT_THAT(parse("--colour"), ThrowsMessage<ArgumentsError>(HasSubstr("there is no option --colour")));
    EXPECT_THAT(parse("--data-dir"), ThrowsMessage<ArgumentsError>("--data-dir needs a value"));
    EXPECT_THAT(parse("--secret-file="), ThrowsMessage<ArgumentsError>("--secret-file needs a value"));
    EXPECT_THAT(parse("--help=yes"), ThrowsMessage<ArgumentsError>("--help takes no value"));
    EXPECT_THAT(parse("a\nb"), ThrowsMessage<ArgumentsError>(HasSubstr("a\\nb is no option")));
}

TEST(DesktopOptionsTest, TheHelpNamesEveryOption) {
    for (const char* option : {"--server", "--data-dir", "--secret-file", "--help", "--version"})
        EXPECT_THAT(std::string(DesktopOptions::help()), HasSubstr(option));
}

}  // namespace
