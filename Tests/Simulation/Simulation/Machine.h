#pragma once

#include "Simulation/ExpectedHistory.h"
#include "Simulation/Network.h"
#include "Simulation/SimulatedConnection.h"

#include "StateKit/Internets.h"
#include "TestSupport/FakeHost.h"
#include "TestSupport/FakePathMonitor.h"
#include "VimbleKit/Kit.h"

#include <filesystem>
#include <memory>
#include <string>

/// A user's machine: a folder that lasts, a network path that comes and goes, and a `Kit` that can be
/// started, ended and killed.
class Machine : public SignalTarget {
public:
    /// How the machine's connections end with its process.
    enum class Death { closed, silent };

    Machine(Network& network, const SimulatedPerson& person, std::string name, std::filesystem::path folder);
    ~Machine();

    // ---- the process
    void start();
    /// Saves, and ends the process.
    void quit();
    void kill(Death death);
    bool isRunning() const { return kit != nullptr; }
    const Kit& session() const { return *kit; }

    void setPath(bool isUp);

    // ---- the user, each only while the process runs
    void say(const SaidText& text, const std::string& target);
    void command(const std::string& line);
    void connect();
    void disconnect();
    void goTo(const std::string& server);
    bool isThrownOut() const { return kit && wantsLink && kit->state().connection == Connection::setup; }

    /// A frame reaches the process. @param hand  gives the frame to the client
    void arrived(Wire& wire, ByteView frame, const std::function<void()>& hand);
    /// Fails unless the client's history is exactly the expected one.
    void checkHistory(const std::string& when) const;

    const SimulatedPerson& person;
    const std::string name;
    bool isPathUp = true;
    bool wantsLink = true;      // what the user wants
    bool wasThrownOut = false;  // since the user last connected
    Death death = Death::closed;
    const SaidText* textBeingSaid = nullptr;

private:
    class Secrets;

    void published(const State& state);
    void end();

    Network& network;
    const std::filesystem::path folder;
    ExpectedHistory expected;
    std::unique_ptr<Secrets> secrets;
    FakeHost host;
    FakePath path;
    SimulatedTransport transport;
    std::unique_ptr<Internets> internets;
    std::unique_ptr<Kit> kit;
    int runs = 0;
    Connection connection = Connection::setup;  // as last published
    bool isLeaving = false;                     // while the user, not the relay, makes the client disconnect
};
