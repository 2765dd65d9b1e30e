#include "DesktopKit/ConsoleVC.h"
#include "DesktopKit/ConsoleWindow.h"
#include "DesktopViews/ConsoleInputField.h"
#include "DesktopViews/ConsoleOutputView.h"
#include "TestSupport/Session.h"

#include <gtest/gtest.h>

#include <QPointer>

namespace {

class ConsoleWindowTest : public testing::Test {
protected:
    ConsoleWindowTest() : window(session.start(), "1.2", [] { return Date{}; }) {}

    Session session;
    ConsoleWindow window;
};

}  // namespace

TEST_F(ConsoleWindowTest, HasItsTitleSizesAndIdentifier) {
    EXPECT_EQ(window.windowTitle(), "Console");
    EXPECT_EQ(window.size(), QSize(640, 480));
    EXPECT_EQ(window.minimumSize(), QSize(200, 100));
    EXPECT_STREQ(ConsoleWindow::identifier, "ConsoleWindowID");
}

TEST_F(ConsoleWindowTest, IsMadeHiddenAndWritesFromThen) {
    EXPECT_FALSE(window.isVisible());
    EXPECT_EQ(window.consoleVC().output().toPlainText(), "Vimble 1.2\nSession Starting Up");
}

TEST_F(ConsoleWindowTest, ClosingOnlyHidesItAndTheLogGoesOn) {
    QPointer<ConsoleWindow> alive(&window);
    window.show();
    window.close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    ASSERT_TRUE(alive);
    EXPECT_FALSE(window.isVisible());

    session.kit->setEndpoint(session.endpoint);
    session.kit->connect();
    session.loop.run();
    session.server().accept({listed(1)});
    session.loop.run();
    window.show();
    EXPECT_TRUE(window.consoleVC().output().toPlainText().contains("\nSession Online\n"));
}

TEST_F(ConsoleWindowTest, ShownItGivesTheFocusToTheField) {
    window.show();
    EXPECT_EQ(window.focusWidget(), &window.consoleVC().input().textField());
}

TEST_F(ConsoleWindowTest, AtItsSmallestTheLineOfCommandStaysWhole) {
    window.show();
    window.resize(window.minimumSize());
    EXPECT_EQ(window.size(), QSize(200, 100));
    EXPECT_EQ(window.consoleVC().input().height(), 40);
    EXPECT_GT(window.consoleVC().input().textField().width(), 40);
}
