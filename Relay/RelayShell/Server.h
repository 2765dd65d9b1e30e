#pragma once

#include "RelayCore/RelayCore.h"
#include "RelayShell/FileLock.h"
#include "RelayShell/Net.h"
#include "RelayShell/ServeOptions.h"
#include "RelayShell/ShellCounters.h"
#include "RelayShell/SqliteStore.h"
#include "RelayShell/Tls.h"

#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

class ClientConnection;

/// The relay can't start: one line for people.
class ServeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The relay with its sockets: takes connections, runs the loop, and ends on SIGTERM or SIGINT.
///
/// A turn of the loop handles the sockets and timers that are ready, tells the logic that the turn has ended,
/// and then writes the bytes that each connection has gathered: most of a relay's cost is the number of writes.
class Server : private RelayHost {
public:
    /// Opens the database and the certificate, and listens.
    /// @throws ServeError, FileLockError, StoreError, TlsError
    explicit Server(const ServeOptions& options);
    ~Server() override;

    /// Where it listens: "HOST:PORT".
    std::string listeningOn() const;

    /// Serves until a signal ends it. @return the exit status: 1 if the mail could not be saved
    int run();

    // For connections.
    const ServeOptions& options() const { return serveOptions; }
    const std::unique_ptr<TlsContext>& tlsContext() const { return tls; }
    RelayCore& core() { return relay; }
    ShellCounters& counters() { return shellCounters; }
    std::string metrics() const;
    /// The relay's own time. It starts with the calendar's when the database is made, then advances only while
    /// the relay runs, and is kept in the database. So mail does not look old when the clock is wrong or jumps.
    Date now() const;
    /// Tells the logic if another process has changed the members.
    void lookAtMembers();
    /// Room for one read, shared by all connections.
    std::span<std::uint8_t> scratch() { return scratchBytes; }
    Bytes& plainScratch() { return plainBytes; }
    /// Makes the connection be flushed at the end of the turn.
    void gathered(std::shared_ptr<ClientConnection> connection) { toFlush.push_back(std::move(connection)); }
    void forget(const std::shared_ptr<ClientConnection>& connection);

    static bool isThisMachine(const std::string& address);
    /// The part of an address that the limits count by: all of an IPv4 address, the first half of an IPv6 one.
    static std::string limitedPlace(const std::string& address);

private:
    void wakeAt(Date when) override;
    void report(std::string_view line) override;

    void listen();
    Tcp::Error listenOn(const std::string& place);
    void accept();
    void accepted(Tcp::Socket socket);
    void runTurn();
    void endTurn();
    void watchMembers();
    void sweep();
    void waitForSignal();
    void reloadTls();
    void stop();
    void stopWhenDone();
    void keepTime();
    void saveTime();

    ServeOptions serveOptions;
    Tcp::Context context{1};
    Tcp::Acceptor acceptor{context};
    Tcp::Timer wakeTimer{context};
    Tcp::Timer membersTimer{context};
    Tcp::Timer sweepTimer{context};
    Tcp::Timer acceptTimer{context};
    Tcp::Timer stopTimer{context};
    Tcp::Timer timeTimer{context};
    Tcp::Signals signals{context};
    Date startedAt;
    std::chrono::steady_clock::time_point startedSteady;

    FileLock lock;  // keeps a second relay from serving the same database: both would deliver the mail
    SqliteStore store;
    std::unique_ptr<TlsContext> tls;
    RelayCore relay;
    ShellCounters shellCounters;
    std::int64_t dataVersion = 0;

    std::unordered_set<std::shared_ptr<ClientConnection>> connections;
    std::unordered_map<std::string, std::size_t> perAddress;  // number of connections by `limitedPlace`
    std::vector<std::shared_ptr<ClientConnection>> toFlush;
    Bytes scratchBytes;
    Bytes plainBytes;
    bool isStopping = false;
    std::chrono::steady_clock::time_point stopDeadline;
    bool isDone = false;
    int status = 0;
};
