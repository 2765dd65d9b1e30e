#pragma once

#include "StateKit/Internets.h"
#include "TestSupport/FakeHost.h"
#include "TestSupport/FakePathMonitor.h"
#include "TestSupport/FakeServer.h"
#include "TestSupport/FakeTransport.h"
#include "TestSupport/LogLines.h"
#include "TestSupport/MemorySecretStore.h"
#include "TestSupport/TemporaryFolder.h"
#include "TestSupport/TestLoop.h"
#include "VimbleKit/ConsoleLines.h"
#include "VimbleKit/Kit.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

/// Writes down what a session tells its observers, a line for each report.
class Watcher : public SignalTarget {
public:
    /// Subscribes to everything but the state.
    void watch(Kit& kit) {
        kit.observeOnline(*this, [](Watcher& self, Online online) { self.note(ConsoleLines::line(online)); });
        kit.observeEvents(*this, [](Watcher& self, const Event& event) {
            self.events.push_back(event);
            if (std::holds_alternative<Events::Roster>(event))
                self.note("Roster of " + std::to_string(std::get<Events::Roster>(event).users.size()));
            else
                self.note(ConsoleLines::line(event).value_or("(no line)"));
        });
    }
    void watchTraffic(Kit& kit) {
        kit.observeNetworkIO(*this, [](Watcher& self, const NetworkIO& io) { self.note(ConsoleLines::line(io)); });
    }
    /// Adds a line "state" for each publish of the state, but for the one at the subscription. Drops earlier lines.
    void watchState(Kit& kit) {
        kit.observeState(*this, [](Watcher& self, const State&) { self.note("state"); });
        take();
    }

    std::vector<std::string> take() { return std::exchange(lines, {}); }

    std::vector<Event> events;
    std::function<void(const std::string&)> then;  // called after each line

private:
    void note(const std::string& line) {
        lines.push_back(line);
        if (const auto action = then) action(line);
    }

    std::vector<std::string> lines;
};

/// A session, and a machine for it with a network, a secret store and a folder of its own. The user is
/// person 1 (`keysOf`).
class Session {
public:
    explicit Session(bool isOnline = true) {
        secrets.put(Nacl::hex(keysOf(1).secretKey.view()));
        internets.start();
        path.update(isOnline);
    }

    KitEnvironment environment() { return {loop, internets, secrets, transport, host, folder.path}; }

    /// Builds the session, as at a start of the program; ends an earlier one.
    Kit& start() {
        kit.reset();
        kit = std::make_unique<Kit>(environment());
        loop.run();
        return *kit;
    }

    /// The other end of the latest link.
    FakeServer& server() {
        if (!_server || _server->link != transport.links.back())
            _server = std::make_unique<FakeServer>(transport.links.back(), keysOf(1).publicKey);
        return *_server;
    }

    /// Starts, chooses a server, and connects as far as the list.
    Kit& startConnected(const std::vector<MetaPerson>& people) {
        start();
        kit->setEndpoint(endpoint);
        kit->connect();
        loop.run();
        server().accept(people);
        server().takePacks();
        return *kit;
    }

    std::filesystem::path file(const std::string& name) const {
        return folder.path / "https…chat.example.org" / (name + ".json");
    }

    const Endpoint endpoint{"https://chat.example.org"};
    const Endpoint otherEndpoint{"https://other.example.org"};
    const std::string own = keyTextOf(1);

    LogLines log;
    TestLoop loop;
    FakePath path;
    Internets internets{loop, path.monitor()};
    MemorySecretStore secrets;
    FakeTransport transport{loop};
    FakeHost host;
    TemporaryFolder folder;
    std::unique_ptr<Kit> kit;

private:
    std::unique_ptr<FakeServer> _server;
};

/// An entry of a server's list.
inline MetaPerson listed(std::uint8_t number, bool isOnline = true, bool isAdmin = false) {
    return {keyTextOf(number), isAdmin, isOnline};
}
