#include "PlatformCore/ProgramActivity.h"

#include <QCoreApplication>
#include <QTimer>

#include <gtest/gtest.h>

namespace {

void runAndQuit() {
    QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
    QCoreApplication::exec();
}

TEST(ProgramActivityTest, TellsOfTheEndOnceAndOfNothingElse) {
    int ended = 0;
    ProgramActivity activity;
    activity.observe({[] { FAIL(); }, [] { FAIL(); }, [&] { ++ended; }});
    EXPECT_EQ(ended, 0);
    runAndQuit();
    EXPECT_EQ(ended, 1);
}

TEST(ProgramActivityTest, ItsDeathEndsTheWatchAndHandlersMayBeEmpty) {
    {
        ProgramActivity activity;
        activity.observe({{}, {}, [] { FAIL() << "told after its death"; }});
        ProgramActivity silent;
        silent.observe({});
        activity.observe({});
    }
    runAndQuit();
}

}  // namespace
