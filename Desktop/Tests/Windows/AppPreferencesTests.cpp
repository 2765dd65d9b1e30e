#include "AppFixture.h"

#include "DesktopViews/KeyField.h"

#include <QMenuBar>
#include <QTest>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using AppPreferencesTest = AppTest;

TEST_F(AppPreferencesTest, PreferencesAreMadeWhenTheyAreAskedForAndAreOneWindow) {
    ASSERT_TRUE(start());
    const auto choose = [this] {
        for (QAction* action : app->rosterWindow().menuBar()->actions())
            for (QAction* each : action->menu()->actions())
                if (each->text().contains("Preferences")) each->trigger();
    };
    const auto windows = [] {
        std::vector<QWidget*> found;
        for (QWidget* window : QApplication::topLevelWidgets())
            if (qobject_cast<PrefsWindow*>(window) != nullptr) found.push_back(window);
        return found;
    };
    EXPECT_THAT(windows(), IsEmpty());
    choose();
    ASSERT_THAT(windows(), SizeIs(1));
    EXPECT_EQ(last, windows().front());
    EXPECT_TRUE(last->isVisible());
    EXPECT_EQ(last->findChild<QMenuBar*>(), nullptr);
    last->close();
    choose();
    EXPECT_THAT(windows(), SizeIs(1));
    EXPECT_TRUE(windows().front()->isVisible());
}

TEST_F(AppPreferencesTest, PreferencesShowTheKeyThatIsStored) {
    ASSERT_TRUE(start());
    app->orderFrontPreferences();
    worker.runAll();
    pass();
    EXPECT_EQ(app->prefsWindow().findChild<KeyField*>()->key().toStdString(), keyTextOf(1));
}

TEST_F(AppPreferencesTest, PreferencesCloseThoughTheyAreTheLastWindowThatIsOpen) {
    ASSERT_TRUE(start());
    app->orderFrontPreferences();
    app->prefsWindow().close();
    EXPECT_FALSE(app->prefsWindow().isVisible());
    app->orderFrontPreferences();
    app->rosterWindow().close();
    EXPECT_TRUE(app->rosterWindow().isMinimized()) << "nothing would bring it back";
}

TEST_F(AppPreferencesTest, TheShortcutsWorkInThePreferencesToo) {
    ASSERT_TRUE(start());
    app->orderFrontPreferences();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&app->prefsWindow()));
    QTest::keyClick(&app->prefsWindow(), Qt::Key_Q, Qt::ControlModifier);
    EXPECT_EQ(quits, 1);
    QTest::keyClick(&app->prefsWindow(), Qt::Key_W, Qt::ControlModifier);
    EXPECT_FALSE(app->prefsWindow().isVisible());
}

TEST_F(AppPreferencesTest, PreferencesDoNotComeBackByThemselvesButToTheirPlace) {
    ASSERT_TRUE(start());
    app->orderFrontPreferences();
    app->prefsWindow().move(123, 77);
    pass();
    endProgram();
    // A run in which the preferences are not opened forgets nothing of them.
    for (int run = 0; run < 2; ++run) {
        ASSERT_TRUE(start());
        EXPECT_THAT(visibleWindows(), ElementsAre(&app->rosterWindow()));
        app->openRoom();
        app->roomWindow().close();
        pass();
        if (run == 0) endProgram();
    }
    app->orderFrontPreferences();
    EXPECT_EQ(app->prefsWindow().pos(), QPoint(123, 77));
}

TEST_F(AppPreferencesTest, BehindTheEndAKeyThatWasAskedForIsStillWrittenAndNothingIsTold) {
    ASSERT_TRUE(start());
    app->orderFrontPreferences();
    worker.runAll();
    pass();
    const auto before = session.secrets.items;
    app->prefsWindow().prefsVC().secretKeyReplaceHit();
    QTest::keyClick(app->prefsWindow().prefsVC().keyReplaceSheet(), Qt::Key_Return);
    endProgram();
    worker.runAll();
    session.loop.run();
    EXPECT_NE(session.secrets.items, before);
    EXPECT_THAT(session.secrets.items, SizeIs(1));
}

}  // namespace
