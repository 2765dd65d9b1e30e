#include "DesktopKit/DesktopProgram.h"

#include "FakeDesktopMachine.h"
#include "TestSupport/LogLines.h"

#include <QAction>
#include <QDialog>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QTimer>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

using Outcome = SingleInstance::Outcome;

class DesktopProgramTest : public testing::Test {
protected:
    DesktopProgramTest() {
        qputenv("XDG_CACHE_HOME", QByteArray::fromStdString((machine.folder.path / "cache").string()));
    }
    ~DesktopProgramTest() override {
        program.reset();
        if (cacheBefore.isNull())
            qunsetenv("XDG_CACHE_HOME");
        else
            qputenv("XDG_CACHE_HOME", cacheBefore);
    }

    /// A start that finds the folder free, unless a program has it.
    DesktopStart start() {
        DesktopStart start;
        start.dataDir = machine.dataDir;
        start.folder = takeFolder(machine.dataDir, machine._loop.now());
        return start;
    }
    DesktopProgram& make(DesktopStart start) {
        program.reset();
        return *(program = std::make_unique<DesktopProgram>(std::move(start), machine));
    }
    /// Starts a program and its windows.
    void begin(DesktopStart start) {
        ASSERT_EQ(make(std::move(start)).begin(), std::nullopt);
        machine._loop.run();
        machine.takeDone();
    }
    void begin() { begin(start()); }
    /// Starts a program that is connected, with Ann (person 2) on the list.
    void beginConnected() {
        DesktopStart given = start();
        given.server = endpoint;
        begin(std::move(given));
        machine.path.update(true);
        machine._loop.run();
        ASSERT_THAT(machine.transport.links, SizeIs(testing::Ge(1u)));
        server = std::make_unique<FakeServer>(machine.transport.links.back(), keysOf(1).publicKey);
        server->accept({{keyTextOf(1), false, true}, {keyTextOf(2), false, true}});
        machine.takeDone();
    }
    /// Asks Qt to quit, as a session manager does.
    static void askToQuit() {
        QEvent quit(QEvent::Quit);
        QCoreApplication::sendEvent(qApp, &quit);
    }
    DesktopProgram::Ending end() {
        const DesktopProgram::Ending ending = program->end(0);
        program.reset();
        return ending;
    }

    static QMainWindow* window(const QString& title) {
        for (QWidget* each : QApplication::topLevelWidgets())
            if (each->windowTitle() == title && each->inherits("QMainWindow")) return static_cast<QMainWindow*>(each);
        return nullptr;
    }
    static bool isShown(const QString& title) {
        const QMainWindow* found = window(title);
        return found != nullptr && found->isVisible();
    }
    /// Chooses a command of the menu bar.
    static void choose(const QString& command) {
        for (const QAction* menu : window("People")->menuBar()->actions())
            for (QAction* action : menu->menu()->actions())
                if (action->text().remove('&') == command) return action->trigger();
        FAIL() << "there is no such command";
    }
    /// What the last run has left of the talk with Ann.
    std::vector<std::string> savedTalk() const {
        std::vector<std::string> texts;
        const State state = State::load(machine.dataDir, {});
        if (const Chat* talk = state.conversations.find(keyTextOf(2)))
            for (const Message& message : talk->messages) texts.push_back(message.text);
        return texts;
    }
    /// From now on nothing can be written where the folder was.
    void breakFolder() const {
        std::filesystem::rename(machine.dataDir, machine.folder.path / "moved");
        std::ofstream(machine.dataDir) << "in the way";
    }

    const Endpoint endpoint{"https://chat.example.org"};
    const QByteArray cacheBefore = qgetenv("XDG_CACHE_HOME");
    LogLines log;
    FakeDesktopMachine machine;
    std::unique_ptr<FakeServer> server;
    std::unique_ptr<DesktopProgram> program;
};

// ---- the beginning

TEST_F(DesktopProgramTest, ItTakesItsPlaceThenTheKeyThenTheMachineAndIsKnownToTheDesktopBehindTheFirstWindow) {
    EXPECT_EQ(make(start()).begin(), std::nullopt);
    EXPECT_THAT(machine.takeDone(),
                ElementsAre("claim in 500 ms for  with ", "open the desktop's store", "make services", "register"));
    EXPECT_EQ(FakeDesktopMachine::openWindowCount(), 1u);
    EXPECT_TRUE(isShown("People"));
    EXPECT_TRUE(machine.isFolderTaken());
    EXPECT_EQ(machine.path.startCount(), 1);
    EXPECT_TRUE(machine.transport.links.empty());
}

TEST_F(DesktopProgramTest, AFolderThatCantBeUsedIsToldBeforeAnythingIsAskedFor) {
    DesktopStart given = start();
    given.folder = FolderTrouble{"the disk is gone"};
    try {
        make(std::move(given)).run([] { return 0; });
        ADD_FAILURE() << "it started";
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "the disk is gone");
    }
    EXPECT_THAT(machine.done, IsEmpty());
}

TEST_F(DesktopProgramTest, AnotherNameOnTheBusDoesNotStopWhoHasTheFolder) {
    for (const Outcome outcome : {Outcome::forwarded, Outcome::noBus, Outcome::noAnswer}) {
        machine.claimOutcome = outcome;
        log.take();
        begin();
        EXPECT_TRUE(isShown("People"));
        EXPECT_THAT(log.take(), Contains("info zorvane.Vimble/main: Nobody will find this program over the session "
                                         "bus. no bus"));
        end();
    }
}

TEST_F(DesktopProgramTest, AServerThatIsGivenIsConnectedToAndItsWayIsWatched) {
    DesktopStart given = start();
    given.server = endpoint;
    EXPECT_EQ(make(std::move(given)).begin(), std::nullopt);
    machine._loop.run();
    EXPECT_THAT(machine.takeDone(), Contains("watch the way to https://chat.example.org"));
    machine.path.update(true);
    machine._loop.run();
    ASSERT_THAT(machine.transport.links, SizeIs(1));
    EXPECT_EQ(machine.transport.last().parameters.url, endpoint.url() + "/relay");
}

TEST_F(DesktopProgramTest, UpdatesAreLookedForWhereTheEnvironmentSays) {
    machine.variables["VIMBLE_UPDATE_MANIFEST_URL"] = "https://host/latest.json";
    EXPECT_EQ(make(start()).begin(), std::nullopt);
    EXPECT_THAT(machine.takeDone(), Contains("look for updates at https://host/latest.json"));
    askToQuit();
    end();
    machine.updaterLoop.run();
    EXPECT_FALSE(machine.updaterLoop.hasTimers());
}

TEST_F(DesktopProgramTest, WhatWasRememberedComesBackTextsAndWindows) {
    beginConnected();
    server->relay(keysOf(2), {std::nullopt, "Ann", "", "hello"});
    choose("Console");
    ASSERT_TRUE(isShown("Console"));
    askToQuit();
    end();
    EXPECT_THAT(savedTalk(), ElementsAre("hello"));

    begin();
    EXPECT_TRUE(isShown("Console"));
    EXPECT_THAT(machine.transport.links, SizeIs(1));
    machine.path.update(true);
    machine._loop.run();
    EXPECT_THAT(machine.transport.links, SizeIs(2));
}

// ---- a second start

TEST_F(DesktopProgramTest, ASecondStartHandsOnWhatItWasStartedWithAndEnds) {
    const RememberedFolder first(machine.dataDir, machine._loop.now());
    machine.claimOutcome = Outcome::forwarded;
    DesktopStart given = start();
    given.urls = {"vimble:a", "vimble:b"};
    given.token = {"token", ""};
    bool hasTurned = false;
    const auto ending = make(std::move(given)).run([&] {
        hasTurned = true;
        return 0;
    });
    EXPECT_EQ(ending.status, 0);
    EXPECT_FALSE(ending.isThreadBusy);
    EXPECT_FALSE(hasTurned);
    EXPECT_THAT(machine.takeDone(), ElementsAre("claim in 10000 ms for vimble:a vimble:b with token"));
}

TEST_F(DesktopProgramTest, ASecondStartWithAServerIsToldThatTheFirstStaysWithItsOwn) {
    const RememberedFolder first(machine.dataDir, machine._loop.now());
    machine.claimOutcome = Outcome::forwarded;
    DesktopStart given = start();
    given.server = endpoint;
    EXPECT_EQ(make(std::move(given)).begin(), 0);
    EXPECT_THAT(machine.takeDone(),
                ElementsAre("claim in 10000 ms for  with ",
                            "complain: Vimble runs already for this data, and stays with its server"));
}

TEST_F(DesktopProgramTest, AFirstProgramThatDoesNotAnswerIsTold) {
    const RememberedFolder first(machine.dataDir, machine._loop.now());
    machine.claimOutcome = Outcome::noAnswer;
    EXPECT_EQ(make(start()).begin(), 1);
    EXPECT_THAT(machine.takeDone(),
                ElementsAre("claim in 10000 ms for  with ", "alert: Vimble runs already, and does not answer; no bus"));
}

TEST_F(DesktopProgramTest, WithoutABusASecondStartSaysWhoHasTheFolder) {
    const RememberedFolder first(machine.dataDir, machine._loop.now());
    machine.claimOutcome = Outcome::noBus;
    DesktopStart given = start();
    const std::string who = std::get<FolderInUse>(given.folder).text;
    try {
        make(std::move(given)).begin();
        ADD_FAILURE() << "it started";
    } catch (const std::exception& error) {
        EXPECT_EQ(error.what(), who);
    }
    EXPECT_THAT(who, HasSubstr("vimble"));
}

TEST_F(DesktopProgramTest, AFirstProgramThatEndsWhileItIsAskedLeavesItsPlace) {
    auto first = std::make_unique<RememberedFolder>(machine.dataDir, machine._loop.now());
    machine.duringClaim = [&] { first.reset(); };
    begin();
    EXPECT_TRUE(isShown("People"));
    EXPECT_TRUE(machine.isFolderTaken());
}

TEST_F(DesktopProgramTest, AnotherKindOfProgramThatKeepsTheFolderIsTold) {
    const RememberedFolder first(machine.dataDir, machine._loop.now());
    EXPECT_THROW(make(start()).begin(), ApplicationFolderInUse);
    EXPECT_THAT(machine.takeDone(), SizeIs(1));
}

TEST_F(DesktopProgramTest, DuringTheQuestionForThePassphraseALaterStartFindsTheDialog) {
    machine.secrets.failAll(SecretStatuses::userCanceled);
    machine.secrets.between = [&](std::size_t) { machine.askProgram(SealedFileStore::Reason::existingFile); };
    machine.duringQuestion = [&] {
        machine.handlers.activate({"too early", ""});
        QDialog dialog;
        dialog.setWindowTitle("Passphrase");
        dialog.setModal(true);
        dialog.show();
        machine.handlers.activate({"one", ""});
        machine.handlers.open({"vimble:a"}, {"two", ""});
    };
    DesktopStart given = start();
    given.secretFile = machine.folder.path / "secret";
    EXPECT_EQ(make(std::move(given)).begin(), 1);
    const auto done = machine.takeDone();
    ASSERT_THAT(done, SizeIs(testing::Ge(5u)));
    EXPECT_THAT(std::vector(done.begin() + 2, done.begin() + 5),
                ElementsAre("ask for the passphrase of secret", "bring forward Passphrase with one",
                            "bring forward Passphrase with two"));
}

TEST_F(DesktopProgramTest, ALaterStartALinkAndAClickOnANotificationBringPeopleForward) {
    begin();
    machine.handlers.activate({"one", ""});
    machine.handlers.open({"vimble:a"}, {"two", ""});
    machine.handlers.open({}, {"nothing", ""});
    machine.notificationActivated({"three", ""});
    EXPECT_THAT(machine.takeDone(), ElementsAre("bring forward People with one", "bring forward People with two",
                                                "bring forward People with three"));
}

// ---- a start that fails

TEST_F(DesktopProgramTest, APassphraseThatIsNotGivenEndsTheStartBeforeAnythingElse) {
    machine.secrets.failAll(SecretStatuses::userCanceled);
    DesktopStart given = start();
    given.secretFile = machine.folder.path / "secret";
    bool hasTurned = false;
    const auto ending = make(std::move(given)).run([&] {
        hasTurned = true;
        return 0;
    });
    program.reset();
    EXPECT_EQ(ending.status, 1);
    EXPECT_FALSE(hasTurned);
    EXPECT_THAT(machine.takeDone(),
                ElementsAre("claim in 500 ms for  with ", "open the store in secret", "close the store"));
    EXPECT_FALSE(machine.isFolderTaken());
}

TEST_F(DesktopProgramTest, AKeyThatCantBeReadEndsTheStartWithoutAWindow) {
    machine.secrets.failAll(SecretStatuses::notAvailable);
    std::string told;
    QTimer::singleShot(0, [&] {
        auto* alert = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        ASSERT_NE(alert, nullptr);
        told = alert->text().toStdString();
        alert->accept();
    });
    EXPECT_EQ(make(start()).begin(), 1);
    EXPECT_EQ(told, "Could not access the keychain");
    EXPECT_EQ(FakeDesktopMachine::openWindowCount(), 0u);
    program.reset();
    EXPECT_THAT(machine.takeDone(),
                ElementsAre("claim in 500 ms for  with ", "open the desktop's store", "make services",
                            "destroy services, the folder is taken, 0 windows", "close the store"));
    EXPECT_EQ(machine.path.startCount(), 0);
    EXPECT_FALSE(machine.isFolderTaken());
}

TEST_F(DesktopProgramTest, ARequestToQuitBeforeTheLoopTurnsIsNotForgotten) {
    machine.secrets.between = [](std::size_t call) {
        if (call == 1) askToQuit();
    };
    bool hasTurned = false;
    const auto ending = make(start()).run([&] {
        hasTurned = true;
        return 0;
    });
    EXPECT_EQ(ending.status, 0);
    EXPECT_FALSE(hasTurned);
    EXPECT_THAT(machine.takeDone(), testing::IsSupersetOf({"begin ending", "leave the loop", "registered"}));
    EXPECT_EQ(FakeDesktopMachine::openWindowCount(), 0u);
}

// ---- the end

TEST_F(DesktopProgramTest, TheLoopsStatusIsTheProgramsAndTheFolderIsGivenBackLast) {
    EXPECT_EQ(make(start())
                  .run([&] {
                      machine.takeDone();
                      EXPECT_TRUE(isShown("People"));
                      askToQuit();
                      return 7;
                  })
                  .status,
              7);
    EXPECT_TRUE(machine.isFolderTaken());
    program.reset();
    EXPECT_THAT(machine.takeDone(), ElementsAre("begin ending", "leave the loop", "registered",
                                                "destroy services, the folder is taken, 0 windows", "close the store"));
    EXPECT_FALSE(machine.isFolderTaken());
}

TEST_F(DesktopProgramTest, AQuitSendsLaterStartsAwayBeforeItHidesTheWindows) {
    begin();
    askToQuit();
    EXPECT_THAT(machine.takeDone(), ElementsAre("begin ending", "leave the loop"));
    EXPECT_EQ(FakeDesktopMachine::openWindowCount(), 0u);
    machine.handlers.activate({"late", ""});
    machine.notificationActivated({"late", ""});
    EXPECT_THAT(machine.takeDone(), IsEmpty());
    EXPECT_EQ(end().status, 0);
}

TEST_F(DesktopProgramTest, QuittingTwiceQuitsOnce) {
    begin();
    askToQuit();
    askToQuit();
    machine.signalled();
    EXPECT_THAT(machine.takeDone(), ElementsAre("begin ending", "leave the loop"));
}

TEST_F(DesktopProgramTest, TheMenusQuitIsTheSame) {
    begin();
    choose("Quit Vimble");
    EXPECT_THAT(machine.takeDone(), ElementsAre("begin ending", "leave the loop"));
}

TEST_F(DesktopProgramTest, WithALinkTheLoopTurnsUntilAllHasBeenRead) {
    beginConnected();
    askToQuit();
    EXPECT_THAT(machine.takeDone(), ElementsAre("begin ending", "drain for 3 s"));
    EXPECT_EQ(FakeDesktopMachine::openWindowCount(), 0u);
    server->relay(keysOf(2), {std::nullopt, "Ann", "", "wait"});
    machine.drained();
    EXPECT_THAT(machine.takeDone(), ElementsAre("leave the loop"));
    EXPECT_EQ(end().status, 0);
    EXPECT_THAT(savedTalk(), ElementsAre("wait"));
}

TEST_F(DesktopProgramTest, WhatComesWhenTheLoopHasBeenLeftIsSavedAndToldToNobody) {
    beginConnected();
    askToQuit();
    machine.drained();
    machine.takeDone();
    machine.soundPlayer.take();
    // Qt delivers this queued call after the windows have been destroyed.
    QObject link;
    QMetaObject::invokeMethod(
        &link,
        [&] {
            server->relay(keysOf(2), {std::nullopt, "Ann", "", "one more"});
        },
        Qt::QueuedConnection);
    EXPECT_EQ(end().status, 0);
    EXPECT_THAT(savedTalk(), ElementsAre("one more"));
    EXPECT_THAT(machine.soundPlayer.take(), IsEmpty());
    EXPECT_THAT(machine.notificationCenter.added, IsEmpty());
}

TEST_F(DesktopProgramTest, ASignalEndsItAsAnUpdateDoesThatReplacesIt) {
    begin();
    machine.signalled();
    EXPECT_THAT(machine.takeDone(), ElementsAre("begin ending", "leave the loop"));
    EXPECT_EQ(end().status, 0);
}

TEST_F(DesktopProgramTest, AtTheEndSignalsDoAgainWhatTheyDidBefore) {
    begin();
    ASSERT_TRUE(machine.signalled);
    askToQuit();
    EXPECT_TRUE(machine.signalled);
    program->end(0);
    EXPECT_FALSE(machine.signalled);
}

TEST_F(DesktopProgramTest, NobodyIsToldOfAnythingBehindTheEnd) {
    begin();
    askToQuit();
    program->end(0);
    machine.takeDone();
    machine.handlers.activate({"late", ""});
    machine.handlers.open({"vimble:a"}, {"late", ""});
    EXPECT_FALSE(machine.trouble);
    EXPECT_FALSE(machine.notificationActivated);
    EXPECT_THAT(machine.takeDone(), IsEmpty());
    EXPECT_EQ(window("People"), nullptr);
}

TEST_F(DesktopProgramTest, ATroubleBelowTheEngineIsLogged) {
    begin();
    log.take();
    machine.trouble("no such host");
    EXPECT_THAT(log.take(), Contains("info zorvane.Vimble/main: no such host"));
}

TEST_F(DesktopProgramTest, BehindTheQuitAStoreThatAsksIsAnsweredWithNothing) {
    machine.duringQuestion = [] {};
    DesktopStart given = start();
    given.secretFile = machine.folder.path / "secret";
    begin(std::move(given));
    machine.askProgram(SealedFileStore::Reason::existingFile);
    EXPECT_THAT(machine.takeDone(), ElementsAre("ask for the passphrase of secret"));
    askToQuit();
    machine.takeDone();
    EXPECT_FALSE(machine.askProgram(SealedFileStore::Reason::existingFile));
    EXPECT_THAT(machine.takeDone(), IsEmpty());
}

// ---- what is saved

TEST_F(DesktopProgramTest, WhatCantBeSavedIsToldToTheUserAndInTheStatus) {
    beginConnected();
    breakFolder();
    askToQuit();
    machine.drained();
    machine.takeDone();
    EXPECT_EQ(program->end(0).status, 1);
    EXPECT_THAT(machine.takeDone(), Contains(HasSubstr("alert: What was said could not be saved; ")));
}

TEST_F(DesktopProgramTest, AfterASignalNoDialogWaitsForAUserWhoIsGone) {
    beginConnected();
    breakFolder();
    machine.signalled();
    machine.drained();
    machine.takeDone();
    EXPECT_EQ(program->end(0).status, 1);
    const auto done = machine.takeDone();
    EXPECT_THAT(done, Contains(HasSubstr("complain: What was said could not be saved: ")));
    EXPECT_THAT(done, Not(Contains(HasSubstr("alert"))));
}

TEST_F(DesktopProgramTest, AnEndOfTheSessionSavesAndMayBeCalledOff) {
    beginConnected();
    server->relay(keysOf(2), {std::nullopt, "Ann", "", "hello"});
    EXPECT_THAT(savedTalk(), IsEmpty());
    machine.sessionEnding();
    EXPECT_THAT(savedTalk(), ElementsAre("hello"));
    EXPECT_TRUE(isShown("People"));
    EXPECT_THAT(machine.takeDone(), Not(Contains("begin ending")));

    breakFolder();
    log.take();
    machine.sessionEnding();
    EXPECT_THAT(log.take(), Contains(HasSubstr("error zorvane.Vimble/main: ")));
    EXPECT_TRUE(isShown("People"));
}

// ---- threads

TEST_F(DesktopProgramTest, WhatWasAskedOfTheStoreIsAwaited) {
    begin();
    bool isDone = false;
    machine.keyWorker.run([&] { isDone = true; });
    askToQuit();
    EXPECT_FALSE(isDone);
    EXPECT_FALSE(end().isThreadBusy);
    EXPECT_TRUE(isDone);
    EXPECT_EQ(machine.keyWorker.lastLimit, std::chrono::seconds(5));
    EXPECT_EQ(machine.imageWorker->lastLimit, std::chrono::seconds(1));
}

TEST_F(DesktopProgramTest, AStoreThatDoesNotAnswerLeavesTheProcessToBeEndedAtOnceWithEverythingElseSaved) {
    beginConnected();
    server->relay(keysOf(2), {std::nullopt, "Ann", "", "hello"});
    machine.keyWorker.isHanging = true;
    machine.keyWorker.run([] {});
    askToQuit();
    machine.drained();
    log.take();
    machine.takeDone();
    const DesktopProgram::Ending ending = program->end(0);
    EXPECT_TRUE(ending.isThreadBusy);
    EXPECT_EQ(ending.status, 0);
    EXPECT_THAT(savedTalk(), ElementsAre("hello"));
    EXPECT_THAT(log.take(), Contains(HasSubstr("The secret store does not answer, and is not waited for")));
    // Nothing that the thread may still use was destroyed, and the end waited for nothing else.
    EXPECT_THAT(machine.takeDone(), IsEmpty());
    EXPECT_TRUE(machine.isFolderTaken());
}

TEST_F(DesktopProgramTest, APictureThatIsStillReadIsNotWaitedForLonger) {
    begin();
    machine.imageWorker->isHanging = true;
    machine.imageWorker->run([] {});
    askToQuit();
    log.take();
    EXPECT_TRUE(program->end(0).isThreadBusy);
    EXPECT_THAT(log.take(), Not(Contains(HasSubstr("secret store"))));
}

}  // namespace
