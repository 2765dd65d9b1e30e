#include "UpdateKit/UpdateCoordinator.h"

#include "TestSupport/FakeUpdateWorld.h"
#include "TestSupport/LogLines.h"
#include "TestSupport/TestLoop.h"
#include "UpdateKit/InstallerClientError.h"
#include "UpdateKit/UpdateKitError.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Code = UpdateKitError::Code;
using Category = UpdateFailureCategory;
using Lines = std::vector<std::string>;

constexpr char manifestUrl[] = "https://host/releases/latest.json";

class UpdateCoordinatorTest : public testing::Test {
protected:
    UpdateCoordinatorTest() { make(manifestUrl); }

    void make(const std::string& url) {
        coordinator = std::make_shared<UpdateCoordinator>(loop, *Url::parse(url), world.environment(),
                                                          [this](UpdateEvent event) { events.push_back(event); });
    }

    void check(UpdateCheckMode mode = UpdateCheckMode::manual) {
        coordinator->runCheck(mode);
        loop.run();
    }

    void offer(const std::string& version, const std::string& rest = {}) {
        world.manifest = R"({"version": ")" + version + R"(", "url": "Vimble-)" + version + ".zip\"" + rest + "}";
    }

    /// Runs a check that must fail. @return its failure
    UpdateFailureInfo failure() {
        events.clear();
        check();
        if (events.size() != 1 || !std::holds_alternative<UpdateFailureInfo>(events[0])) {
            ADD_FAILURE() << "the check has not failed";
            return {};
        }
        return std::get<UpdateFailureInfo>(events[0]);
    }

    ReadyUpdateInfo readyInfo(const std::string& version, const std::string& displayName = "Vimble") {
        return {version, displayName, std::nullopt, *Url::parse("https://host/releases/Vimble-" + version + ".zip")};
    }

    Lines logged() {
        Lines lines = log.take();
        for (std::string& line : lines) line = line.substr(line.find(": ") + 2);
        return lines;
    }

    std::size_t loads() {
        const Lines operations = world.takeOperations();
        return static_cast<std::size_t>(std::count_if(
            operations.begin(), operations.end(), [](const std::string& each) { return each.starts_with("load "); }));
    }

    TestLoop loop;
    FakeUpdateWorld world{loop};
    LogLines log;
    std::vector<UpdateEvent> events;
    std::shared_ptr<UpdateCoordinator> coordinator;
};

// ---- one check

TEST_F(UpdateCoordinatorTest, ANewerReleaseIsBroughtHereAndAnnounced) {
    check();
    EXPECT_THAT(events, ElementsAre(UpdateEvent(readyInfo("1.4.0"))));
    ASSERT_TRUE(coordinator->stagedUpdate());
    const StagedUpdate& staged = *coordinator->stagedUpdate();
    EXPECT_EQ(staged.version, (SemanticVersion{1, 4, 0}));
    EXPECT_EQ(staged.application, staged.stagingDirectory / "extracted" / "Vimble.app");
    EXPECT_TRUE(std::filesystem::exists(staged.application));
    EXPECT_TRUE(std::filesystem::exists(staged.stagingDirectory / "update.zip"));
    ASSERT_EQ(world.expectations.size(), 1U);
    const DownloadExpectation& expectation = world.expectations[0];
    EXPECT_EQ(expectation.expectedVersion, (SemanticVersion{1, 4, 0}));
    EXPECT_EQ(expectation.currentVersion, (SemanticVersion{1, 3, 0}));
    EXPECT_EQ(expectation.systemVersion, (SemanticVersion{12, 0, 0}));
    EXPECT_EQ(expectation.currentApplication, "/opt/Vimble.app");
    EXPECT_THAT(world.takeOperations(),
                ElementsAre("load https://host/releases/latest.json", "makeStagingDirectory",
                            "download https://host/releases/Vimble-1.4.0.zip", "makeFolder", "extract", "validate"));
    EXPECT_THAT(logged(), ElementsAre("UpdateKit: manual check starting (manifest: https://host/releases/latest.json)",
                                      "UpdateKit: manifest version 1.4.0 vs current version 1.3.0",
                                      "UpdateKit: manual check prepared update 1.4.0"));
}

TEST_F(UpdateCoordinatorTest, TheSameVersionIsNoUpdateEvenWhereTheSystemIsTooOld) {
    offer("1.3", R"(, "minimumSystemVersion": "99")");
    check();
    EXPECT_THAT(events, ElementsAre(UpdateEvent(UpdateNoUpdateInfo{{}, "No update is currently available."})));
    EXPECT_THAT(logged(), ElementsAre("UpdateKit: manual check starting (manifest: https://host/releases/latest.json)",
                                      "UpdateKit: manifest version 1.3.0 vs current version 1.3.0",
                                      "UpdateKit: manual check completed — no update available"));
    EXPECT_THAT(world.staging(), IsEmpty());
}

TEST_F(UpdateCoordinatorTest, AnOlderVersionIsNoUpdate) {
    offer("1.2.9");
    check();
    EXPECT_THAT(events, ElementsAre(UpdateEvent(UpdateNoUpdateInfo{{}, "No update is currently available."})));
}

TEST_F(UpdateCoordinatorTest, AReleaseForANewerSystemIsNoUpdateAndSaysSo) {
    offer("1.4", R"(, "minimumSystemVersion": "13.1")");
    check();
    const UpdateNoUpdateInfo expected{{UpdateNoUpdateReason::SystemVersionUnsupported{"1.4.0", "13.1.0"}},
                                      "Version 1.4.0 is available, but it requires macOS 13.1.0 or newer."};
    EXPECT_THAT(events, ElementsAre(UpdateEvent(expected)));
    EXPECT_EQ(coordinator->lastNoUpdateInfo(), expected);
    EXPECT_THAT(logged(), ElementsAre("UpdateKit: manual check starting (manifest: https://host/releases/latest.json)",
                                      "UpdateKit: manifest version 1.4.0 vs current version 1.3.0",
                                      "UpdateKit: skipping manifest 1.4.0 because it requires macOS 13.1.0 and current "
                                      "macOS is 12.0.0",
                                      "UpdateKit: manual check completed — no update available"));
    offer("1.4", R"(, "minimumSystemVersion": "12")");
    check();
    EXPECT_EQ(coordinator->lastNoUpdateInfo(), std::nullopt);
    EXPECT_EQ(events.size(), 2U);
}

TEST_F(UpdateCoordinatorTest, AStagedUpdateIsAnnouncedOnce) {
    check();
    logged();
    world.takeOperations();
    for (int i = 0; i < 3; ++i) check();
    EXPECT_EQ(events.size(), 1U);
    EXPECT_EQ(world.takeOperations(), Lines(3, std::string("load ") + manifestUrl));
    EXPECT_EQ(logged().back(), "UpdateKit: manual check completed — previously prepared update 1.4.0 still current");
}

TEST_F(UpdateCoordinatorTest, ANewerReleaseReplacesTheStagedOne) {
    check();
    const auto before = coordinator->stagedUpdate()->stagingDirectory;
    offer("1.5.0");
    check();
    EXPECT_THAT(events, ElementsAre(UpdateEvent(readyInfo("1.4.0")), UpdateEvent(readyInfo("1.5.0"))));
    EXPECT_FALSE(std::filesystem::exists(before));
    EXPECT_EQ(world.staging().size(), 1U);
    EXPECT_EQ(coordinator->stagedUpdate()->version, (SemanticVersion{1, 5, 0}));
}

TEST_F(UpdateCoordinatorTest, AWithdrawnReleaseStaysStaged) {
    check();
    offer("1.3.0");
    check();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_TRUE(std::holds_alternative<UpdateNoUpdateInfo>(events[1]));
    ASSERT_TRUE(coordinator->stagedUpdate());
    EXPECT_TRUE(std::filesystem::exists(coordinator->stagedUpdate()->application));
}

TEST_F(UpdateCoordinatorTest, AStagedUpdateWhoseFilesWereDeletedIsRestoredSilently) {
    check();
    std::filesystem::remove_all(world.folder.path / "UpdateKit");
    check();
    EXPECT_EQ(events.size(), 1U);
    ASSERT_TRUE(coordinator->stagedUpdate());
    EXPECT_TRUE(std::filesystem::exists(coordinator->stagedUpdate()->application));
    EXPECT_EQ(world.staging(), Lines{"2"});
}

TEST_F(UpdateCoordinatorTest, AManifestThatCannotBeLoadedIsAFailure) {
    check();
    world.failures["load"] = std::make_exception_ptr(std::runtime_error("no\nroute"));
    EXPECT_EQ(failure(), (UpdateFailureInfo{Category::manifest, "Failed to load release manifest: no\nroute", false}));
    EXPECT_EQ(logged().back(), "UpdateKit: manual check failed — Failed to load release manifest: no\\nroute");
    EXPECT_TRUE(coordinator->stagedUpdate()) << "what was staged before stays";
}

TEST_F(UpdateCoordinatorTest, AManifestThatIsNoneIsAFailure) {
    world.manifest = "<html>404</html>";
    EXPECT_EQ(failure().category, Category::manifest);
    offer("abc");
    EXPECT_EQ(failure(), (UpdateFailureInfo{Category::unknown, "Unable to parse version: abc", false}));
}

TEST_F(UpdateCoordinatorTest, ARunningVersionThatIsNotKnownIsAFailure) {
    world.info = {};
    EXPECT_EQ(failure(),
              (UpdateFailureInfo{Category::unknown, "Main bundle does not contain a version string", false}));
    world.info = {{"CFBundleVersion", "build 7"}};
    EXPECT_EQ(failure(), (UpdateFailureInfo{Category::unknown, "Unable to parse version: build 7", false}));
    world.info = {{"CFBundleVersion", "1.4"}};
    events.clear();
    check();
    EXPECT_TRUE(std::holds_alternative<UpdateNoUpdateInfo>(events[0]));
}

TEST_F(UpdateCoordinatorTest, WhateverFailsOnTheWayLeavesNoFolderAndTheNextCheckBeginsAfresh) {
    struct Case {
        std::string operation;
        std::exception_ptr error;
        UpdateFailureInfo expected;
    };
    const auto foreign = std::make_exception_ptr(std::runtime_error("disk full"));
    const auto own = std::make_exception_ptr(UpdateKitError(Code::validationFailed, "not signed"));
    const std::vector<Case> cases{
        {"makeStagingDirectory", foreign, {Category::unknown, "disk full", false}},
        {"download", foreign, {Category::download, "Failed to download update archive: disk full", false}},
        {"download", own, {Category::validation, "Update validation failed: not signed", false}},
        {"makeFolder", foreign, {Category::unknown, "disk full", false}},
        {"extract", foreign, {Category::extraction, "Failed to extract update archive", false}},
        {"extract", own, {Category::extraction, "Failed to extract update archive", false}},
        {"validate", own, {Category::validation, "Update validation failed: not signed", false}},
    };
    for (const auto& [operation, error, expected] : cases) {
        SCOPED_TRACE(operation);
        offer("1.4.0");
        check();
        ASSERT_TRUE(coordinator->stagedUpdate());
        offer("1.5.0");
        world.failures = {{operation, error}};
        EXPECT_EQ(failure(), expected);
        EXPECT_FALSE(coordinator->stagedUpdate()) << "a broken release costs the one before";
        EXPECT_THAT(world.staging(), IsEmpty());
        world.failures.clear();
        events.clear();
        check();
        EXPECT_THAT(events, ElementsAre(UpdateEvent(readyInfo("1.5.0"))));
        coordinator->discardStagedUpdate();
    }
}

TEST_F(UpdateCoordinatorTest, TheReasonWhyAnArchiveWasNotUnpackedIsInTheLog) {
    world.failures["extract"] = std::make_exception_ptr(std::runtime_error("a name with \"..\""));
    failure();
    EXPECT_THAT(logged(), testing::Contains("UpdateKit: extraction failed — a name with \"..\""));
}

TEST_F(UpdateCoordinatorTest, AnArchiveMustHoldOneApplication) {
    world.contents = {"A.app", "x/B.app"};
    EXPECT_EQ(failure().summary, "Multiple .app bundles found in update archive");
    world.contents = {".A.app"};
    EXPECT_EQ(failure(), (UpdateFailureInfo{Category::extraction, "No .app bundle found in update archive", false}));
    EXPECT_THAT(world.staging(), IsEmpty());
    world.contents = {"A.app/Contents/Frameworks/B.app"};
    check();
    EXPECT_EQ(coordinator->stagedUpdate()->application.filename(), "A.app");
}

TEST_F(UpdateCoordinatorTest, TheArchiveOfAManifestInAFileLiesBesideIt) {
    make("file:///srv/re%20leases/latest.json");
    check();
    EXPECT_THAT(world.takeOperations(), testing::Contains("download file:///srv/re%20leases/Vimble-1.4.0.zip"));
}

TEST_F(UpdateCoordinatorTest, WhatTheManifestAloneTellsIsNamedAfterTheArchive) {
    world.manifest = R"({"version": "1.4", "url": "https://cdn/x/My%20App.zip?y=/z"})";
    std::optional<AvailableUpdate> found;
    coordinator->availableUpdate([&](Outcome<std::optional<AvailableUpdate>> outcome) { found = outcome.take(); });
    loop.run();
    ASSERT_TRUE(found);
    EXPECT_EQ(found->info,
              (ReadyUpdateInfo{"1.4.0", "My App", std::nullopt, *Url::parse("https://cdn/x/My%20App.zip?y=/z")}));
    EXPECT_THAT(world.staging(), IsEmpty());
    EXPECT_THAT(events, IsEmpty());
}

// ---- several at a time

TEST_F(UpdateCoordinatorTest, ACheckDuringACheckIsSkippedWithoutAnEvent) {
    for (const char* operation : {"load", "download", "extract", "validate"}) {
        SCOPED_TRACE(operation);
        coordinator->discardStagedUpdate();
        events.clear();
        world.held = {operation};
        check(UpdateCheckMode::manual);
        ASSERT_TRUE(world.isPending(operation));
        logged();
        check(UpdateCheckMode::manual);
        EXPECT_THAT(logged(),
                    ElementsAre("UpdateKit: manual check skipped (already in progress or network unreachable)"));
        EXPECT_THAT(events, IsEmpty());
        world.held.clear();
        world.release(operation);
        loop.run();
        EXPECT_EQ(events.size(), 1U);
    }
}

TEST_F(UpdateCoordinatorTest, ReachabilityIsHeardWhileACheckWaits) {
    world.held = {"load"};
    check();
    coordinator->updateReachability(true);
    loop.run();
    EXPECT_EQ(logged().back(), "UpdateKit: automatic check skipped (already in progress or network unreachable)");
}

TEST_F(UpdateCoordinatorTest, TwoPreparationsAtATimeLeaveOneStagedUpdate) {
    world.held = {"download"};
    int ended = 0;
    for (int i = 0; i < 2; ++i)
        coordinator->prepareLatestUpdate([&](Outcome<std::optional<StagedUpdate>> outcome) {
            EXPECT_TRUE(outcome.hasValue());
            ++ended;
        });
    loop.run();
    EXPECT_EQ(world.staging().size(), 2U);
    while (world.release("download")) loop.run();
    EXPECT_EQ(ended, 2);
    EXPECT_EQ(world.staging().size(), 1U);
    EXPECT_TRUE(std::filesystem::exists(coordinator->stagedUpdate()->application));
}

// ---- when

TEST_F(UpdateCoordinatorTest, AnAutomaticCheckWaitsForTheFirstWordOfANetwork) {
    coordinator->startAutomaticChecks();
    coordinator->startAutomaticChecks();
    loop.run();
    EXPECT_EQ(loads(), 0U);
    ASSERT_TRUE(world.reachability);
    world.reachability(false);
    world.reachability(false);
    loop.run();
    EXPECT_EQ(loads(), 0U);
    world.reachability(true);
    loop.run();
    world.reachability(true);
    loop.run();
    EXPECT_EQ(loads(), 1U);
    world.reachability(false);
    world.reachability(true);
    loop.run();
    EXPECT_EQ(loads(), 1U);
}

TEST_F(UpdateCoordinatorTest, AnAutomaticCheckWithoutANetworkIsSkipped) {
    check(UpdateCheckMode::automatic);
    EXPECT_THAT(logged(),
                ElementsAre("UpdateKit: automatic check skipped (already in progress or network unreachable)"));
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(UpdateCoordinatorTest, AManifestInAFileIsCheckedAtOnceAndWatchesNoNetwork) {
    make("file:///srv/latest.json");
    coordinator->startAutomaticChecks();
    loop.run();
    EXPECT_EQ(loads(), 1U);
    EXPECT_FALSE(world.reachability);
    EXPECT_EQ(events.size(), 1U);
}

TEST_F(UpdateCoordinatorTest, ChecksGoOnHourlyHoweverTheyEnd) {
    make("file:///srv/latest.json");
    world.failures["load"] = std::make_exception_ptr(std::runtime_error("gone"));
    coordinator->startAutomaticChecks();
    loop.run();
    EXPECT_EQ(loads(), 1U);
    loop.advance(3599);
    EXPECT_EQ(loads(), 0U);
    loop.advance(1);
    EXPECT_EQ(loads(), 1U);
    world.failures.clear();
    loop.advance(3600);
    EXPECT_EQ(loads(), 1U);
    loop.advance(10 * 3600);
    EXPECT_EQ(loads(), 10U);
}

TEST_F(UpdateCoordinatorTest, TheHourBeginsWhenTheCheckBeforeHasEnded) {
    make("file:///srv/latest.json");
    coordinator->startAutomaticChecks();
    loop.run();
    world.held = {"load"};
    loop.advance(3600);
    EXPECT_TRUE(world.isPending("load"));
    loop.advance(1800);
    world.held.clear();
    world.takeOperations();
    world.release("load");
    loop.advance(3599);
    EXPECT_EQ(loads(), 1U);
    loop.advance(1);
    EXPECT_EQ(loads(), 1U);
}

TEST_F(UpdateCoordinatorTest, TheNetworksReturnDoesNotResetTheHour) {
    coordinator->startAutomaticChecks();
    loop.advance(3000);
    world.reachability(true);
    loop.run();
    EXPECT_EQ(loads(), 1U);
    loop.advance(600);
    EXPECT_EQ(loads(), 1U);
}

// ---- installing

TEST_F(UpdateCoordinatorTest, TheInstallerIsToldOfBothBundlesAndTheProcess) {
    check();
    events.clear();
    coordinator->install();
    loop.run();
    EXPECT_THAT(world.installations,
                ElementsAre(InstallerRequest{coordinator->stagedUpdate()->application, "/opt/Vimble.app", 4711}));
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(UpdateCoordinatorTest, WithoutAStagedUpdateThereIsNothingToInstall) {
    coordinator->install();
    EXPECT_THAT(
        events,
        ElementsAre(UpdateEvent(UpdateFailureInfo{Category::installation, "No prepared update is available", true})));
}

TEST_F(UpdateCoordinatorTest, AnInstallationThatFailsKeepsTheUpdateForAnotherTry) {
    check();
    const std::vector<std::pair<std::exception_ptr, UpdateFailureInfo>> cases{
        {std::make_exception_ptr(InstallerClientError::installationFailed("Move Vimble.", true)),
         {Category::installation, "Move Vimble.", true}},
        {std::make_exception_ptr(InstallerClientError::connectionFailed("nobody there")),
         {Category::installation, "Installation failed: nobody there", false}},
        {std::make_exception_ptr(UpdateKitError(Code::noPreparedUpdate)),
         {Category::installation, "No prepared update is available", true}},
        {std::make_exception_ptr(std::runtime_error("odd")),
         {Category::installation, "Installation failed: odd", false}},
    };
    for (const auto& [error, expected] : cases) {
        events.clear();
        world.failures["install"] = error;
        coordinator->install();
        loop.run();
        EXPECT_THAT(events, ElementsAre(UpdateEvent(expected)));
        EXPECT_TRUE(coordinator->stagedUpdate());
    }
    EXPECT_EQ(world.installations.size(), cases.size());
}

TEST_F(UpdateCoordinatorTest, TheInstallerIsAskedOnceAtATime) {
    check();
    world.held = {"install"};
    for (int i = 0; i < 3; ++i) coordinator->install();
    EXPECT_EQ(world.installations.size(), 1U);
    world.release("install");
    coordinator->install();
    EXPECT_EQ(world.installations.size(), 2U);
}

TEST_F(UpdateCoordinatorTest, WhatAnInstallerMayBeAtWorkInIsNotRemovedForANewerRelease) {
    const auto prepareNewer = [this](const std::string& version) {
        const auto before = coordinator->stagedUpdate()->stagingDirectory;
        offer(version);
        check();
        EXPECT_EQ(coordinator->stagedUpdate()->version, SemanticVersion::parse(version));
        return before;
    };
    check();
    // An installer that does not answer may still be at work.
    world.failures["install"] = std::make_exception_ptr(InstallerClientError::connectionFailed("no answer"));
    coordinator->install();
    loop.run();
    EXPECT_TRUE(std::filesystem::exists(prepareNewer("1.5.0")));

    world.held = {"install"};
    world.failures["install"] = std::make_exception_ptr(InstallerClientError::installationFailed("no", false));
    coordinator->install();
    const auto atWork = prepareNewer("1.6.0");
    EXPECT_TRUE(std::filesystem::exists(atWork));
    world.release("install");
    EXPECT_FALSE(std::filesystem::exists(atWork)) << "it is nobody's any more";

    coordinator->install();
    world.release("install");
    EXPECT_TRUE(std::filesystem::exists(coordinator->stagedUpdate()->stagingDirectory));
    EXPECT_FALSE(std::filesystem::exists(prepareNewer("1.7.0")));
}

// ---- the end

TEST_F(UpdateCoordinatorTest, ItsDeathCallsOffWhatItWaitsForAndRemovesWhatIsHalfDone) {
    for (const char* operation : {"load", "download", "extract", "validate"}) {
        SCOPED_TRACE(operation);
        make(manifestUrl);
        world.held = {operation};
        check();
        ASSERT_TRUE(world.isPending(operation));
        const std::weak_ptr<UpdateCoordinator> weak = coordinator;
        coordinator.reset();
        EXPECT_TRUE(weak.expired());
        EXPECT_THAT(world.staging(), IsEmpty());
        world.release(operation);
        loop.run();
        EXPECT_THAT(events, IsEmpty());
    }
}

TEST_F(UpdateCoordinatorTest, ItsDeathEndsTheRhythmAndTheWatch) {
    coordinator->startAutomaticChecks();
    EXPECT_TRUE(world.reachability);
    world.reachability(true);
    coordinator.reset();
    EXPECT_FALSE(world.reachability);
    EXPECT_FALSE(loop.hasTimers());
    loop.advance(7200);
    EXPECT_EQ(loads(), 0U);
}

TEST_F(UpdateCoordinatorTest, WhatIsStagedOutlivesIt) {
    check();
    const auto application = coordinator->stagedUpdate()->application;
    coordinator.reset();
    EXPECT_TRUE(std::filesystem::exists(application));
}

TEST_F(UpdateCoordinatorTest, ItMayDieOfItsOwnEvent) {
    coordinator = std::make_shared<UpdateCoordinator>(loop, *Url::parse(manifestUrl), world.environment(),
                                                      [this](const UpdateEvent&) { coordinator.reset(); });
    coordinator->runCheck(UpdateCheckMode::manual);
    loop.run();
    EXPECT_EQ(coordinator, nullptr);
}

}  // namespace
