#include "AppFixture.h"
#include "TestSupport/LogLines.h"
#include "UpdateWorld.h"

#include "DesktopViews/UpdateToast.h"

#include <QMenuBar>

#include <gmock/gmock.h>

namespace {

class AppUpdatesTest : public AppTest {
protected:
    AppUpdatesTest() { updater = updates.updater.get(); }
    ~AppUpdatesTest() override { endProgram(); }

    QAction& command() {
        for (QAction* action : app->rosterWindow().menuBar()->actions()[0]->menu()->actions())
            if (action->text() == QStringLiteral("Check for &Updates…")) return *action;
        throw std::runtime_error("there is no such command");
    }

    void turn() {
        updates.ownLoop.run();
        session.loop.run();
    }

    UpdateWorld updates{session.loop};
    LogLines log;
};

TEST_F(AppUpdatesTest, WithoutAnAddressTheCommandCannotBeChosen) {
    ASSERT_TRUE(start());
    EXPECT_FALSE(command().isEnabled());
    EXPECT_FALSE(updater->state().isConfigured);
}

TEST_F(AppUpdatesTest, TheCommandChecksAndShowsTheWindowThatTellsOfIt) {
    updates.variables["VIMBLE_UPDATE_MANIFEST_URL"] = "https://host/latest.json";
    ASSERT_TRUE(start());
    EXPECT_TRUE(command().isEnabled());
    app->rosterWindow().hide();
    command().trigger();
    EXPECT_TRUE(app->rosterWindow().isVisible());
    EXPECT_TRUE(updater->state().manualCheck);
    turn();
    EXPECT_TRUE(updater->state().readyUpdate);
    const auto* toast = app->rosterWindow().findChild<UpdateToast*>(QStringLiteral("readyUpdateToast"));
    EXPECT_TRUE(toast->isPresented());
}

TEST_F(AppUpdatesTest, AFailureIsLoggedOnceInOneLine) {
    updates.variables["VIMBLE_UPDATE_MANIFEST_URL"] = "/srv/latest.json";
    updates.world.failures["load"] = std::make_exception_ptr(std::runtime_error("no\nfile"));
    ASSERT_TRUE(start());
    turn();
    int lines = 0;
    for (const std::string& line : log.take())
        if (line ==
            "error zorvane.Vimble/App: UpdateKit failure (manifest): Failed to load release manifest: no\\nfile")
            ++lines;
    EXPECT_EQ(lines, 1);
    EXPECT_FALSE(updater->state().failure);
    EXPECT_TRUE(app->rosterWindow().isVisible());
}

}  // namespace
