#include "StateKit/Log.h"

#include <string>
#include <vector>

#include "TestSupport/LogLines.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST(LogTest, MessagesGoToTheSinkWithTheirLevelSubsystemAndCategory) {
    LogLines lines;
    const Log log("System", "Category");
    log.debug("a");
    log.info("b");
    log.error("c");
    EXPECT_THAT(lines.take(),
                ElementsAre("debug System/Category: a", "info System/Category: b", "error System/Category: c"));
}

TEST(LogTest, WithoutASinkErrorsGoToStandardErrorAndTheRestNowhere) {
    const auto before = Log::setSink(nullptr);
    testing::internal::CaptureStderr();
    const Log log("System", "Category");
    log.debug("a");
    log.info("b");
    log.error("c");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "System/Category: c\n");
    Log::setSink(before);
}

std::vector<std::string> printedLines;

TEST(DebugLinesTest, ALineThatNobodyReadsIsNotBuilt) {
    DebugLines::setPrint(nullptr);
    DebugLines::print([]() -> std::string {
        ADD_FAILURE();
        return "";
    });
    EXPECT_THAT(printedLines, IsEmpty());
}

TEST(DebugLinesTest, ALineGoesToWhatWasSet) {
    const auto before = DebugLines::setPrint([](std::string_view line) { printedLines.emplace_back(line); });
    DebugLines::print([] { return std::string("a line"); });
    DebugLines::setPrint(before);
    EXPECT_THAT(printedLines, ElementsAre("a line"));
}

}  // namespace
