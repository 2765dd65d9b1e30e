#include "UpdateKit/InstallerService.h"

#include "UpdateKit/InstallerReply.h"
#include "UpdateKit/InstallerServiceError.h"

#include <algorithm>
#include <cerrno>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace {

using Path = std::filesystem::path;
using Code = InstallerServiceError::Code;

/// Folders in memory: names, each with a word for its contents. The n-th operation that changes something can
/// fail.
class MemoryFiles : public FileManager, public BundleReader {
public:
    bool exists(const Path& path) override {
        return contents.contains(path) || contents.contains(path.parent_path().parent_path().parent_path());
    }
    Path prepareMove(const Path& source, const Path& destination) override {
        change("prepare");
        if (!isOtherVolume) return source;
        const Path copy = destination.native() + ".copy";
        contents[copy] = contents.at(source);
        return copy;
    }
    void move(const Path& source, const Path& destination) override {
        change("move " + source.filename().native() + " " + destination.filename().native());
        if (!contents.contains(source)) throw std::system_error(ENOENT, std::generic_category(), "move");
        if (contents.contains(destination)) throw std::system_error(EEXIST, std::generic_category(), "move");
        contents[destination] = contents.at(source);
        contents.erase(source);
    }
    void remove(const Path& path) override {
        change("remove " + path.filename().native());
        contents.erase(path);
    }
    std::optional<AppBundle> open(const Path& path) override {
        if (!contents.contains(path) || contents[path] == "junk") return std::nullopt;
        AppBundle bundle{path, {{"CFBundleExecutable", "Vimble"}}};
        if (contents[path] == "bare") bundle.info.clear();
        return bundle;
    }

    std::map<Path, std::string> contents;
    bool isOtherVolume = false;
    int failing = 0;  // the number of the operation that fails, from 1
    int error = EIO;
    std::vector<std::string> log;

private:
    void change(const std::string& what) {
        log.push_back(what);
        if (++count == failing) throw std::system_error(error, std::generic_category(), what);
    }
    int count = 0;
};

class InstallerServiceTest : public testing::Test {
protected:
    InstallerServiceTest() {
        files.contents = {{"/apps/Vimble.app", "old"}, {"/tmp/New.app", "new"}};
        profiles = {{"/apps/Vimble.app", {CodeSignatureProfile::Kind::signed_, "T", {"A"}}},
                    {"/tmp/New.app", {CodeSignatureProfile::Kind::signed_, "T", {"A"}}}};
    }

    InstallerEnvironment environment() {
        InstallerEnvironment result;
        result.readCodeSignatureProfile = [this](const Path& path) {
            files.log.push_back("profile " + path.native());
            if (path == brokenSeal) throw std::runtime_error("the seal is broken");
            return profiles.at(path);
        };
        result.removeQuarantine = [this](const Path& path) {
            files.log.push_back("unmark " + path.native());
            if (!quarantineError.empty()) throw std::runtime_error(quarantineError);
        };
        result.relaunchApp = [this](const Path& path) {
            files.log.push_back("relaunch " + path.native());
            if (!relaunchError.empty()) throw std::runtime_error(relaunchError);
        };
        result.terminateProcess = [this](std::int32_t process, const Path& application) {
            files.log.push_back("terminate " + std::to_string(process) + " " + application.native());
            if (!terminationError.empty())
                throw InstallerServiceError(Code::processTerminationFailed, terminationError);
        };
        result.forceTerminateProcess = [this](std::int32_t process) {
            files.log.push_back("kill " + std::to_string(process));
            if (diesWhenKilled) looksAlive = 0;
        };
        result.processIsRunning = [this](std::int32_t) {
            ++looks;
            return looksAlive > 0 && looksAlive-- > 0;
        };
        result.sleep = [this](double seconds) { slept += seconds; };
        return result;
    }

    std::unique_ptr<InstallerService> service() {
        return std::make_unique<InstallerService>(files, files, environment(), policy);
    }

    template <class Operation>
    std::pair<Code, std::string> failure(Operation operation) {
        try {
            operation();
        } catch (const InstallerServiceError& error) {
            return {error.code(), error.what()};
        }
        ADD_FAILURE() << "nothing failed";
        return {};
    }
    std::pair<Code, std::string> validationFailure() {
        return failure([&] { service()->validate(request); });
    }
    std::pair<Code, std::string> runFailure() {
        return failure([&] { service()->run(request); });
    }

    MemoryFiles files;
    std::map<Path, CodeSignatureProfile> profiles;
    InstallerPollingPolicy policy;
    InstallerLaunchRequest request{"/tmp/New.app", "/apps/Vimble.app", 412};
    Path brokenSeal;
    std::string quarantineError, relaunchError, terminationError;
    int looksAlive = 0;  // how many looks find the process running
    bool diesWhenKilled = true;
    int looks = 0;
    double slept = 0;
};

using Log = std::vector<std::string>;

TEST_F(InstallerServiceTest, ValidationLooksAtBothAndTakesTheMarksOff) {
    service()->validate(request);
    EXPECT_EQ(files.log, (Log{"profile /apps/Vimble.app", "profile /tmp/New.app", "unmark /tmp/New.app"}));
}

TEST_F(InstallerServiceTest, AMissingBundleIsRefusedTheStagedOneFirst) {
    request.currentApp = "/apps/Gone.app";
    EXPECT_EQ(validationFailure(),
              std::pair(Code::missingAppBundle, std::string("Missing app bundle at /apps/Gone.app")));
    request.stagedApp = "/tmp/Gone.app";
    EXPECT_EQ(validationFailure(),
              std::pair(Code::missingAppBundle, std::string("Missing app bundle at /tmp/Gone.app")));
}

TEST_F(InstallerServiceTest, WhatIsNoBundleOrHasNoExecutableIsRefused) {
    for (const char* content : {"junk", "bare"}) {
        files.contents["/tmp/New.app"] = content;
        EXPECT_EQ(validationFailure(),
                  std::pair(Code::missingExecutable, std::string("App bundle at /tmp/New.app has no executable")));
    }
}

TEST_F(InstallerServiceTest, AnotherSignerIsRefusedBeforeAnythingIsTouched) {
    profiles["/tmp/New.app"].authorityChain = {"B"};
    EXPECT_EQ(validationFailure().first, Code::signatureMismatch);
    profiles["/tmp/New.app"] = {CodeSignatureProfile::Kind::adhoc, std::nullopt, {}};
    EXPECT_EQ(validationFailure().first, Code::signatureMismatch);
    EXPECT_EQ(std::count(files.log.begin(), files.log.end(), "unmark /tmp/New.app"), 0);
}

TEST_F(InstallerServiceTest, ASealThatCannotBeReadPassesAsItIs) {
    brokenSeal = "/tmp/New.app";
    EXPECT_THROW(service()->validate(request), std::runtime_error);
}

TEST_F(InstallerServiceTest, MarksThatCannotBeTakenOffAreAFailure) {
    quarantineError = "no tool";
    EXPECT_EQ(validationFailure(),
              std::pair(Code::replacementFailed, std::string("Unable to replace installed app: no tool")));
}

TEST_F(InstallerServiceTest, TheUpdateTakesTheInstalledNameAndTheOldOneGoes) {
    service()->run(request);
    EXPECT_EQ(files.log, (Log{"prepare", "terminate 412 /apps/Vimble.app", "remove Vimble.previous-412.app",
                              "move Vimble.app Vimble.previous-412.app", "move New.app Vimble.app",
                              "remove Vimble.previous-412.app", "relaunch /apps/Vimble.app"}));
    EXPECT_EQ(files.contents, (std::map<Path, std::string>{{"/apps/Vimble.app", "new"}}));
    EXPECT_EQ(looks, 1);
    EXPECT_EQ(slept, 0);
}

TEST_F(InstallerServiceTest, ASlashBehindAPathIsNoPartOfItsName) {
    request.currentApp = "/apps/Vimble.app/";
    request.stagedApp = "/tmp/New.app/";
    service()->run(request);
    EXPECT_EQ(files.contents, (std::map<Path, std::string>{{"/apps/Vimble.app", "new"}}));
}

TEST_F(InstallerServiceTest, AStaleBackupIsRemovedFirst) {
    files.contents["/apps/Vimble.previous-412.app"] = "stale";
    service()->run(request);
    EXPECT_EQ(files.contents, (std::map<Path, std::string>{{"/apps/Vimble.app", "new"}}));
}

TEST_F(InstallerServiceTest, FromAnotherVolumeACopyIsMadeBeforeTheProcessEnds) {
    files.isOtherVolume = true;
    service()->run(request);
    EXPECT_EQ(files.log.at(0), "prepare");
    EXPECT_EQ(files.log.at(1), "terminate 412 /apps/Vimble.app");
    EXPECT_EQ(files.contents, (std::map<Path, std::string>{{"/apps/Vimble.app", "new"}}));
}

TEST_F(InstallerServiceTest, ACopyThatIsNotNeededIsRemoved) {
    files.isOtherVolume = true;
    terminationError = "not allowed";
    EXPECT_EQ(runFailure(),
              std::pair(Code::processTerminationFailed, std::string("Unable to terminate running app: not allowed")));
    EXPECT_EQ(files.contents, (std::map<Path, std::string>{{"/apps/Vimble.app", "old"}, {"/tmp/New.app", "new"}}));
}

TEST_F(InstallerServiceTest, AProcessThatGoesIsNotKilled) {
    looksAlive = 3;
    service()->run(request);
    EXPECT_EQ(looks, 4);
    EXPECT_NEAR(slept, 0.3, 1e-9);
    EXPECT_EQ(std::count(files.log.begin(), files.log.end(), "kill 412"), 0);
}

TEST_F(InstallerServiceTest, AfterTheLastPauseThereIsOneMoreLook) {
    looksAlive = 50;
    service()->run(request);
    EXPECT_EQ(looks, 51);
    EXPECT_EQ(std::count(files.log.begin(), files.log.end(), "kill 412"), 0);
}

TEST_F(InstallerServiceTest, AProcessThatStaysIsKilled) {
    looksAlive = 1000;
    service()->run(request);
    EXPECT_EQ(looks, 52);
    EXPECT_NEAR(slept, 5.0, 1e-9);
    EXPECT_EQ(std::count(files.log.begin(), files.log.end(), "kill 412"), 1);
}

TEST_F(InstallerServiceTest, WithoutGraceThereIsOneLookBeforeTheKill) {
    for (const int attempts : {0, -1, -2147483647}) {
        policy.gracefulAttempts = attempts;
        files.contents = {{"/apps/Vimble.app", "old"}, {"/tmp/New.app", "new"}};
        looksAlive = 1000;
        looks = 0;
        service()->run(request);
        EXPECT_EQ(looks, 2);
        EXPECT_EQ(slept, 0);
    }
    EXPECT_EQ(std::count(files.log.begin(), files.log.end(), "kill 412"), 3);
}

TEST_F(InstallerServiceTest, AProcessThatCannotBeKilledKeepsItsBundle) {
    looksAlive = 1000;
    diesWhenKilled = false;
    EXPECT_EQ(runFailure(), std::pair(Code::processDidNotExit, std::string("Running app did not exit in time")));
    EXPECT_EQ(looks, 102);
    EXPECT_NEAR(slept, 10.0, 1e-9);
    EXPECT_EQ(files.contents, (std::map<Path, std::string>{{"/apps/Vimble.app", "old"}, {"/tmp/New.app", "new"}}));
}

TEST_F(InstallerServiceTest, WhicheverOperationFailsTheOldBundleOrTheNewIsThere) {
    for (const bool isOtherVolume : {false, true})
        for (int failing = 1; failing <= 5; ++failing) {
            SCOPED_TRACE("operation " + std::to_string(failing) + (isOtherVolume ? ", across volumes" : ""));
            MemoryFiles fresh;
            fresh.contents = {{"/apps/Vimble.app", "old"}, {"/tmp/New.app", "new"}};
            fresh.isOtherVolume = isOtherVolume;
            fresh.failing = failing;
            InstallerService service(fresh, fresh, environment(), policy);
            files.log.clear();
            bool hasFailed = false;
            try {
                service.run(request);
            } catch (const InstallerServiceError& error) {
                hasFailed = true;
                EXPECT_EQ(error.code(), Code::replacementFailed);
            }
            // 1: preparing; 2 and 5: the backup's removal, which does not matter; 3 and 4: the two moves.
            EXPECT_EQ(hasFailed, failing == 1 || failing == 3 || failing == 4);
            EXPECT_EQ(fresh.contents.at("/apps/Vimble.app"), hasFailed ? "old" : "new");
            EXPECT_EQ(fresh.contents.size(), hasFailed || (failing == 5) ? 2U : 1U);
            const auto terminations = std::count(files.log.begin(), files.log.end(), "terminate 412 /apps/Vimble.app");
            EXPECT_EQ(terminations, failing == 1 ? 0 : 1);
        }
}

TEST_F(InstallerServiceTest, MissingPermissionAndAFullDiskAreToldToTheUser) {
    for (const int failing : {1, 3, 4})
        for (const int error : {EACCES, EPERM, EROFS, ENOSPC}) {
            MemoryFiles fresh;
            fresh.contents = {{"/apps/Vimble.app", "old"}, {"/tmp/New.app", "new"}};
            fresh.failing = failing;
            fresh.error = error;
            const auto reply = installUpdate(
                request, [&] { return std::make_unique<InstallerService>(fresh, fresh, environment(), policy); });
            EXPECT_TRUE(reply.shouldPresentToUser);
            EXPECT_TRUE(reply.errorMessage.value_or("").starts_with(error == ENOSPC ? "There isn't enough"
                                                                                    : "UpdateKit couldn't replace"));
            EXPECT_EQ(fresh.contents.at("/apps/Vimble.app"), "old");
        }
}

TEST_F(InstallerServiceTest, ARelaunchThatFailsLeavesTheNewBundle) {
    relaunchError = "no such file";
    EXPECT_EQ(runFailure(),
              std::pair(Code::relaunchFailed, std::string("Unable to relaunch updated app: no such file")));
    EXPECT_EQ(files.contents, (std::map<Path, std::string>{{"/apps/Vimble.app", "new"}}));
}

TEST_F(InstallerServiceTest, TheReplyTellsWhatWentWrong) {
    const auto make = [this] { return service(); };
    profiles["/tmp/New.app"].authorityChain = {"B"};
    EXPECT_EQ(installUpdate(request, make),
              (InstallerReply{"Staged update is not signed by the same identity as the installed app", false}));
    brokenSeal = "/tmp/New.app";
    EXPECT_EQ(installUpdate(request, make), (InstallerReply{"the seal is broken", false}));
    EXPECT_EQ(files.contents.at("/apps/Vimble.app"), "old");
    brokenSeal.clear();
    profiles["/tmp/New.app"].authorityChain = {"A"};
    EXPECT_EQ(installUpdate(request, make), InstallerReply());
    EXPECT_EQ(files.contents.at("/apps/Vimble.app"), "new");
}

}  // namespace
