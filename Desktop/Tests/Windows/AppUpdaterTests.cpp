#include "DesktopKit/AppUpdater.h"

#include "TestSupport/LogLines.h"
#include "UpdateWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char variable[] = "VIMBLE_UPDATE_MANIFEST_URL";
constexpr char infoKey[] = "UpdateKitManifestURL";

struct StateObserver : SignalTarget {
    std::vector<UpdateState> states;
};

class AppUpdaterTest : public testing::Test {
protected:
    AppUpdater& updater() { return *updates.updater; }
    const UpdateState& state() { return updater().state(); }

    void turn() {
        updates.ownLoop.run();
        loop.run();
    }

    /// The manual check's status: "checking", "none", "needs VERSION", or "" for no status.
    std::string manual() {
        if (!state().manualCheck) return "";
        const auto& value = state().manualCheck->value;
        if (const auto* unsupported = std::get_if<ManualCheckStatus::UnsupportedSystemVersion>(&value))
            return "needs " + unsupported->requiredVersion;
        return std::holds_alternative<ManualCheckStatus::Checking>(value) ? "checking" : "none";
    }

    void offer(const std::string& version, const std::string& rest = {}) {
        updates.world.manifest = R"({"version": ")" + version + R"(", "url": "x.zip")" + rest + "}";
    }

    void fail(const std::string& operation, bool doesFail = true) {
        updates.world.failures.clear();
        if (doesFail) updates.world.failures[operation] = std::make_exception_ptr(std::runtime_error("broken"));
    }

    TestLoop loop;
    UpdateWorld updates{loop};
    LogLines log;
};

TEST_F(AppUpdaterTest, WithoutAnAddressNothingIsConfiguredAndNothingEverHappens) {
    updater().start();
    EXPECT_THAT(log.take(), ElementsAre("info zorvane.Vimble/AppUpdater: UpdateKit disabled: no manifest URL "
                                        "configured"));
    updater().checkForUpdates();
    EXPECT_THAT(log.take(), ElementsAre("info zorvane.Vimble/AppUpdater: UpdateKit check requested but updates are "
                                        "not configured"));
    updater().installUpdate();
    updater().dismissManualCheck();
    updater().dismissFailure();
    EXPECT_EQ(state(), UpdateState());
    EXPECT_FALSE(updates.manifestUrl);
}

TEST_F(AppUpdaterTest, TheVariableComesBeforeTheBundle) {
    updates.world.info[infoKey] = "https://bundle/latest.json";
    updates.variables[variable] = " https://variable/latest.json\n";
    updater().start();
    EXPECT_EQ(updates.manifestUrl, "https://variable/latest.json");
    // A second start does not look for the manifest again.
    updates.variables[variable] = "https://another/latest.json";
    updater().start();
    EXPECT_EQ(updates.manifestUrl, "https://variable/latest.json");
    EXPECT_TRUE(state().isConfigured);
}

TEST_F(AppUpdaterTest, AVariableThatSaysNothingLeavesTheWordToTheBundle) {
    updates.world.info[infoKey] = "https://bundle/latest.json";
    for (const char* value : {"", "  ", "relative/path.json", "ht tp://x", "%"}) {
        updates.make();
        updates.manifestUrl.reset();
        updates.variables[variable] = value;
        updater().start();
        EXPECT_EQ(updates.manifestUrl, "https://bundle/latest.json") << value;
    }
}

TEST_F(AppUpdaterTest, AnAddressIsAUrlWithASchemeOrAnAbsolutePath) {
    const auto text = [](const char* given) {
        const auto url = AppUpdater::normalizedUrl(given);
        return url ? url->text() : "nothing";
    };
    EXPECT_EQ(text("/tmp/my manifest.json "), "file:///tmp/my%20manifest.json");
    EXPECT_EQ(text("\u2003https://h/x\u00a0"), "https://h/x");
    EXPECT_EQ(text("file:///x"), "file:///x");
    EXPECT_EQ(text("relative/path.json"), "nothing");
    EXPECT_EQ(text("//host/x"), "file:////host/x");
    EXPECT_EQ(text("a b"), "nothing");
    EXPECT_EQ(text(""), "nothing");
}

TEST_F(AppUpdaterTest, AManifestInAFileIsLookedAtWithoutANetwork) {
    updates.variables[variable] = "/srv/latest.json";
    updater().start();
    turn();
    ASSERT_TRUE(state().readyUpdate);
    EXPECT_EQ(state().readyUpdate->version, "1.4.0");
    EXPECT_FALSE(updates.world.reachability);
    EXPECT_THAT(log.take(), testing::Contains("info zorvane.Vimble/AppUpdater: Update prepared: Vimble 1.4.0 "
                                              "(file:///srv/Vimble-1.4.0.zip)"));
}

TEST_F(AppUpdaterTest, TheUsersCheckIsShownUntilItsAnswer) {
    updates.start();
    log.take();
    updater().checkForUpdates();
    EXPECT_EQ(manual(), "checking");
    EXPECT_THAT(log.take(), ElementsAre("info zorvane.Vimble/AppUpdater: AppUpdater: starting manual update check"));
    turn();
    EXPECT_EQ(manual(), "") << "the update that is ready says everything";
    ASSERT_TRUE(state().readyUpdate);
    EXPECT_FALSE(loop.hasTimers());
}

TEST_F(AppUpdaterTest, ACheckThatFindsNothingSaysSoUntilDismissed) {
    updates.start();
    offer("1.3");
    updater().checkForUpdates();
    turn();
    EXPECT_EQ(manual(), "none");
    EXPECT_THAT(log.take(), testing::Contains("info zorvane.Vimble/AppUpdater: AppUpdater: manual check completed — "
                                              "No update is currently available."));
    loop.advance(1000);
    EXPECT_EQ(manual(), "none");
    updater().dismissManualCheck();
    EXPECT_EQ(manual(), "");
}

TEST_F(AppUpdaterTest, AReleaseForANewerSystemSaysWhichOne) {
    updates.start();
    offer("1.4", R"(, "minimumSystemVersion": "13")");
    updater().checkForUpdates();
    turn();
    EXPECT_EQ(manual(), "needs 13.0.0");
}

TEST_F(AppUpdaterTest, AnAutomaticCheckThatFindsNothingIsNotShown) {
    updates.start();
    turn();
    offer("1.3");
    updates.world.reachability(true);
    turn();
    EXPECT_EQ(manual(), "");
    EXPECT_FALSE(state().failure);
}

TEST_F(AppUpdaterTest, WithAnUpdateReadyACheckThatFindsNothingJustEnds) {
    updates.start();
    updater().checkForUpdates();
    turn();
    offer("1.3");
    updater().checkForUpdates();
    turn();
    EXPECT_EQ(manual(), "");
    EXPECT_TRUE(state().readyUpdate) << "it stays on offer";
}

TEST_F(AppUpdaterTest, ACheckThatConfirmsWhatIsReadyEndsByTheTimeout) {
    updates.start();
    updater().checkForUpdates();
    turn();
    updater().checkForUpdates();
    turn();
    EXPECT_EQ(manual(), "checking");
    loop.advance(29.9);
    EXPECT_EQ(manual(), "checking");
    loop.advance(0.1);
    EXPECT_EQ(manual(), "");
}

TEST_F(AppUpdaterTest, ACheckWithoutAnAnswerEndsAsOneThatFoundNothingAndMayStillSucceed) {
    updates.start();
    updates.world.held = {"load"};
    updater().checkForUpdates();
    turn();
    loop.advance(30);
    EXPECT_EQ(manual(), "none");
    updates.world.held.clear();
    updates.world.release("load");
    turn();
    EXPECT_EQ(manual(), "");
    EXPECT_TRUE(state().readyUpdate);
}

TEST_F(AppUpdaterTest, AnotherCheckBeginsTheTimeAnew) {
    updates.start();
    updates.world.held = {"load"};
    updater().checkForUpdates();
    loop.advance(20);
    updater().checkForUpdates();
    loop.advance(20);
    EXPECT_EQ(manual(), "checking");
    loop.advance(10);
    EXPECT_EQ(manual(), "none");
}

TEST_F(AppUpdaterTest, ARefusedCheckIsClosedByTheOneThatRuns) {
    updates.start();
    turn();
    offer("1.3");
    updates.world.held = {"load"};
    updates.world.reachability(true);
    turn();
    updater().checkForUpdates();
    turn();
    EXPECT_EQ(manual(), "checking");
    updates.world.release("load");
    turn();
    EXPECT_EQ(manual(), "none");
}

TEST_F(AppUpdaterTest, WhileACheckRunsItsStatusCannotBeDismissed) {
    updates.start();
    updater().checkForUpdates();
    updater().dismissManualCheck();
    EXPECT_EQ(manual(), "checking");
}

TEST_F(AppUpdaterTest, AFailureEndsACheckAndIsKeptUntilTakenUp) {
    updates.start();
    fail("load");
    updater().checkForUpdates();
    turn();
    EXPECT_EQ(manual(), "");
    EXPECT_FALSE(loop.hasTimers());
    EXPECT_EQ(state().failure,
              (UpdateFailureInfo{UpdateFailureCategory::manifest, "Failed to load release manifest: broken", false}));
    updater().dismissFailure();
    EXPECT_FALSE(state().failure);
}

TEST_F(AppUpdaterTest, AFailureLeavesAStatusThatIsNoCheck) {
    updates.start();
    offer("1.3");
    updater().checkForUpdates();
    turn();
    fail("load");
    updates.world.reachability(true);
    turn();
    EXPECT_TRUE(state().failure);
    EXPECT_EQ(manual(), "none");
}

TEST_F(AppUpdaterTest, OnlyWhatIsReadyIsInstalled) {
    updates.start();
    updater().installUpdate();
    turn();
    EXPECT_FALSE(state().failure) << "nobody was asked";
    updater().checkForUpdates();
    turn();
    updater().installUpdate();
    turn();
    EXPECT_EQ(updates.world.installations.size(), 1U);
}

TEST_F(AppUpdaterTest, AnInstallationThatFailsLeavesTheUpdateOnOffer) {
    updates.start();
    updater().checkForUpdates();
    turn();
    fail("install");
    updater().installUpdate();
    turn();
    EXPECT_EQ(state().failure,
              (UpdateFailureInfo{UpdateFailureCategory::installation, "Installation failed: broken", false}));
    EXPECT_TRUE(state().readyUpdate);
    fail("install", false);
    updater().installUpdate();
    turn();
    EXPECT_EQ(updates.world.installations.size(), 2U);
}

TEST_F(AppUpdaterTest, AnObserverSeesThePresentStateAtOnceAndEachAfterIt) {
    StateObserver observer;
    updater().observeState(observer,
                           [](StateObserver& self, const UpdateState& state) { self.states.push_back(state); });
    EXPECT_EQ(observer.states.size(), 1U);
    updates.start();
    EXPECT_TRUE(observer.states.back().isConfigured);
    updater().checkForUpdates();
    turn();
    EXPECT_TRUE(observer.states.back().readyUpdate);
}

TEST_F(AppUpdaterTest, ItMayEndWhileACheckRuns) {
    updates.start();
    updates.world.held = {"download"};
    updater().checkForUpdates();
    turn();
    updates.updater.reset();
    turn();
    EXPECT_FALSE(loop.hasTimers());
    EXPECT_THAT(updates.world.staging(), IsEmpty());
}

}  // namespace
