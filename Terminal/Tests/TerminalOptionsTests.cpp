#include "TerminalKit/TerminalOptions.h"

#include "VimbleKit/Arguments.h"

#include <gtest/gtest.h>

TEST(TerminalOptionsTest, WithoutArgumentsEverythingIsAsUsual) {
    const auto options = TerminalOptions::parse({});
    EXPECT_FALSE(options.dataDir || options.secretFile || options.server);
    EXPECT_FALSE(options.wantsPublicKey || options.isJson || options.isDebug || options.wantsHelp ||
                 options.wantsVersion);
}

TEST(TerminalOptionsTest, EveryOptionIsTaken) {
    const auto options = TerminalOptions::parse(
        {"--data-dir", "d", "--secret-file", "s", "--server", "localhost", "--public-key", "--json", "--debug"});
    EXPECT_EQ(options.dataDir, "d");
    EXPECT_EQ(options.secretFile, "s");
    EXPECT_EQ(options.server, "localhost");
    EXPECT_TRUE(options.wantsPublicKey && options.isJson && options.isDebug);
    EXPECT_TRUE(TerminalOptions::parse({"--help"}).wantsHelp);
    EXPECT_TRUE(TerminalOptions::parse({"-h"}).wantsHelp);
    EXPECT_TRUE(TerminalOptions::parse({"--version"}).wantsVersion);
}

TEST(TerminalOptionsTest, AValueMayStandBehindAnEqualsSignAndTheLastOneCounts) {
    EXPECT_EQ(TerminalOptions::parse({"--server=a.b", "--server=http://c.d/?e=f"}).server, "http://c.d/?e=f");
}

TEST(TerminalOptionsTest, AnEmptyServerIsATextLikeAnyOtherForItsReaderToRefuse) {
    EXPECT_EQ(TerminalOptions::parse({"--server", ""}).server, "");
    EXPECT_EQ(TerminalOptions::parse({"--server="}).server, "");
}

TEST(TerminalOptionsTest, WhatMakesNoSenseIsRefused) {
    EXPECT_THROW(static_cast<void>(TerminalOptions::parse({"--server"})), ArgumentsError);
    EXPECT_THROW(static_cast<void>(TerminalOptions::parse({"--data-dir", ""})), ArgumentsError);
    EXPECT_THROW(static_cast<void>(TerminalOptions::parse({"--data-dir="})), ArgumentsError);
    EXPECT_THROW(static_cast<void>(TerminalOptions::parse({"--json=yes"})), ArgumentsError);
    EXPECT_THROW(static_cast<void>(TerminalOptions::parse({"--servers", "x"})), ArgumentsError);
    EXPECT_THROW(static_cast<void>(TerminalOptions::parse({"localhost"})), ArgumentsError);
}

TEST(TerminalOptionsTest, TheHelpNamesEveryOption) {
    for (const char* option :
         {"--server", "--data-dir", "--secret-file", "--public-key", "--json", "--debug", "--help", "--version"})
        EXPECT_NE(TerminalOptions::help().find(option), std::string_view::npos) << option;
}
