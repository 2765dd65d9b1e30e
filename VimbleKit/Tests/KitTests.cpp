#include "TestSupport/Session.h"

#include "StateKit/Disk.h"
#include "VimbleKit/DomainJson.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

namespace {

using Strings = std::vector<std::string>;
namespace fs = std::filesystem;

class KitTest : public testing::Test {
protected:
    /// Writes to disk what an earlier run of the program would have left.
    void leave(Connection connection) {
        State state;
        state.endpoint = session.endpoint;
        state.connection = connection;
        state.room.messages.push_back({session.own, "earlier", {1}});
        state.save(session.folder.path);
    }
    Connection connection() const { return session.kit->state().connection; }
    std::size_t links() const { return session.transport.links.size(); }

    /// Opens the latest link and lets it fail before the list.
    void failConnection() {
        session.server().link->ready();
        session.server().link->end("reset");
    }

    Session session;
    Watcher watcher;
};

// ---- coming up

TEST_F(KitTest, WithNothingOnDiskItWaitsForTheUser) {
    Kit& kit = session.start();
    EXPECT_FALSE(kit.state().endpoint);
    EXPECT_EQ(connection(), Connection::setup);
    EXPECT_EQ(kit.socket(), nullptr);
    EXPECT_EQ(kit.state().publicKey, session.own);
    EXPECT_EQ(kit.keys(), keysOf(1));
    EXPECT_EQ(links(), 0u);
    EXPECT_FALSE(session.loop.hasTimers());
    kit.connect();  // no server has been chosen
    EXPECT_EQ(connection(), Connection::setup);
}

TEST_F(KitTest, AFirstStartMakesAnIdentity) {
    session.secrets.items.clear();
    session.start();
    ASSERT_EQ(session.secrets.items.size(), 1u);
    const std::string key = session.kit->state().publicKey;
    EXPECT_NE(key, session.own);
    session.start();
    EXPECT_EQ(session.kit->state().publicKey, key);
}

TEST_F(KitTest, KeysThatCantBeReadEndTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    session.secrets.failAll(SecretStatuses::interactionNotAllowed);
    EXPECT_DEATH(Kit kit(session.environment()), "The secret store failed: status -25308");
}

TEST_F(KitTest, WhoWasConnectedComesUpConnecting) {
    for (const Connection before : {Connection::online, Connection::offline}) {
        leave(before);
        session.kit = std::make_unique<Kit>(session.environment());
        EXPECT_EQ(connection(), Connection::offline);
        EXPECT_EQ(session.kit->state().room.messages.size(), 1u);
        ASSERT_TRUE(session.kit->socket());
        EXPECT_FALSE(session.kit->socket()->isConnecting());  // the constructor itself does not connect
        const std::size_t before2 = links();
        session.loop.run();
        EXPECT_TRUE(session.kit->socket()->isConnecting());
        EXPECT_EQ(links(), before2 + 1);
        EXPECT_EQ(session.transport.last().parameters.url, "https://chat.example.org/relay");
    }
}

TEST_F(KitTest, WhoWasNotConnectedComesUpWaiting) {
    leave(Connection::setup);
    session.start();
    EXPECT_EQ(connection(), Connection::setup);
    ASSERT_TRUE(session.kit->socket());
    EXPECT_EQ(links(), 0u);
}

TEST_F(KitTest, WithoutANetworkItWaitsForOne) {
    session.path.update(false);
    leave(Connection::offline);
    session.start();
    EXPECT_EQ(links(), 0u);
    EXPECT_FALSE(session.loop.hasTimers());
    session.path.update(true);
    EXPECT_EQ(links(), 1u);
}

TEST_F(KitTest, AStateThatWasReadEarlierIsTakenInsteadOfTheFiles) {
    KitEnvironment environment = session.environment();
    int asked = 0;
    environment.loadState = [&] {
        ++asked;
        State state;
        state.endpoint = session.endpoint;
        state.people.set("key", {"key", "Read Earlier", "", false, false});
        return state;
    };
    const Kit kit(environment);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(kit.state().people.find("key")->name, "Read Earlier");
    EXPECT_EQ(kit.state().publicKey, session.own);
}

TEST_F(KitTest, ASessionThatDiesBeforeItsFirstTurnConnectsNothing) {
    leave(Connection::offline);
    session.kit = std::make_unique<Kit>(session.environment());
    session.kit.reset();
    session.loop.run();
    EXPECT_EQ(links(), 0u);
}

// ---- a link's life

TEST_F(KitTest, TheFirstListMakesItOnlineAndTheStateComesFirst) {
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    watcher.watch(kit);
    kit.connect();
    EXPECT_EQ(connection(), Connection::offline);
    watcher.then = [&](const std::string& line) {
        if (line == "Session Online" || line == "Connected to the server") {
            EXPECT_EQ(connection(), Connection::online);
        }
    };
    session.server().accept({listed(1)});
    EXPECT_EQ(connection(), Connection::online);
    EXPECT_EQ(watcher.take(),
              (Strings{"Session Online", "Connected to the server",
                       "anonymous" + session.own.substr(0, 6) + " was added to the conversation", "Roster of 1"}));
}

TEST_F(KitTest, ALostLinkIsTriedAgainAfterASecond) {
    Kit& kit = session.startConnected({listed(1)});
    watcher.watch(kit);
    watcher.then = [&](const std::string&) { EXPECT_EQ(connection(), Connection::offline); };
    session.server().link->end("reset");
    EXPECT_EQ(watcher.take(), (Strings{"Session Offline", "You disconnected from the server"}));
    EXPECT_EQ(links(), 1u);
    session.loop.advance(0.99);
    EXPECT_EQ(links(), 1u);
    session.loop.advance(0.02);
    EXPECT_EQ(links(), 2u);
    EXPECT_TRUE(kit.state().people.find(session.own)->isOnline);  // as the server last said
}

TEST_F(KitTest, FailedConnectionsBackOff) {
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    watcher.watch(kit);
    kit.connect();
    for (const Seconds delay : {1.0, 2.0, 4.0, 8.0, 16.0, 30.0, 30.0, 30.0}) {
        const std::size_t before = links();
        failConnection();
        EXPECT_EQ(watcher.take(),
                  (Strings{"Session Offline", "Connection failed: Network connnection failed (reset)"}));
        session.loop.advance(delay - 0.001);
        EXPECT_EQ(links(), before) << delay;
        session.loop.advance(0.002);
        EXPECT_EQ(links(), before + 1) << delay;
    }
}

TEST_F(KitTest, ASuccessResetsTheBackOff) {
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    kit.connect();
    for (int i = 0; i < 4; ++i) {
        failConnection();
        session.loop.advance(40);
    }
    session.server().accept({listed(1)});
    session.server().link->end();
    const std::size_t before = links();
    session.loop.advance(1.001);
    EXPECT_EQ(links(), before + 1);
}

TEST_F(KitTest, ANetworkThatGoesAndComesBackResetsTheBackOff) {
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    kit.connect();
    for (int i = 0; i < 4; ++i) {
        failConnection();
        session.loop.advance(40);
    }
    failConnection();  // sixteen seconds are armed
    session.path.update(false);
    session.loop.advance(100);
    const std::size_t before = links();
    session.path.update(true);
    EXPECT_EQ(links(), before + 1);  // at once
    failConnection();
    session.loop.advance(1.001);
    EXPECT_EQ(links(), before + 2);
}

TEST_F(KitTest, AConnectByTheUserResetsTheBackOffAndReplacesTheTimer) {
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    kit.connect();
    for (int i = 0; i < 4; ++i) {
        failConnection();
        session.loop.advance(40);
    }
    failConnection();
    const std::size_t before = links();
    kit.connect();
    EXPECT_EQ(links(), before + 1);
    session.loop.advance(100);
    EXPECT_EQ(links(), before + 1);  // the armed retry was dropped
    failConnection();
    session.loop.advance(1.001);
    EXPECT_EQ(links(), before + 2);
}

TEST_F(KitTest, ARepeatedNetworkStatusDoesNothing) {
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    kit.connect();
    failConnection();
    Watcher states;
    states.watchState(kit);
    session.path.update(true);
    EXPECT_EQ(links(), 1u);
    EXPECT_TRUE(states.take().empty());
    session.loop.advance(1.001);
    EXPECT_EQ(links(), 2u);
}

TEST_F(KitTest, ALostNetworkClosesTheLinkAndTriesNothing) {
    Kit& kit = session.startConnected({listed(1)});
    watcher.watch(kit);
    session.path.update(false);
    EXPECT_EQ(connection(), Connection::offline);
    EXPECT_EQ(session.server().link->sent.back().closeCode, CloseCode::normalClosure);
    session.loop.run();
    EXPECT_EQ(watcher.take(), (Strings{"Session Offline", "You disconnected from the server"}));
    session.loop.advance(1000);
    EXPECT_EQ(links(), 1u);
    session.path.update(true);
    EXPECT_EQ(links(), 2u);
    session.server().accept({listed(1)});
    EXPECT_EQ(connection(), Connection::online);
}

TEST_F(KitTest, ALostNetworkInSetupChangesNothing) {
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    Watcher states;
    states.watchState(kit);
    session.path.update(false);
    session.path.update(true);
    EXPECT_TRUE(states.take().empty());
    EXPECT_EQ(connection(), Connection::setup);
    EXPECT_EQ(links(), 0u);
}

TEST_F(KitTest, ANetworkThatGoesAndComesBackInOneTurnStillConnects) {
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    kit.connect();
    session.server().link->ready();
    session.server().greet();
    session.path.update(false);
    session.path.update(true);
    EXPECT_EQ(links(), 2u);
    session.server().accept({listed(1)});
    EXPECT_EQ(connection(), Connection::online);

    // The same with an authenticated link: its end is reported first, and then a retry connects.
    session.path.update(false);
    session.path.update(true);
    session.loop.advance(1.001);
    EXPECT_EQ(links(), 3u);
    session.server().accept({listed(1)});
    EXPECT_EQ(connection(), Connection::online);
}

TEST_F(KitTest, ALinkThatNeverOpensIsEndedByALostNetworkAlone) {
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    kit.connect();
    session.transport.last().wait();
    session.loop.advance(10000);
    kit.connect();
    EXPECT_EQ(links(), 1u);
    EXPECT_TRUE(kit.socket()->isConnecting());
    session.path.update(false);
    session.path.update(true);
    EXPECT_EQ(links(), 2u);
}

TEST_F(KitTest, ARefusalIsFinalUntilTheUserConnects) {
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    watcher.watch(kit);
    kit.connect();
    session.server().link->ready();
    session.server().greet();
    session.server().refuse();
    EXPECT_EQ(connection(), Connection::setup);
    EXPECT_EQ(watcher.take(), (Strings{"Session Offline", "Authorization failed: closed by the server"}));
    session.loop.advance(1000);
    session.path.update(false);
    session.path.update(true);
    EXPECT_EQ(links(), 1u);
    kit.connect();
    EXPECT_EQ(links(), 2u);
    EXPECT_EQ(connection(), Connection::offline);
}

TEST_F(KitTest, ARefusalOfALiveLinkIsAlsoADisconnection) {
    Kit& kit = session.startConnected({listed(1)});
    watcher.watch(kit);
    watcher.then = [&](const std::string&) { EXPECT_EQ(connection(), Connection::setup); };
    session.server().refuse();
    EXPECT_EQ(watcher.take(), (Strings{"Session Offline", "Authorization failed: closed by the server",
                                       "Session Offline", "You disconnected from the server"}));
    session.loop.advance(1000);
    EXPECT_EQ(links(), 1u);
}

TEST_F(KitTest, AFailureAfterTheUserGaveUpIsToldButNotTriedAgain) {
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    watcher.watch(kit);
    kit.connect();
    session.server().link->ready();
    kit.disconnect();
    session.server().link->end("reset");
    EXPECT_EQ(watcher.take(), (Strings{"Session Offline", "Connection failed: Network connnection failed (reset)"}));
    EXPECT_EQ(connection(), Connection::setup);
    session.loop.advance(1000);
    EXPECT_EQ(links(), 1u);
}

TEST_F(KitTest, TheAnswersToCommandsAreTold) {
    Kit& kit = session.startConnected({listed(1)});
    Watcher traffic;
    watcher.watch(kit);
    traffic.watchTraffic(kit);
    session.server().sendError("no");
    session.server().sendResponse("yes");
    ASSERT_EQ(watcher.events.size(), 2u);
    EXPECT_EQ(std::get<Events::CommandFailed>(watcher.events[0]).exp, "no");
    EXPECT_EQ(std::get<Events::CommandResponded>(watcher.events[1]).exp, "yes");
    EXPECT_EQ(traffic.take(), (Strings{"← command error: no", "← command response: yes"}));
}

TEST_F(KitTest, TrafficIsToldBothWays) {
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    watcher.watchTraffic(kit);
    kit.connect();
    session.server().accept({});
    EXPECT_EQ(watcher.take(), (Strings{"→ scmd: list", "← list of 0 people"}));
}

// ---- observing

struct RoomSize {
    using StateType = State;
    std::size_t size = 0;
    explicit RoomSize(const State* state) : size(state ? state->room.messages.size() : 0) {}
    bool operator==(const RoomSize&) const = default;
};

TEST_F(KitTest, AnObserverOfTheStateSeesItAtOnceAndAfterEveryChange) {
    Kit& kit = session.start();
    int calls = 0;
    kit.observeState(watcher, [&](Watcher&, const State& state) {
        ++calls;
        EXPECT_EQ(state, kit.state());
    });
    EXPECT_EQ(calls, 1);
    kit.markRoomRead();  // changes nothing, but is published
    EXPECT_EQ(calls, 2);
}

TEST_F(KitTest, AnObserverOfASubsetIsToldWhenItChanges) {
    Kit& kit = session.startConnected({listed(1), listed(2)});
    std::vector<std::size_t> sizes;
    kit.observeModel<RoomSize>(watcher, [&](Watcher&, const RoomSize& room) { sizes.push_back(room.size); });
    kit.markRoomRead();
    kit.send("hi", Kit::roomKey);
    kit.send("psst", keyTextOf(2));
    EXPECT_EQ(sizes, (std::vector<std::size_t>{0, 1}));
}

// ---- saving

TEST_F(KitTest, FiftyCommitsCostOneWriteTwoSecondsLater) {
    Kit& kit = session.startConnected({listed(1)});
    session.loop.advance(10);
    fs::remove(session.file("Room"));
    for (int i = 0; i < 50; ++i) {
        kit.send(std::to_string(i), Kit::roomKey);
        session.loop.advance(0.02);
    }
    session.loop.advance(1.97);
    EXPECT_FALSE(fs::exists(session.file("Room")));
    session.loop.advance(0.02);
    EXPECT_TRUE(fs::exists(session.file("Room")));
    EXPECT_EQ(State::load(session.folder.path, {}).room.messages.size(), 50u);
    fs::remove(session.file("Room"));
    session.loop.advance(1000);
    EXPECT_FALSE(fs::exists(session.file("Room")));  // not written a second time
}

TEST_F(KitTest, SteadyTrafficIsWrittenAboutEveryThirtySeconds) {
    Kit& kit = session.startConnected({listed(1)});
    session.loop.advance(10);
    fs::remove(session.file("Room"));
    std::vector<int> writes;
    for (int second = 0; second < 100; ++second) {
        kit.send("x", Kit::roomKey);
        if (fs::exists(session.file("Room"))) {
            writes.push_back(second);
            fs::remove(session.file("Room"));
        }
        session.loop.advance(1);
    }
    ASSERT_EQ(writes.size(), 3u);
    EXPECT_EQ(writes, (std::vector<int>{31, 63, 95}));
}

TEST_F(KitTest, WhatIsRememberedComesBackAtTheNextStart) {
    Kit& kit = session.startConnected({listed(1), listed(2, false)});
    kit.setName("Me");
    kit.send("hi", Kit::roomKey);
    kit.send("psst", keyTextOf(2));
    session.loop.advance(3);
    State expected = kit.state();
    session.start();
    expected.connection = Connection::offline;
    expected.people.update(session.own, [](Person& person) { person.isOnline = false; });
    EXPECT_EQ(session.kit->state(), expected);
}

TEST_F(KitTest, NothingIsWrittenWhenItDies) {
    Kit& kit = session.startConnected({listed(1)});
    session.loop.advance(3);
    kit.send("lost", Kit::roomKey);
    session.kit.reset();
    session.loop.advance(100);
    EXPECT_TRUE(State::load(session.folder.path, {}).room.messages.empty());
}

TEST_F(KitTest, AFailedWriteIsLoggedAndTriedAgainWithTheNextChange) {
    Kit& kit = session.startConnected({listed(1)});
    session.loop.advance(3);
    session.log.take();
    fs::remove(session.file("Room"));
    fs::create_directory(session.file("Room"));
    kit.send("hi", Kit::roomKey);
    session.loop.advance(3);
    const auto lines = session.log.take();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_THAT(lines[0],
                testing::StartsWith("error zorvane.VimbleKit/Kit: Failed to suspend state: Could not encode "));
    EXPECT_EQ(kit.state().room.messages.size(), 1u);

    fs::remove(session.file("Room"));
    session.loop.advance(100);
    EXPECT_FALSE(fs::exists(session.file("Room")));
    kit.markRoomRead();
    session.loop.advance(3);
    EXPECT_EQ(State::load(session.folder.path, {}).room, kit.state().room);
}

TEST_F(KitTest, ADamagedFileOfPeopleIsFilledAgainByTheNextList) {
    leave(Connection::offline);
    std::ofstream(session.file("People")) << "{ damaged";
    session.start();
    EXPECT_TRUE(session.kit->state().people.empty());
    EXPECT_EQ(session.kit->state().room.messages.size(), 1u);
    EXPECT_TRUE(fs::exists(session.file("People").native() + ".damaged"));
    session.server().accept({listed(1), listed(2)});
    EXPECT_EQ(session.kit->state().people.size(), 2u);
    session.loop.advance(3);
    EXPECT_EQ(State::load(session.folder.path, {}).people.size(), 2u);
}

TEST_F(KitTest, CommitsPrintADebugLine) {
    static int count;
    count = 0;
    Kit& kit = session.start();
    const auto before = DebugLines::setPrint([](std::string_view line) { count += line == "core state changed"; });
    kit.markRoomRead();
    kit.markRead("x");
    DebugLines::setPrint(before);
    EXPECT_EQ(count, 2);
}

// ---- several, and their ends

TEST_F(KitTest, SeveralSessionsLiveInOneProcess) {
    Session other;
    session.startConnected({listed(1)});
    other.startConnected({listed(1), listed(2)});
    session.kit->send("one", Kit::roomKey);
    EXPECT_EQ(session.kit->state().room.messages.size(), 1u);
    EXPECT_TRUE(other.kit->state().room.messages.empty());
    session.kit.reset();
    EXPECT_EQ(other.kit->state().connection, Connection::online);
    other.server().sendList({listed(1)});
    EXPECT_EQ(other.kit->state().people.size(), 1u);
}

TEST_F(KitTest, TwoSessionsOnOneMachineHearTheSameNetwork) {
    leave(Connection::offline);
    session.start();
    TemporaryFolder second;
    KitEnvironment environment = session.environment();
    environment.folder = second.path;
    Kit other(environment);
    other.setEndpoint(session.otherEndpoint);
    other.connect();
    EXPECT_EQ(links(), 2u);
    session.path.update(false);
    session.path.update(true);
    EXPECT_EQ(links(), 4u);
}

TEST_F(KitTest, DestroyingItEndsItsLinkAndItsTimers) {
    session.startConnected({listed(1)});
    const auto link = session.transport.links.back();
    session.kit.reset();
    EXPECT_TRUE(link->isDestroyed);
    session.loop.advance(1000);
    EXPECT_EQ(links(), 1u);

    leave(Connection::offline);
    session.start();
    failConnection();
    session.kit.reset();  // with a retry armed
    const std::size_t before = links();
    session.loop.advance(1000);
    EXPECT_EQ(links(), before);
    session.path.update(false);
    session.path.update(true);
    EXPECT_EQ(links(), before);
}

/// Plays a story and calls back at everything that its observers hear, so that a test can act at each point.
class KitReentryTest : public KitTest {
protected:
    /// Connects, gets lists and packs and answers, loses the link, is refused. Observers of every signal
    /// and of the state call `at` with the number of the call.
    void story(const std::function<void(std::size_t)>& at) {
        std::size_t step = 0;
        session.start();
        session.kit->setEndpoint(session.endpoint);
        Watcher watchers[3];
        for (Watcher& each : watchers) each.then = [&](const std::string&) { at(step++); };
        watchers[0].watch(*session.kit);
        watchers[1].watchTraffic(*session.kit);
        session.kit->observeState(watchers[2], [&](Watcher& self, const State&) { self.then("state"); });

        const auto alive = [&](const std::function<void(Kit&)>& action) {
            if (session.kit) action(*session.kit);
        };
        alive([](Kit& kit) { kit.connect(); });
        const auto server = [&]() -> FakeServer& { return session.server(); };
        if (session.transport.links.empty()) return;
        server().accept({listed(1), listed(2), listed(3, false)});
        server().relay(keysOf(2), {std::nullopt, "B", "🦊", "hi"});
        server().relay(keysOf(2), {"room", "C", "", "all"});
        server().sendList({listed(1), listed(2, false), listed(4)});
        server().sendError("e");
        server().sendResponse("r");
        alive([](Kit& kit) { kit.command("name Me"); });
        alive([](Kit& kit) { kit.command("emoji 🦊"); });
        alive([](Kit& kit) { kit.command("who"); });
        alive([](Kit& kit) { kit.send("hi", Kit::roomKey); });
        alive([](Kit& kit) { kit.send("hi", keyTextOf(2)); });
        alive([](Kit& kit) { kit.markRead(keyTextOf(2)); });
        server().link->end();
        session.loop.advance(1.5);
        server().link->ready();
        server().link->end();
        session.loop.advance(2.5);
        session.path.update(false);
        session.path.update(true);
        server().accept({listed(1)});
        alive([](Kit& kit) { kit.disconnect(); });
        session.loop.run();
        alive([](Kit& kit) { kit.connect(); });
        server().link->ready();
        server().refuse();
        alive([&](Kit& kit) { kit.setEndpoint(session.otherEndpoint); });
        session.loop.advance(100);
        steps = step;
    }

    std::size_t steps = 0;
};

TEST_F(KitReentryTest, AnObserverMayDestroyTheSessionAnywhere) {
    story([](std::size_t) {});
    const std::size_t count = steps;
    ASSERT_GT(count, 50u);
    for (std::size_t at = 0; at < count; ++at) {
        story([&](std::size_t step) {
            if (step == at) session.kit.reset();
        });
        EXPECT_FALSE(session.kit) << at;
        std::filesystem::remove_all(session.folder.path);
        session.path.update(true);
        session.transport.links.clear();
    }
}

TEST_F(KitReentryTest, AnObserverMayChangeTheServerAnywhere) {
    story([](std::size_t) {});
    const std::size_t count = steps;
    for (std::size_t at = 0; at < count; ++at) {
        std::filesystem::remove_all(session.folder.path);
        session.transport.links.clear();
        const Endpoint third("https://third.example.org");
        story([&](std::size_t step) {
            if (step == at) session.kit->setEndpoint(third);
        });
        ASSERT_TRUE(session.kit);
        session.loop.advance(100);
        // Wherever the server was changed, the session still works: it can change to that server and connect.
        session.kit->setEndpoint(third);
        session.kit->connect();
        ASSERT_TRUE(session.kit->socket());
        EXPECT_EQ(session.kit->socket()->endpoint(), third.url());
    }
}

TEST_F(KitTest, TheRestOfAPackDoesNotEnterTheHistoryOfAnotherServer) {
    Kit& kit = session.startConnected({listed(1), listed(2)});
    watcher.watch(kit);
    Watcher states;
    states.watchState(kit);
    states.then = [&](const std::string&) { kit.setEndpoint(session.otherEndpoint); };
    session.server().relay(keysOf(2), {"room", "B", "🦊", "hi"});
    State fresh;
    fresh.publicKey = session.own;
    fresh.endpoint = session.otherEndpoint;
    EXPECT_EQ(kit.state(), fresh);
    EXPECT_TRUE(watcher.take().empty());
    // The name was folded in before the observer changed the server, and so was saved.
    EXPECT_EQ(State::load(session.folder.path, session.endpoint).people.find(keyTextOf(2))->name, "B");
}

TEST_F(KitTest, AServerThatIsChangedToAtTheEndOfALinkIsNotConnectedTo) {
    Kit& kit = session.start();
    kit.setEndpoint(session.otherEndpoint);  // leaves on disk that the user wants to be connected to it
    kit.connect();
    kit.setEndpoint(session.endpoint);
    kit.connect();
    session.server().accept({listed(1)});
    const std::size_t before = links();
    kit.observeState(watcher, [&](Watcher&, const State& state) {
        if (state.connection == Connection::offline) kit.setEndpoint(session.otherEndpoint);
    });
    session.server().link->end();
    EXPECT_EQ(kit.state().endpoint, session.otherEndpoint);
    EXPECT_EQ(connection(), Connection::offline);
    session.loop.advance(100);
    EXPECT_EQ(links(), before);
}

TEST_F(KitTest, AnOldSocketTellsASessionThatLeftItNothing) {
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    watcher.watch(kit);
    watcher.then = [&](const std::string& line) {
        if (line == "Session Online") kit.setEndpoint(session.otherEndpoint);
    };
    kit.connect();
    session.server().accept({listed(1), listed(2)});  // the list comes in the same frame as the authentication
    EXPECT_EQ(watcher.take(), (Strings{"Session Online", "Connected to the server"}));
    EXPECT_TRUE(kit.state().people.empty());
    EXPECT_EQ(connection(), Connection::setup);
}

TEST_F(KitTest, AListOfOneServerTellsNothingOfAnother) {
    Kit& kit = session.startConnected({listed(1), listed(2)});
    watcher.watch(kit);
    Watcher states;
    states.watchState(kit);
    states.then = [&](const std::string&) { kit.setEndpoint(session.otherEndpoint); };
    session.server().sendList({listed(1), listed(3)});
    EXPECT_TRUE(watcher.take().empty());
    EXPECT_TRUE(kit.state().people.empty());
}

TEST_F(KitReentryTest, AnObserverMayDisconnectAnywhereAndConnectAgainLater) {
    story([](std::size_t) {});
    const std::size_t count = steps;
    for (std::size_t at = 0; at < count; ++at) {
        std::filesystem::remove_all(session.folder.path);
        session.transport.links.clear();
        story([&](std::size_t step) {
            if (step == at) session.kit->disconnect();
        });
        session.kit->setEndpoint(session.endpoint);
        session.kit->connect();
        session.loop.advance(40);
        ASSERT_FALSE(session.transport.links.empty());
        session.server().accept({listed(1)});
        EXPECT_EQ(connection(), Connection::online) << at;
    }
}

TEST_F(KitTest, AnObserverOfTheEndThatConnectsAgainGetsALink) {
    // While the user logs out of a link that is not authenticated yet.
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    kit.connect();
    session.server().link->ready();
    kit.observeState(watcher, [&](Watcher&, const State& state) {
        if (state.connection == Connection::setup) kit.connect();
    });
    kit.disconnect();
    EXPECT_EQ(connection(), Connection::offline);
    session.loop.run();
    session.server().greet();
    session.server().sendList({listed(1)});
    EXPECT_EQ(connection(), Connection::online);
}

TEST_F(KitTest, AnObserverOfTheWishThatTakesItBackIsHeard) {
    Kit& kit = session.start();
    kit.setEndpoint(session.endpoint);
    kit.observeState(watcher, [&](Watcher&, const State& state) {
        if (state.connection == Connection::offline) kit.disconnect();
    });
    kit.connect();
    EXPECT_EQ(connection(), Connection::setup);
    EXPECT_EQ(links(), 0u);
}

TEST_F(KitTest, TheSharedSessionIsMadeAtFirstUseAndStays) {
    // The shared session is never destroyed, so its machine must not be destroyed either.
    static Session* const machine = [] {
        auto* made = new Session;
        Kit::configureShared([made] { return made->environment(); });
        return made;
    }();
    EXPECT_EQ(Kit::shared().state().publicKey, machine->own);
    EXPECT_EQ(&Kit::shared(), &Kit::shared());
    fs::remove_all(machine->folder.path);
}

}  // namespace
