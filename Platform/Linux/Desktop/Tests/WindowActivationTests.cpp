#include "PlatformDesktop/WindowActivation.h"

#include "QtTestSupport/QtWait.h"
#include "TestSupport/EnvironmentVariable.h"

#include <QApplication>
#include <QLabel>
#include <QWidget>

#include <gtest/gtest.h>

namespace {

TEST(WindowActivationTest, TheTokenOfTheEnvironmentIsReadAndStaysThere) {
    const EnvironmentVariable activation("XDG_ACTIVATION_TOKEN", "abc-1");
    const EnvironmentVariable startup("DESKTOP_STARTUP_ID", "host_TIME12");
    const ActivationToken expected{QStringLiteral("abc-1"), QStringLiteral("host_TIME12")};
    EXPECT_EQ(ActivationToken::fromEnvironment(), expected);
    EXPECT_EQ(ActivationToken::fromEnvironment(), expected);
}

TEST(WindowActivationTest, WithoutOneInTheEnvironmentTheTokenIsEmpty) {
    const EnvironmentVariable activation("XDG_ACTIVATION_TOKEN", std::nullopt);
    const EnvironmentVariable startup("DESKTOP_STARTUP_ID", "two words");
    EXPECT_EQ(ActivationToken::fromEnvironment(), ActivationToken());
}

TEST(WindowActivationTest, AHiddenWindowIsShownAndActiveAfterwards) {
    QWidget window;
    QWidget other;
    other.show();
    other.activateWindow();
    ASSERT_TRUE(turnUntil([&] { return other.isActiveWindow(); }));
    bringForward(window, {});
    EXPECT_TRUE(window.isVisible());
    EXPECT_TRUE(turnUntil([&] { return window.isActiveWindow(); }));
}

TEST(WindowActivationTest, AMinimisedWindowComesBackAndAMaximisedOneStaysSo) {
    QWidget window;
    window.showMaximized();
    window.setWindowState(window.windowState() | Qt::WindowMinimized);
    bringForward(window, {});
    EXPECT_FALSE(window.isMinimized());
    EXPECT_TRUE(window.isMaximized());
}

TEST(WindowActivationTest, TheWindowOfAWidgetInsideItComesForward) {
    QWidget window;
    QLabel inside(&window);
    bringForward(inside, {});
    EXPECT_TRUE(window.isVisible());
}

TEST(WindowActivationTest, WhereNobodyTakesTheTokenItIsNotLeftToProgramsThatWeStart) {
    const EnvironmentVariable activation("XDG_ACTIVATION_TOKEN", std::nullopt);
    QWidget window;
    bringForward(window, {QStringLiteral("abc"), {}});
    EXPECT_FALSE(qEnvironmentVariableIsSet("XDG_ACTIVATION_TOKEN"));
}

}  // namespace
