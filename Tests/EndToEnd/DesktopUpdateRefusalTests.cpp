// Updates that are refused, and updates that fail half-way: the program runs on, and says why.

#include "DesktopUpdateFixture.h"

#include <csignal>
#include <functional>

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::SizeIs;

namespace {

class DesktopUpdateRefusalTest : public DesktopUpdateFixture {
protected:
    std::string log() {
        ann->program().readAvailable();
        return ann->program().errors();
    }

    /// Waits for a new failure in the log. @return the log's text for it
    std::string failure() {
        // After a first failure of the test, don't wait out the time limit again and again.
        if (HasFailure()) return {};
        constexpr char word[] = "zorvane.Vimble/App: UpdateKit failure ";
        EXPECT_TRUE(ann->comesTrue([&] { return lines(log(), word).size() > failures; })) << log();
        const auto found = lines(log(), word);
        if (found.size() <= failures) return {};
        EXPECT_THAT(found, SizeIs(++failures));
        return found.back().substr(sizeof word - 1);
    }

    /// Fails unless the program still runs, and sends and receives texts.
    void expectGoesOn() {
        EXPECT_THAT(running(), ElementsAre(ann->program().id()));
        ann->doubleClick("People", "Bob, online");
        const std::string text = "still here " + std::to_string(failures);
        ann->say("Bob", text);
        EXPECT_TRUE(bob->lineWith(text));
        ann->press("ctrl+w");
        EXPECT_TRUE(ann->comesTrue([&] { return !ann->hasWindow("Bob"); }));
    }

    void expectUntouched(const std::string& version) {
        EXPECT_EQ(Publisher::versionOf(bundle()), version);
        EXPECT_TRUE(Publisher::isSealed(bundle()));
        EXPECT_THAT(namesIn(programs), ElementsAre("Vimble.app"));
    }

    /// Clicks "Update", and fails unless the new version takes over.
    void expectUpdates(const std::string& version) {
        seesBar(version);
        const pid_t old = ann->program().id();
        clickUpdate();
        const pid_t process = successorOf(old);
        ann->sees("People", "Bob, online");
        EXPECT_EQ(Publisher::versionOf(bundle()), version);
        EXPECT_TRUE(Publisher::isSealed(bundle()));
        quitSuccessor(process);
    }

    std::size_t failures = 0;  // seen in the log so far
};

}  // namespace

TEST_F(DesktopUpdateRefusalTest, NothingIsOfferedButANewerOneByTheSameIdentity) {
    const fs::path offered = world.folder.path / "offered" / "Vimble.app";
    const auto offer = [&](const std::string& claimed, const std::string& shipped, const std::function<void()>& seal) {
        fs::remove_all(offered);
        publisher.makeBundle(offered, shipped);
        seal();
        publisher.publish(claimed, offered);
        checkForUpdates();
    };
    const auto signedByUs = [&] { publisher.sign(offered); };
    const std::string notOurs =
        "(validation): Update validation failed: Downloaded app is not signed by the same identity as the current app";
    const std::string broken =
        "(validation): Update validation failed: Unable to inspect code signature for Vimble.app";

    install("1.1.0", publisher.manifest());
    publisher.writeManifest("{\"version\": \"1.1.0\", \"url\": \"Vimble-1.1.0.zip\"}");
    start();
    EXPECT_TRUE(ann->program().errorWith("automatic check completed — no update available"));
    ASSERT_FALSE(HasFailure());

    offer("1.2.0", "1.2.0", [&] {
        publisher.sign(offered, chainOf({{"Somebody Else", "OTHER01"}, {"Somebody's Root", "", true}}));
    });
    EXPECT_EQ(failure(), notOurs);
    offer("1.2.0", "1.2.0", [&] { publisher.sign(offered, usualChain()); });
    EXPECT_EQ(failure(), notOurs) << "the same names, and other keys";
    offer("1.2.0", "1.2.0", [&] { publisher.sealAdhoc(offered); });
    EXPECT_EQ(failure(), notOurs);
    offer("1.2.0", "1.2.0", [&] {
        signedByUs();
        Publisher::rewrite(offered / "Contents/Resources/zorvane.Vimble.desktop", "[Desktop Entry]\n");
    });
    EXPECT_EQ(failure(), broken);
    offer("1.2.0", "1.2.0", [&] {
        signedByUs();
        fs::remove(offered / "Contents/_CodeSignature/Signature");
    });
    EXPECT_EQ(failure(), broken);
    offer("1.2.0", "1.1.5", signedByUs);
    EXPECT_EQ(failure(),
              "(validation): Update validation failed: Downloaded app version 1.1.5 does not match manifest "
              "version 1.2.0");
    EXPECT_FALSE(hasBar());
    EXPECT_TRUE(ann->comesTrue([&] { return staged().empty(); })) << testing::PrintToString(staged());
    offer("1.0.9", "1.0.9", signedByUs);
    ann->sees("People", "No Update Available");
    ann->picture("older");
    EXPECT_FALSE(hasBar());
    expectGoesOn();
    expectUntouched("1.1.0");

    offer("1.2.0", "1.2.0", signedByUs);
    expectUpdates("1.2.0");
}

TEST_F(DesktopUpdateRefusalTest, WhatWasAlteredBehindTheBarIsRefusedAndPutRightIsTaken) {
    install("1.0.0", publisher.manifest());
    publisher.release("1.2.0", publisher.manifest());
    start();
    seesBar("1.2.0");
    ASSERT_FALSE(HasFailure());
    ASSERT_THAT(staged(), SizeIs(1));
    const fs::path file = stagedBundle() / "Contents/Resources/zorvane.Vimble.desktop";
    const std::string text = Publisher::textIn(file);
    Publisher::rewrite(file, text + "Exec=something else\n");
    clickUpdate();
    const std::string why = failure();
    EXPECT_THAT(why, HasSubstr("(installation): "));
    EXPECT_THAT(why, HasSubstr("Contents/Resources/zorvane.Vimble.desktop"));
    expectGoesOn();
    expectUntouched("1.0.0");
    ann->picture("refused");

    Publisher::rewrite(file, text);
    expectUpdates("1.2.0");
}

TEST_F(DesktopUpdateRefusalTest, WithoutItsInstallerTheBarDoesNothingAndTheLogSaysWhy) {
    publisher.makeBundle(bundle(), "1.0.0", publisher.manifest());
    fs::remove_all(bundle() / "Contents/Services");
    publisher.sign(bundle());
    publisher.release("1.2.0");
    start();
    EXPECT_TRUE(ann->program().errorWith("Updates can't be installed. The bundle has no installer"));
    seesBar("1.2.0");
    clickUpdate();
    EXPECT_THAT(failure(), HasSubstr(std::string("(installation): Installation failed: The name ") + serviceName));
    expectGoesOn();
    expectUntouched("1.0.0");
    EXPECT_TRUE(hasBar());
}

TEST_F(DesktopUpdateRefusalTest, AnInstallerThatIsKilledAtWorkIsToldAtOnceAndTheNextOneSucceeds) {
    installWithHeldTool("1.0.0", publisher.manifest());
    publisher.release("1.2.0", publisher.manifest());
    start();
    seesBar("1.2.0");
    ASSERT_FALSE(HasFailure());
    holdTool();
    clickUpdate();
    ASSERT_TRUE(isToolHeld());
    const auto service = ann->screen().processOf(serviceName);
    ASSERT_TRUE(service);
    ::kill(*service, SIGKILL);
    EXPECT_THAT(failure(), HasSubstr("(installation): Installation failed: "));
    letToolGo();
    expectGoesOn();
    expectUntouched("1.0.0");
    expectUpdates("1.2.0");
}

TEST_F(DesktopUpdateRefusalTest, KilledWhileItIsBeingReplacedItComesBackAsTheNewOneWithAllThatWasSaid) {
    installWithHeldTool("1.0.0", publisher.manifest());
    publisher.release("1.2.0", publisher.manifest());
    start();
    ann->doubleClick("People", "Bob, online");
    ann->say("Bob", "before the end");
    EXPECT_TRUE(ann->comesTrue([&] { return world.isSaved("ann", "before the end"); }));
    seesBar("1.2.0");
    ASSERT_FALSE(HasFailure());
    holdTool();
    clickUpdate();
    ASSERT_TRUE(isToolHeld());
    const pid_t old = ann->program().id();
    ann->program().kill();
    letToolGo();
    // The installer starts it without arguments, which died with the old process. So this one uses the default data
    // folder, as a user's does; for Ann's data, the test ends it and starts it again with hers.
    const pid_t process = successorOf(old);
    EXPECT_EQ(Publisher::versionOf(bundle()), "1.2.0");
    EXPECT_TRUE(Publisher::isSealed(bundle()));
    ::kill(process, SIGKILL);
    EXPECT_TRUE(ann->comesTrue([&] { return running().empty(); }));
    start();
    ann->sees("Bob", "before the end");
    EXPECT_TRUE(ann->comesTrue([&] { return namesIn(programs) == std::vector<std::string>{"Vimble.app"}; }))
        << testing::PrintToString(namesIn(programs));
    EXPECT_TRUE(ann->comesTrue([&] { return staged().empty(); })) << testing::PrintToString(staged());
    ann->activate("People");
    ann->quit();
}
