#include "RosterFixture.h"

#include "DesktopKit/AuthVC.h"

#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>

namespace {

class RosterWindowTest : public testing::Test {
protected:
    void open() {
        window = std::make_unique<RosterWindow>(*session.kit);
        window->setDelegate(&opened);
    }
    QMessageBox* sheet() const {
        for (auto* box : window->findChildren<QMessageBox*>())
            if (box->isVisible()) return box;
        return nullptr;
    }
    /// The server refuses the user's key.
    void refuse() {
        session.kit->setEndpoint(session.endpoint);
        session.kit->connect();
        session.loop.run();
        session.server().link->ready();
        session.server().greet();
        session.server().refuse();
        session.loop.run();
    }
    static void settle() {
        QApplication::processEvents();
        QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    Session session;
    OpenedConversations opened;
    std::unique_ptr<RosterWindow> window;
};

TEST(RosterWindowStateTest, WithoutAStateItIsBeingSetUp) {
    EXPECT_EQ(RosterWindow::LocalState(nullptr).connection, Connection::setup);
    State state;
    state.connection = Connection::offline;
    EXPECT_EQ(RosterWindow::LocalState(&state).connection, Connection::offline);
}

TEST_F(RosterWindowTest, HasItsTitleSizesAndNames) {
    session.start();
    open();
    EXPECT_EQ(window->windowTitle(), QStringLiteral("People"));
    EXPECT_EQ(window->size(), QSize(200, 400));
    EXPECT_EQ(window->minimumSize(), QSize(100, 90));
    EXPECT_EQ(window->objectName(), QStringLiteral("RosterWindowID"));
    EXPECT_STREQ(RosterWindow::restorationIdentifier, "RosterWindowID");
}

TEST_F(RosterWindowTest, BothContentsFitTheSmallestWindow) {
    session.start();
    open();
    window->resize(10, 10);
    window->show();
    settle();
    EXPECT_EQ(window->size(), QSize(100, 90));
    EXPECT_EQ(window->content()->size(), QSize(100, 90));
    session.kit->setEndpoint(session.endpoint);
    session.kit->connect();
    settle();
    EXPECT_EQ(window->size(), QSize(100, 90));
    EXPECT_EQ(window->content()->size(), QSize(100, 90));
}

TEST_F(RosterWindowTest, WithAMenuBarTheContentHasItsSizeOnceAdjusted) {
    session.start();
    open();
    window->menuBar()->addMenu("Menu");
    window->adjustSize();
    window->show();
    settle();
    EXPECT_EQ(window->content()->size(), QSize(200, 400));
}

TEST_F(RosterWindowTest, ShowsTheAccessScreenUntilTheUserHasConnectedAndAfterARefusal) {
    session.start();
    open();
    window->setGeometry(30, 40, 250, 300);
    window->show();
    EXPECT_EQ(window->content(), &window->authVC());
    session.kit->setEndpoint(session.endpoint);
    session.kit->connect();
    EXPECT_EQ(window->content(), &window->rosterVC());
    session.loop.run();
    session.server().accept({listed(1)});
    EXPECT_EQ(window->content(), &window->rosterVC());
    EXPECT_EQ(window->geometry(), QRect(30, 40, 250, 300));
    session.kit->disconnect();
    EXPECT_EQ(window->content(), &window->authVC());
    EXPECT_EQ(window->geometry(), QRect(30, 40, 250, 300));
}

TEST_F(RosterWindowTest, LosingTheLinkKeepsTheListAndItsFocus) {
    session.startConnected({listed(1), listed(2)});
    open();
    window->show();
    QApplication::setActiveWindow(window.get());
    auto* room = window->findChild<QWidget*>("roomRow");
    room->setFocus();
    session.server().link->fail();
    session.loop.run();
    EXPECT_EQ(session.kit->state().connection, Connection::offline);
    EXPECT_EQ(window->content(), &window->rosterVC());
    EXPECT_TRUE(room->hasFocus());
}

TEST_F(RosterWindowTest, PassesOnWhoIsOpened) {
    session.startConnected({listed(1)});
    open();
    window->show();
    auto* table = window->findChild<RosterTableView*>("table");
    table->selectRow(0);
    QTest::keyClick(table, Qt::Key_Return);
    EXPECT_EQ(opened.take(), std::vector<std::string>{session.own});
    bool isRoomOpened = false;
    window->setOpenRoom([&] { isRoomOpened = true; });
    QTest::keyClick(window->findChild<QWidget*>("roomRow"), Qt::Key_Return);
    EXPECT_TRUE(isRoomOpened);
}

TEST_F(RosterWindowTest, ARefusalShowsASheetWithWhatToDo) {
    session.start();
    open();
    window->show();
    refuse();
    QMessageBox* box = sheet();
    ASSERT_TRUE(box);
    EXPECT_EQ(box->windowModality(), Qt::WindowModal);
    EXPECT_EQ(box->text(), QStringLiteral("Not authorized to connect to the server"));
    EXPECT_EQ(box->informativeText(),
              QStringLiteral("Connecting to the vimble server requires an administrator to add your public key to the "
                             "list of authorized users."));
    EXPECT_EQ(box->textFormat(), Qt::PlainText);
    ASSERT_EQ(box->buttons().size(), 1);
    EXPECT_EQ(box->defaultButton(), box->buttons().first());
    EXPECT_EQ(window->content(), &window->authVC());
    QTest::keyClick(box, Qt::Key_Return);
    settle();
    EXPECT_FALSE(sheet());
    refuse();
    EXPECT_TRUE(sheet());
}

TEST_F(RosterWindowTest, TwoRefusalsShowOneSheet) {
    session.start();
    open();
    window->show();
    refuse();
    refuse();
    EXPECT_EQ(window->findChildren<QMessageBox*>().size(), 1);
}

TEST_F(RosterWindowTest, TheSheetWaitsForAHiddenWindow) {
    session.start();
    open();
    refuse();
    EXPECT_FALSE(sheet());
    window->show();
    EXPECT_TRUE(sheet());
    sheet()->close();
    settle();
    window->hide();
    window->show();
    EXPECT_FALSE(sheet());
}

TEST_F(RosterWindowTest, HidingTheWindowTakesTheSheetAlongUntilItIsShown) {
    session.start();
    open();
    window->show();
    refuse();
    ASSERT_TRUE(sheet());
    window->hide();
    settle();
    EXPECT_FALSE(sheet());
    window->show();
    EXPECT_TRUE(sheet());
}

TEST_F(RosterWindowTest, HiddenAndShownInOneTurnItHasItsSheet) {
    session.start();
    open();
    window->show();
    refuse();
    window->hide();
    window->show();
    settle();
    EXPECT_TRUE(sheet());
}

TEST_F(RosterWindowTest, HidingTheWindowLeavesNoOtherSheetAloneOnTheScreen) {
    session.start();
    open();
    window->show();
    auto* menu = window->findChild<QMenu*>("shareMenu");
    menu->actions().at(1)->trigger();
    settle();
    auto* dialog = window->findChild<QDialog*>();
    ASSERT_TRUE(dialog);
    ASSERT_TRUE(dialog->isVisible());
    window->hide();
    settle();
    EXPECT_FALSE(window->findChild<QDialog*>());
}

TEST_F(RosterWindowTest, TheTroubleWithOneServerIsNotToldOfTheNext) {
    session.start();
    open();
    window->show();
    session.kit->setEndpoint(session.endpoint);
    session.kit->connect();
    window->showTrouble("no such host");
    auto* label = window->findChild<QLabel*>("troubleLabel");
    ASSERT_TRUE(label->isVisible());
    session.kit->disconnect();
    session.kit->setEndpoint(session.otherEndpoint);
    session.kit->connect();
    ASSERT_EQ(window->content(), &window->rosterVC());
    EXPECT_FALSE(label->isVisible());
}

TEST_F(RosterWindowTest, OtherEventsShowNoSheet) {
    session.startConnected({listed(1)});
    open();
    window->show();
    session.server().sendError("no");
    session.server().link->fail();
    session.loop.run();
    EXPECT_FALSE(sheet());
}

TEST_F(RosterWindowTest, FollowsTheSessionWhileHidden) {
    session.startConnected({listed(1)});
    open();
    session.server().sendList({listed(1), listed(2)});
    EXPECT_EQ(window->findChild<RosterTableView*>("table")->model()->rowCount(), 2);
}

TEST_F(RosterWindowTest, MayDieBeforeTheSessionAndItsDelegate) {
    session.startConnected({listed(1)});
    open();
    window->show();
    window.reset();
    session.server().sendList({listed(1), listed(2)});
    session.server().refuse();
    session.loop.run();
}

}  // namespace
