#include "PlatformDesktop/WindowActivity.h"

#include "QtTestSupport/QtWait.h"

#include <QApplication>
#include <QWidget>

#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// The offscreen platform never makes a program inactive that was active, so the tests emit the application's signal
// themselves.
class WindowActivityTest : public ::testing::Test {
protected:
    void SetUp() override {
        window.show();
        window.activateWindow();
        ASSERT_TRUE(turnUntil([&] { return QGuiApplication::applicationState() == Qt::ApplicationActive; }));
    }

    ActivityMonitor::Handlers handlers() {
        return {[this] { told.emplace_back("active"); }, [this] { told.emplace_back("resign"); },
                [this] { told.emplace_back("end"); }};
    }

    static void change(Qt::ApplicationState state) { Q_EMIT qGuiApp->applicationStateChanged(state); }

    QWidget window;
    std::vector<std::string> told;
};

TEST_F(WindowActivityTest, ObservedInFrontItTellsTheWayBackAndTheNextWayForward) {
    WindowActivity activity;
    activity.observe(handlers());
    EXPECT_THAT(told, IsEmpty());
    EXPECT_TRUE(activity.isActive());
    change(Qt::ApplicationInactive);
    EXPECT_THAT(told, ElementsAre("resign"));
    EXPECT_FALSE(activity.isActive());
    change(Qt::ApplicationActive);
    EXPECT_THAT(told, ElementsAre("resign", "active"));
    EXPECT_TRUE(activity.isActive());
}

TEST_F(WindowActivityTest, FromOneWindowToTheNextNothingIsTold) {
    WindowActivity activity;
    activity.observe(handlers());
    QWidget second;
    second.show();
    second.activateWindow();
    ASSERT_TRUE(turnUntil([&] { return second.isActiveWindow(); }));
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(WindowActivityTest, StatesBetweenTheTwoAreNoMoveOfTheirOwn) {
    WindowActivity activity;
    activity.observe(handlers());
    change(Qt::ApplicationActive);
    EXPECT_THAT(told, IsEmpty());
    change(Qt::ApplicationInactive);
    change(Qt::ApplicationHidden);
    change(Qt::ApplicationSuspended);
    change(Qt::ApplicationActive);
    EXPECT_THAT(told, ElementsAre("resign", "active"));
}

TEST_F(WindowActivityTest, TheEndOfTheApplicationIsTold) {
    WindowActivity activity;
    activity.observe(handlers());
    QMetaObject::invokeMethod(
        qApp, [] { QCoreApplication::quit(); }, Qt::QueuedConnection);
    QCoreApplication::exec();
    EXPECT_THAT(told, ElementsAre("end"));
}

TEST_F(WindowActivityTest, DestroyingItEndsTheWatch) {
    auto activity = std::make_unique<WindowActivity>();
    activity->observe(handlers());
    activity.reset();
    change(Qt::ApplicationInactive);
    EXPECT_THAT(told, IsEmpty());
}

}  // namespace
