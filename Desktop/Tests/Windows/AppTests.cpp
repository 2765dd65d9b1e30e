#include "AppFixture.h"

#include "DesktopKit/QuitRequests.h"
#include "DesktopViews/InputView.h"

#include <QMenuBar>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QStandardPaths>
#include <QTest>
#include <QTimer>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

TEST_F(AppTest, AFirstStartMakesAnIdentityInSilenceAndShowsTheAccessScreen) {
    session.secrets.items.clear();
    ASSERT_TRUE(start());
    EXPECT_THAT(session.secrets.items, SizeIs(1));
    EXPECT_EQ(session.kit->state().connection, Connection::setup);
    EXPECT_THAT(visibleWindows(), ElementsAre(&app->rosterWindow()));
}

TEST_F(AppTest, TheIdentityIsReadBeforeAnythingTouchesTheEngine) {
    ASSERT_TRUE(start());
    EXPECT_GT(keysReadBeforeKit, 0u);
}

TEST_F(AppTest, AKeychainThatRefusesIsToldAndNoWindowOpens) {
    session.secrets.failAll(-25293);
    QString text, more;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QTimer::singleShot(0, [&] {
        auto* alert = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        ASSERT_NE(alert, nullptr);
        text = alert->text();
        more = alert->informativeText();
        icon = alert->icon();
        EXPECT_THAT(visibleWindows(), IsEmpty());
        alert->accept();
    });
    EXPECT_FALSE(start());
    EXPECT_EQ(icon, QMessageBox::Critical);
    EXPECT_EQ(text, "Could not access the keychain");
    EXPECT_EQ(more,
              "Vimble could not read or update the “Vimble Identity Secret Key” item in the keychain.\n\n"
              "status -25293");
    EXPECT_EQ(kitCalls, 0);
    EXPECT_THAT(visibleWindows(), IsEmpty());
}

TEST_F(AppTest, AfterTheLaunchOnlyPeopleIsOnTheScreenAndWindowsAreToBeKept) {
    ASSERT_TRUE(start());
    EXPECT_THAT(visibleWindows(), ElementsAre(&app->rosterWindow()));
    EXPECT_TRUE(defaults.boolForKey("NSQuitAlwaysKeepsWindows"));
}

TEST_F(AppTest, TogglingTheConsoleTwiceShowsItAgainWithItsLogIntact) {
    ASSERT_TRUE(start());
    auto* log = app->consoleWindow().findChild<QPlainTextEdit*>();
    ASSERT_NE(log, nullptr);
    const QString before = log->toPlainText();
    EXPECT_THAT(before.toStdString(), HasSubstr("Vimble 1.2"));

    app->toggleConsoleWindow();
    EXPECT_TRUE(app->consoleWindow().isVisible());
    app->toggleConsoleWindow();
    EXPECT_FALSE(app->consoleWindow().isVisible());
    app->toggleConsoleWindow();
    EXPECT_TRUE(app->consoleWindow().isVisible());
    EXPECT_EQ(log->toPlainText(), before);
}

TEST_F(AppTest, ALinkBringsTheHiddenPeopleWindowForwardWithTheDesktopsToken) {
    ASSERT_TRUE(start());
    app->toggleConsoleWindow();
    app->toggleRosterWindow();
    ASSERT_FALSE(app->rosterWindow().isVisible());
    tokens.clear();

    app->openUrls({}, {"nothing", ""});
    EXPECT_FALSE(app->rosterWindow().isVisible());
    app->openUrls({"vimble://anything"}, {"token", ""});
    EXPECT_TRUE(app->rosterWindow().isVisible());
    EXPECT_THAT(tokens, ElementsAre("token"));
}

TEST_F(AppTest, APersonWhoHasAWindowGetsNoSecond) {
    ASSERT_TRUE(start());
    app->openConversation(person(2));
    auto* first = app->chatterWindows().existing(keyTextOf(2));
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(first->isVisible());
    app->openConversation(person(3));
    app->openConversation(person(2));
    EXPECT_EQ(app->chatterWindows().existing(keyTextOf(2)), first);
    EXPECT_EQ(last, first);
    EXPECT_THAT(app->chatterWindows().windows(), SizeIs(2));
}

TEST_F(AppTest, WithoutATrayTheLastWindowIsMinimisedInsteadOfClosed) {
    ASSERT_TRUE(start());
    app->rosterWindow().close();
    EXPECT_TRUE(app->rosterWindow().isVisible());
    EXPECT_TRUE(app->rosterWindow().isMinimized());
    EXPECT_EQ(quits, 0);
}

TEST_F(AppTest, AWindowThatIsNotTheLastIsHiddenByClosing) {
    ASSERT_TRUE(start());
    app->openRoom();
    app->rosterWindow().close();
    EXPECT_FALSE(app->rosterWindow().isVisible());
    app->roomWindow().close();
    EXPECT_TRUE(app->roomWindow().isMinimized());
}

TEST_F(AppTest, AChatThatIsTheLastWindowIsMinimisedAndLives) {
    ASSERT_TRUE(start());
    app->openConversation(person(2));
    app->rosterWindow().close();
    auto* chat = app->chatterWindows().existing(keyTextOf(2));
    chat->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(app->chatterWindows().existing(keyTextOf(2)), chat);
    EXPECT_TRUE(chat->isMinimized());
}

TEST_F(AppTest, WhatWasOpenAtTheEndComesBackAtItsPlaceUnderFreshIdentifiers) {
    ASSERT_TRUE(start());
    app->toggleConsoleWindow();
    app->openRoom();
    app->openConversation(person(2));
    app->openConversation(person(3));
    auto* chat = app->chatterWindows().existing(keyTextOf(2));
    chat->setGeometry(120, 90, 400, 300);
    app->roomWindow().setGeometry(30, 40, 444, 333);
    const QRect chatFrame = chat->geometry();
    const QRect roomFrame = app->roomWindow().geometry();
    const std::string identifier = chat->identifier();
    endProgram();
    EXPECT_THAT(visibleWindows(), IsEmpty());

    ASSERT_TRUE(start());
    EXPECT_TRUE(app->consoleWindow().isVisible());
    EXPECT_TRUE(app->roomWindow().isVisible());
    EXPECT_EQ(app->roomWindow().geometry(), roomFrame);
    ASSERT_THAT(app->chatterWindows().windows(), SizeIs(2));
    auto* restored = app->chatterWindows().existing(keyTextOf(2));
    ASSERT_NE(restored, nullptr);
    EXPECT_EQ(restored->geometry(), chatFrame);
    EXPECT_NE(restored->identifier(), identifier);
}

TEST_F(AppTest, AMinimisedChatKeepsItsPlaceThroughRunsInWhichNobodyLooksAtIt) {
    ASSERT_TRUE(start());
    app->openConversation(person(2));
    auto* chat = app->chatterWindows().existing(keyTextOf(2));
    chat->setGeometry(120, 90, 400, 300);
    const QRect frame = chat->geometry();
    chat->showMinimized();
    for (int run = 0; run < 2; ++run) {
        endProgram();
        ASSERT_TRUE(start());
        chat = app->chatterWindows().existing(keyTextOf(2));
        ASSERT_NE(chat, nullptr);
        EXPECT_TRUE(chat->isMinimized());
    }
    chat->showNormal();
    EXPECT_EQ(chat->geometry(), frame);
}

TEST_F(AppTest, PeopleMinimisedAtTheEndComesToTheScreenAtTheNextStart) {
    ASSERT_TRUE(start());
    app->rosterWindow().setGeometry(50, 60, 220, 380);
    const QRect frame = app->rosterWindow().geometry();
    app->rosterWindow().close();
    ASSERT_TRUE(app->rosterWindow().isMinimized());
    endProgram();

    ASSERT_TRUE(start());
    EXPECT_TRUE(app->rosterWindow().isVisible());
    EXPECT_FALSE(app->rosterWindow().isMinimized());
    EXPECT_EQ(app->rosterWindow().geometry(), frame);
}

TEST_F(AppTest, AboutHoldsNoWindowUp) {
    ASSERT_TRUE(start());
    app->rosterWindow().activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&app->rosterWindow()));
    app->showAbout();
    auto* box = app->rosterWindow().findChild<QMessageBox*>();
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->windowModality(), Qt::NonModal);
    EXPECT_EQ(QApplication::activeModalWidget(), nullptr);
}

TEST_F(AppTest, AProgramThatDiesForgetsNoWindow) {
    ASSERT_TRUE(start());
    app->openConversation(person(2));
    pass();
    app->openConversation(person(3));
    app->chatterWindows().existing(keyTextOf(3))->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    pass();
    const auto file = session.folder.path / "app" / "WindowRecords.json";
    std::ifstream left(file);
    const std::string text((std::istreambuf_iterator<char>(left)), {});
    crash();
    std::ofstream(file) << text;  // undoes what the program wrote while it was destroyed

    ASSERT_TRUE(start());
    EXPECT_NE(app->chatterWindows().existing(keyTextOf(2)), nullptr);
    EXPECT_EQ(app->chatterWindows().existing(keyTextOf(3)), nullptr);
}

TEST_F(AppTest, AWindowClosedBeforeTheEndStaysClosedAndKeepsItsPlace) {
    ASSERT_TRUE(start());
    app->openRoom();
    app->roomWindow().setGeometry(30, 40, 444, 333);
    const QRect frame = app->roomWindow().geometry();
    pass();
    app->roomWindow().close();
    endProgram();

    ASSERT_TRUE(start());
    EXPECT_FALSE(app->roomWindow().isVisible());
    app->openRoom();
    EXPECT_EQ(app->roomWindow().geometry(), frame);
}

TEST_F(AppTest, DamagedRecordsOfWindowsCostOnlyTheirPlaces) {
    std::filesystem::create_directories(session.folder.path / "app");
    for (const char* text : {"", "{", "{\"windows\": [{\"identifier\": 1}]}", "[]",
                             R"({"windows": [{"identifier": "RosterWindowID", "WithKey": "", "frame": "%%%",
                                 "isOpen": true, "isMinimized": false}]})"}) {
        std::ofstream(session.folder.path / "app" / "WindowRecords.json") << text;
        ASSERT_TRUE(start()) << text;
        EXPECT_TRUE(app->rosterWindow().isVisible()) << text;
        endProgram();
    }
}

TEST_F(AppTest, ARecordForAStrangerOpensTheirChat) {
    std::filesystem::create_directories(session.folder.path / "app");
    std::ofstream(session.folder.path / "app" / "WindowRecords.json")
        << R"({"windows": [{"identifier": "x", "WithKey": "abc", "frame": "", "isOpen": true, "isMinimized": false}]})";
    ASSERT_TRUE(start());
    ASSERT_NE(app->chatterWindows().existing("abc"), nullptr);
    EXPECT_EQ(app->chatterWindows().existing("abc")->windowTitle(), "Anonymous");
}

TEST_F(AppTest, EveryWindowCarriesTheMenuAndNoShortcutIsThereTwice) {
    ASSERT_TRUE(start());
    app->openConversation(person(2));
    for (QMainWindow* window :
         {static_cast<QMainWindow*>(&app->rosterWindow()), static_cast<QMainWindow*>(&app->consoleWindow()),
          static_cast<QMainWindow*>(&app->roomWindow()),
          static_cast<QMainWindow*>(app->chatterWindows().existing(keyTextOf(2)))}) {
        std::set<QString> shortcuts;
        std::set<QString> texts;
        for (QAction* menu : window->menuBar()->actions()) {
            for (QAction* action : menu->menu()->actions()) {
                texts.insert(action->text().remove('&'));
                const QString shortcut = action->shortcut().toString();
                if (shortcut.isEmpty()) continue;
                EXPECT_TRUE(shortcuts.insert(shortcut).second) << shortcut.toStdString();
            }
        }
        for (const char* text : {"Preferences…", "Check for Updates…", "Disconnect", "People", "Console", "Room",
                                 "Quit Vimble", "Close Window", "Copy", "Paste", "Select All", "About Vimble"})
            EXPECT_TRUE(texts.count(text)) << text;
        for (const char* shortcut : {"Ctrl+,", "Ctrl+Q", "Ctrl+W", "Ctrl+1", "Ctrl+2", "Ctrl+3"})
            EXPECT_TRUE(shortcuts.count(shortcut)) << shortcut;
    }
}

TEST_F(AppTest, TheShortcutsWorkFromTheKeyboardAlone) {
    ASSERT_TRUE(start());
    QWidget& people = app->rosterWindow();
    people.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&people));
    QTest::keyClick(&people, Qt::Key_2, Qt::ControlModifier);
    EXPECT_TRUE(app->consoleWindow().isVisible());
    ASSERT_TRUE(QTest::qWaitForWindowActive(&app->consoleWindow()));
    QTest::keyClick(&app->consoleWindow(), Qt::Key_W, Qt::ControlModifier);
    EXPECT_FALSE(app->consoleWindow().isVisible());
    people.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&people));
    QTest::keyClick(&people, Qt::Key_3, Qt::ControlModifier);
    EXPECT_TRUE(app->roomWindow().isVisible());
    ASSERT_TRUE(QTest::qWaitForWindowActive(&app->roomWindow()));
    QTest::keyClick(&app->roomWindow(), Qt::Key_Q, Qt::ControlModifier);
    EXPECT_EQ(quits, 1);
}

TEST_F(AppTest, ALargerFontOfTheDesktopReachesWhatTheWindowsHold) {
    ASSERT_TRUE(start());
    app->openRoom();
    auto* input = app->roomWindow().findChild<InputTextView*>();
    ASSERT_NE(input, nullptr);
    const int before = input->font().pixelSize();
    const QFont usual = QApplication::font();
    QFont larger = usual;
    larger.setPointSizeF(usual.pointSizeF() * 2);
    QApplication::setFont(larger);
    QCoreApplication::processEvents();
    const int after = input->font().pixelSize();
    QApplication::setFont(usual);
    QCoreApplication::processEvents();
    EXPECT_GT(after, before);
    EXPECT_EQ(input->font().pixelSize(), before);
}

TEST_F(AppTest, ARequestOfTheDesktopToQuitBeginsTheEndAndClosesNoWindow) {
    ASSERT_TRUE(start());
    app->openRoom();
    const QuitRequests requests([this] { ++quits; });
    QEvent quit(QEvent::Quit);
    QCoreApplication::sendEvent(qApp, &quit);
    EXPECT_EQ(quits, 1);
    EXPECT_TRUE(quit.isAccepted());
    EXPECT_TRUE(app->rosterWindow().isVisible());
    EXPECT_FALSE(app->rosterWindow().isMinimized());
    EXPECT_TRUE(app->roomWindow().isVisible());
}

TEST_F(AppTest, AtTheEndNoWindowComesBackToTheScreen) {
    ASSERT_TRUE(start());
    app->applicationWillTerminate();
    app->rosterWindow().hide();
    app->activate({"token", ""});
    app->openConversation(person(2));
    EXPECT_THAT(visibleWindows(), IsEmpty());
}

TEST_F(AppTest, TheTalksOfThoseWhoAreAwayAreInTheMenuTheLatestFirst) {
    State state;
    state.endpoint = session.endpoint;
    state.people.set(keyTextOf(2), {keyTextOf(2), "Ann & Co", "", false, false});
    for (const std::uint8_t number : {2, 3})
        state.conversations.update(keyTextOf(number), [&](Chat& chat) {
            chat.messages.push_back({keyTextOf(number), "words", {700000000.0 + number}});
        });
    state.save(session.folder.path);
    ASSERT_TRUE(start());
    QMenu* talks = nullptr;
    for (QMenu* menu : app->rosterWindow().menuBar()->findChildren<QMenu*>())
        if (menu->title() == "&Talks") talks = menu;
    ASSERT_NE(talks, nullptr);
    Q_EMIT talks->aboutToShow();
    ASSERT_EQ(talks->actions().size(), 2);
    EXPECT_EQ(talks->actions()[0]->text(), QString::fromStdString("anonymous" + keyTextOf(3).substr(0, 6) + " (1)"));
    EXPECT_EQ(talks->actions()[1]->text(), "Ann && Co (1)");

    talks->actions()[1]->trigger();
    auto* window = app->chatterWindows().existing(keyTextOf(2));
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(window->isVisible());
    Q_EMIT talks->aboutToShow();
    EXPECT_EQ(talks->actions()[1]->text(), "Ann && Co");
}

TEST_F(AppTest, DisconnectGivesUpTheLinkWithoutAQuestion) {
    ASSERT_TRUE(start());
    session.kit->setEndpoint(session.endpoint);
    session.kit->connect();
    session.loop.run();
    session.server().accept({listed(1)});
    ASSERT_EQ(session.kit->state().connection, Connection::online);
    app->disconnect();
    EXPECT_EQ(session.kit->state().connection, Connection::setup);
}

}  // namespace
