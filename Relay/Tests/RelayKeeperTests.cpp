// The real program, serving for as long as somebody has a lock on a file.

#include "RelayProgramFixture.h"

#include <gmock/gmock.h>

#include <fstream>
#include <set>

#include <sys/file.h>

namespace {

using testing::StartsWith;

/// Somebody who needs the relay, and therefore holds a shared lock on the file.
class User {
public:
    /// Waits while a relay that is ending holds the lock.
    explicit User(const std::filesystem::path& file)
        : descriptor(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        check(::flock(descriptor, LOCK_SH) == 0, "no lock");
    }
    ~User() { leave(); }
    User(const User&) = delete;
    User& operator=(const User&) = delete;

    void leave() {
        if (descriptor >= 0) ::close(std::exchange(descriptor, -1));
    }

private:
    int descriptor;
};

class RelayKeeperTest : public RelayProgramTest {
protected:
    std::filesystem::path lock() const { return folder.path / "use"; }

    std::unique_ptr<RelayProcess> keep(const std::vector<std::string>& more = {}) {
        std::vector<std::string> arguments = {"serve", "--until-released", lock().string(), "--database", database()};
        if (more.empty()) arguments.insert(arguments.end(), {"--listen", "127.0.0.1:0"});
        arguments.insert(arguments.end(), more.begin(), more.end());
        auto keeper = std::make_unique<RelayProcess>(std::move(arguments));
        EXPECT_NE(keeper->port(), 0) << keeper->errLine();
        return keeper;
    }
    /// The process of a keeper's relay. The keeper's other child waits for the lock.
    static pid_t relayOf(const RelayProcess& keeper) {
        const std::string id = std::to_string(keeper.id());
        std::ifstream children("/proc/" + id + "/task/" + id + "/children");
        for (pid_t child = 0; children >> child;) {
            std::string name;
            std::ifstream("/proc/" + std::to_string(child) + "/comm") >> name;
            if (name == "vimble-relay") return child;
        }
        return -1;
    }
    static bool isServing(const RelayProcess& keeper, std::uint16_t port) {
        return ::kill(keeper.id(), 0) == 0 && get(port, "/healthz").starts_with("HTTP/1.1 200 ");
    }
};

TEST_F(RelayKeeperTest, ItServesUntilTheLastUserIsGone) {
    User first(lock()), second(lock());
    const auto keeper = keep();
    EXPECT_EQ(keeper->firstLine, "vimble-relay listening on 127.0.0.1:" + std::to_string(keeper->port()));
    first.leave();
    EXPECT_TRUE(isServing(*keeper, keeper->port()));
    second.leave();
    EXPECT_EQ(keeper->wait(), 0);
    // No relay holds the database any more, so another one can serve it.
    EXPECT_NE(serve()->port(), 0);
}

TEST_F(RelayKeeperTest, AUserWhoIsKilledIsGoneToo) {
    const pid_t user = ::fork();
    if (user == 0) {
        // Open the file in the child, so that no other process shares the descriptor and with it the lock.
        const int descriptor = ::open(lock().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        ::flock(descriptor, LOCK_SH);
        ::kill(::getpid(), SIGSTOP);
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(user, &status, WUNTRACED), user);
    ASSERT_TRUE(WIFSTOPPED(status));
    const auto keeper = keep();
    EXPECT_TRUE(isServing(*keeper, keeper->port()));
    ::kill(user, SIGKILL);
    ::waitpid(user, &status, 0);
    EXPECT_EQ(keeper->wait(), 0);
}

TEST_F(RelayKeeperTest, WithoutAnyUserItEndsAtOnce) {
    RelayProcess keeper(
        {"serve", "--until-released", lock().string(), "--database", database(), "--listen", "127.0.0.1:0"});
    EXPECT_EQ(keeper.wait(), 0);
}

TEST_F(RelayKeeperTest, TheSecondStartFindsTheFirstOnesRelay) {
    User user(lock());
    const auto first = keep();
    const auto second = keep();
    EXPECT_EQ(second->firstLine, "vimble-relay already listening on 127.0.0.1:" + std::to_string(first->port()));
    EXPECT_EQ(second->wait(), 0);
    EXPECT_TRUE(isServing(*first, first->port()));
}

TEST_F(RelayKeeperTest, OfManyStartsAtOnceOneServes) {
    User user(lock());
    std::vector<std::unique_ptr<RelayProcess>> all;
    const std::vector<std::string> arguments = {"serve",    "--until-released", lock().string(), "--database",
                                                database(), "--listen",         "127.0.0.1:0"};
    for (int count = 0; count < 5; ++count) all.push_back(std::make_unique<RelayProcess>(arguments));
    std::set<std::uint16_t> ports;
    int serving = 0;
    for (const auto& each : all) {
        ports.insert(each->port());
        if (each->firstLine.starts_with("vimble-relay listening on ")) ++serving;
    }
    EXPECT_EQ(serving, 1);
    EXPECT_EQ(ports.size(), 1u);
    EXPECT_THAT(get(*ports.begin(), "/healthz"), StartsWith("HTTP/1.1 200 "));
}

TEST_F(RelayKeeperTest, ARelayThatDiesIsStartedAgainOnItsPort) {
    User user(lock());
    const auto keeper = keep();
    const pid_t relay = relayOf(*keeper);
    ASSERT_GT(relay, 0);
    ::kill(relay, SIGKILL);
    EXPECT_EQ(keeper->outLine(), keeper->firstLine);
    EXPECT_TRUE(isServing(*keeper, keeper->port()));
    EXPECT_NE(relayOf(*keeper), relay);
    EXPECT_EQ(keep()->firstLine, "vimble-relay already listening on 127.0.0.1:" + std::to_string(keeper->port()));
    user.leave();
    EXPECT_EQ(keeper->wait(), 0);
}

TEST_F(RelayKeeperTest, ARelayThatDiesAtOnceAgainAndAgainIsGivenUp) {
    User user(lock());
    const auto keeper = keep();
    // Try often: on a busy machine a relay may live long enough here to be started once more.
    for (int count = 0; count < 100; ++count) {
        const pid_t relay = relayOf(*keeper);
        ASSERT_GT(relay, 0);
        ::kill(relay, SIGKILL);
        if (keeper->outLine().empty()) break;
    }
    EXPECT_EQ(keeper->wait(), 1);
}

TEST_F(RelayKeeperTest, ARelayOutlivesNoKeeperThatIsKilledAndTheNextOneWaitsForItsEnd) {
    User user(lock());
    const auto first = keep();
    const std::string place = "127.0.0.1:" + std::to_string(first->port());
    // A client that does not answer the close frame delays the relay's end.
    RawConnection silent(first->port());
    silent.upgrade();
    first->kill();
    const auto second = keep({"--listen", place});
    EXPECT_EQ(second->firstLine, "vimble-relay listening on " + place);
    EXPECT_TRUE(isServing(*second, second->port()));
}

TEST_F(RelayKeeperTest, WhoeverComesWhileItEndsGetsARelayThatStays) {
    std::unique_ptr<RelayProcess> keeper;
    for (int count = 0; count < 5; ++count) {
        User user(lock());
        keeper = keep();
        RawConnection silent(keeper->port());
        silent.upgrade();
        user.leave();
        User next(lock());
        const auto other = keep();
        EXPECT_THAT(get(other->port(), "/healthz"), StartsWith("HTTP/1.1 200 "));
        // The first keeper goes on if the next user took the lock before that keeper found it free.
        const bool isTheSame = other->firstLine.starts_with("vimble-relay already ");
        EXPECT_EQ(other->wait(isTheSame ? patience : std::chrono::milliseconds(0)).has_value(), isTheSame);
    }
}

TEST_F(RelayKeeperTest, ASignalEndsItWithItsRelay) {
    for (const int signal : {SIGTERM, SIGINT}) {
        User user(lock());
        const auto keeper = keep();
        keeper->signal(signal);
        EXPECT_EQ(keeper->wait(), 0);
        EXPECT_NE(serve()->port(), 0);
    }
}

TEST_F(RelayKeeperTest, APortThatIsTakenIsLeftForTheNext) {
    User user(lock());
    const auto other = std::make_unique<RelayProcess>(std::vector<std::string>{
        "serve", "--listen", "127.0.0.1:0", "--database", (folder.path / "other.db").string()});
    const std::string taken = "127.0.0.1:" + std::to_string(other->port());
    const auto keeper = keep({"--listen", taken, "--or-listen", taken, "--or-listen", "127.0.0.1:0"});
    EXPECT_NE(keeper->port(), other->port());
    EXPECT_TRUE(isServing(*keeper, keeper->port()));
}

TEST_F(RelayKeeperTest, APortThatCannotBeHadForAnotherReasonIsAnError) {
    EXPECT_EQ(command({"serve", "--listen", "192.0.2.1:0", "--or-listen", "127.0.0.1:0"}), 1);
    EXPECT_EQ(complained, "vimble-relay: can't listen on 192.0.2.1:0: Cannot assign requested address");
}

TEST_F(RelayKeeperTest, WhatCannotStartIsSaidAndNotTriedAgain) {
    User user(lock());
    const auto other = serve();
    EXPECT_EQ(command({"serve", "--until-released", lock().string(), "--listen", "127.0.0.1:0"}), 1);
    EXPECT_EQ(complained, "vimble-relay: another vimble-relay serves the database " + database());
    EXPECT_EQ(printed, "");
    other->signal(SIGTERM);
    EXPECT_EQ(other->wait(), 0);
    EXPECT_NE(keep()->port(), 0);
}

TEST_F(RelayKeeperTest, ALockFileThatCannotBeOpenedIsSaid) {
    EXPECT_EQ(command({"serve", "--until-released", folder.path.string()}), 1);
    EXPECT_EQ(complained, "vimble-relay: the file " + folder.path.string() + " can't be opened: Is a directory");
}

}  // namespace
