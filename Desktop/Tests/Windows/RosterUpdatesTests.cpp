#include "RosterFixture.h"
#include "UpdateWorld.h"

#include "DesktopViews/UpdateToast.h"

#include <QPushButton>

namespace {

using Toast = UpdateToast;

TEST(RosterUpdateStateTest, WithoutAStateThereIsNothingToShow) {
    EXPECT_EQ(RosterVC::LocalUpdateState(nullptr), RosterVC::LocalUpdateState());
}

TEST(RosterUpdateStateTest, WhatIsReadyComesBeforeWhatIsShownForDebugging) {
    UpdateState state;
    state.debugReadyVersion = "9";
    EXPECT_EQ(RosterVC::LocalUpdateState(&state).readyVersion, "9");
    state.readyUpdate = ReadyUpdateInfo{"1.4.0", "Vimble", std::nullopt, {}};
    EXPECT_EQ(RosterVC::LocalUpdateState(&state).readyVersion, "1.4.0");
}

TEST(RosterUpdateStateTest, EachStatusHasItsMessage) {
    const auto toast = [](std::optional<ManualCheckStatus> status) {
        UpdateState state;
        state.manualCheck = std::move(status);
        return RosterVC::LocalUpdateState(&state).toast;
    };
    using Status = ManualCheckStatus;
    EXPECT_EQ(toast(std::nullopt), std::nullopt);
    EXPECT_EQ(toast(Status{Status::Checking{}}), Toast::Message(Toast::Checking{}));
    EXPECT_EQ(toast(Status{Status::NoUpdateAvailable{}}), Toast::Message(Toast::NoUpdateAvailable{}));
    EXPECT_EQ(toast(Status{Status::UnsupportedSystemVersion{"13.0.0"}}),
              Toast::Message(Toast::MinimumSystemVersionRequired{"13.0.0"}));
}

class RosterUpdatesTest : public RosterTest {
protected:
    RosterUpdatesTest() {
        connect({1, 2, 3});
        show();
        roster->observeUpdates(updater(), session.loop);
        updates.start();
    }
    ~RosterUpdatesTest() override { roster.reset(); }

    AppUpdater& updater() { return *updates.updater; }
    UpdateToast& ready() { return *roster->findChild<UpdateToast*>(QStringLiteral("readyUpdateToast")); }
    UpdateToast& status() { return *roster->findChild<UpdateToast*>(QStringLiteral("statusToast")); }

    void turn() {
        updates.ownLoop.run();
        session.loop.run();
    }

    UpdateWorld updates{session.loop};
};

TEST_F(RosterUpdatesTest, NothingIsShownUntilThereIsSomethingToSay) {
    EXPECT_FALSE(ready().isPresented());
    EXPECT_FALSE(status().isPresented());
    EXPECT_EQ(ready().style(), ToastView::Style::attached);
    EXPECT_EQ(status().style(), ToastView::Style::floating);
}

TEST_F(RosterUpdatesTest, TheUsersCheckIsShownAndThenWhatItFound) {
    updater().checkForUpdates();
    EXPECT_EQ(status().message(), Toast::Message(Toast::Checking{}));
    EXPECT_FALSE(ready().isPresented());
    turn();
    EXPECT_FALSE(status().isPresented());
    EXPECT_EQ(ready().message(), Toast::Message(Toast::ReadyUpdate{"1.4.0"}));
}

TEST_F(RosterUpdatesTest, OneClickInstalls) {
    updater().checkForUpdates();
    turn();
    ready().findChild<QPushButton*>()->click();
    turn();
    EXPECT_EQ(updates.world.installations.size(), 1U);
    EXPECT_TRUE(ready().isPresented());
}

TEST_F(RosterUpdatesTest, TheListEndsAboveTheBarThatStays) {
    updater().checkForUpdates();
    turn();
    QApplication::processEvents();
    const auto* table = roster->findChild<RosterTableView*>();
    EXPECT_EQ(table->mapTo(roster.get(), QPoint(0, table->height())).y(), roster->height() - ready().barHeight());
}

TEST_F(RosterUpdatesTest, ACheckThatFoundNothingIsDismissedByItself) {
    updates.world.manifest = R"({"version": "1", "url": "x"})";
    updater().checkForUpdates();
    turn();
    EXPECT_EQ(status().message(), Toast::Message(Toast::NoUpdateAvailable{}));
    session.loop.advance(4);
    EXPECT_FALSE(status().isPresented());
    EXPECT_FALSE(updater().state().manualCheck);
}

TEST_F(RosterUpdatesTest, AClickHidesARunningCheckWhichGoesOnAndComesBackWithItsEnd) {
    updates.world.manifest = R"({"version": "1", "url": "x"})";
    updater().checkForUpdates();
    QTest::mouseClick(&status(), Qt::LeftButton);
    EXPECT_FALSE(status().isPresented());
    EXPECT_TRUE(updater().state().manualCheck);
    turn();
    EXPECT_EQ(status().message(), Toast::Message(Toast::NoUpdateAvailable{}));
}

}  // namespace
