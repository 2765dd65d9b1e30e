#include "RelayShell/Server.h"

#include "RelayShell/ClientConnection.h"
#include "RelayShell/Metrics.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/v6_only.hpp>

#include <sys/resource.h>

namespace {

constexpr std::size_t scratchSize = 256 * 1024;
// Most handlers in one turn, so that the turn ends and flushes even while more sockets keep becoming ready.
constexpr int handlersPerTurn = 512;
constexpr auto membersInterval = std::chrono::milliseconds(100);
constexpr auto sweepInterval = std::chrono::seconds(1);
constexpr auto acceptPause = std::chrono::milliseconds(200);
// How long an operation waits for another process that holds the database, while serving. It is short because
// the relay does nothing else meanwhile, and the logic tries again by itself.
constexpr auto storePatience = std::chrono::milliseconds(250);
// From the signal to the last try to save the mail, whatever connections and database do. The last try and its
// wait for the database come on top, and still the relay ends within 3 seconds.
constexpr auto stopTime = std::chrono::milliseconds(1800);
constexpr auto stopRetry = std::chrono::milliseconds(300);
constexpr auto timeInterval = std::chrono::minutes(10);

struct Listen {
    std::string host;
    std::string port;
};

Listen listenFrom(const std::string& text) {
    const auto colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size())
        throw ServeError("--listen needs HOST:PORT, not \"" + text + "\"");
    std::string host = text.substr(0, colon);
    const std::string port = text.substr(colon + 1);
    const bool isPort = port.size() <= 5 && port.find_first_not_of("0123456789") == std::string::npos;
    if (!isPort || std::stoi(port) > 65535) throw ServeError("\"" + port + "\" is no port");
    if (host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    else if (host.find(':') != std::string::npos)
        throw ServeError("an IPv6 address needs brackets: [" + host + "]:" + port);
    return {host, port};
}

/// Lets this process have as many connections as the system allows.
void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

std::string textOf(const boost::asio::ip::address& address) {
    if (address.is_v6() && address.to_v6().is_v4_mapped())
        return boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, address.to_v6()).to_string();
    return address.to_string();
}

Date calendarNow() {
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return Date::fromUnix(std::chrono::duration<double>(sinceEpoch).count());
}

FileLock lockOf(const std::filesystem::path& database) {
    FileLock lock(std::filesystem::path(database) += ".lock");
    if (!lock.tryTake()) throw ServeError("another vimble-relay serves the database " + database.string());
    return lock;
}

}  // namespace

Server::Server(const ServeOptions& options)
    : serveOptions(options),
      startedAt(calendarNow()),
      startedSteady(std::chrono::steady_clock::now()),
      lock(lockOf(options.database)),
      store(options.database, SqliteStore::Open::orCreate),
      relay(options.limits, store, *this),
      scratchBytes(scratchSize) {
    if (options.tlsCertificate) tls = std::make_unique<TlsContext>(*options.tlsCertificate, *options.tlsKey);
    dataVersion = store.dataVersion();
    if (const auto saved = store.time()) startedAt = *saved;
    relay.start(now());
    saveTime();
    store.setPatience(storePatience);
    listen();
}

Server::~Server() {
    // Abort the links while the logic still lives: it holds references to them until it is told of their end.
    for (const auto& connection : std::vector(connections.begin(), connections.end())) connection->abort();
}

void Server::listen() {
    Tcp::Error error = listenOn(serveOptions.listen);
    std::string place = serveOptions.listen;
    for (const std::string& other : serveOptions.orListen) {
        if (error != boost::asio::error::address_in_use) break;
        place = other;
        error = listenOn(place);
    }
    if (error) throw ServeError("can't listen on " + place + ": " + error.message());
}

Tcp::Error Server::listenOn(const std::string& place) {
    const Listen wanted = listenFrom(place);
    Tcp::Error error;
    Tcp::Protocol::resolver resolver(context);
    const auto found = resolver.resolve(wanted.host, wanted.port, Tcp::Protocol::resolver::passive, error);
    if (error) return error;
    if (found.empty()) return boost::asio::error::host_not_found;
    // Prefer IPv4 for a name with both kinds of address, such as localhost: people try that one first.
    auto best = std::find_if(found.begin(), found.end(),
                             [](const auto& entry) { return entry.endpoint().protocol() == Tcp::Protocol::v4(); });
    if (best == found.end()) best = found.begin();
    const Tcp::Protocol::endpoint endpoint = best->endpoint();
    Tcp::Error ignored;
    acceptor.close(ignored);
    acceptor.open(endpoint.protocol(), error);
    if (error) return error;
    acceptor.set_option(Tcp::Acceptor::reuse_address(true), ignored);
    if (endpoint.protocol() == Tcp::Protocol::v6()) acceptor.set_option(boost::asio::ip::v6_only(false), ignored);
    acceptor.bind(endpoint, error);
    if (!error) acceptor.listen(boost::asio::socket_base::max_listen_connections, error);
    return error;
}

std::string Server::listeningOn() const {
    const auto endpoint = acceptor.local_endpoint();
    const std::string host = endpoint.address().to_string();
    return (endpoint.address().is_v6() ? "[" + host + "]" : host) + ":" + std::to_string(endpoint.port());
}

int Server::run() {
    raiseDescriptorLimit();
    signals.add(SIGTERM);
    signals.add(SIGINT);
    signals.add(SIGHUP);
    waitForSignal();
    accept();
    watchMembers();
    keepTime();
    std::printf("vimble-relay listening on %s\n", listeningOn().c_str());
    std::fflush(stdout);
    while (!isDone) runTurn();
    return status;
}

void Server::runTurn() {
    context.run_one();
    for (int count = 1; count < handlersPerTurn && context.poll_one() > 0; ++count) {
    }
    endTurn();
}

void Server::endTurn() {
    do {
        relay.turnEnded(now());
        // A connection that ends here may make the logic send to others, which the next round flushes.
        for (const auto& connection : std::exchange(toFlush, {})) connection->flush();
    } while (!toFlush.empty());
    if (isStopping && connections.empty() && status == 0) isDone = true;
}

// ---- connections

void Server::accept() {
    acceptor.async_accept([this](Tcp::Error error, Tcp::Socket socket) {
        if (isStopping) return;
        if (!error) {
            accepted(std::move(socket));
            return accept();
        }
        ++shellCounters.acceptFailures;
        // Mostly the process is out of descriptors: pause until some connections have ended.
        acceptTimer.expires_after(acceptPause);
        acceptTimer.async_wait([this](Tcp::Error timerError) {
            if (!timerError && !isStopping) accept();
        });
    });
}

void Server::accepted(Tcp::Socket socket) {
    ++shellCounters.connections;
    Tcp::Error error;
    const auto remote = socket.remote_endpoint(error);
    if (error) return;
    socket.non_blocking(true, error);
    if (error) return;
    socket.set_option(Tcp::Protocol::no_delay(true), error);

    const std::string address = textOf(remote.address());
    std::size_t& count = perAddress[limitedPlace(address)];
    // The logic limits links; this limit is for connections that never become links.
    const std::size_t most = 2 * serveOptions.limits.linksPerAddress + 16;
    if (!serveOptions.isBehindProxy && count >= most) {
        ++shellCounters.connectionsRefused;
        return;
    }
    ++count;
    if (connections.empty()) sweep();
    const auto connection = std::make_shared<ClientConnection>(*this, std::move(socket), address, now());
    connections.insert(connection);
    connection->start();
}

void Server::forget(const std::shared_ptr<ClientConnection>& connection) {
    if (connections.erase(connection) == 0) return;
    const auto found = perAddress.find(limitedPlace(connection->peerAddress()));
    if (--found->second == 0) perAddress.erase(found);
}

void Server::sweep() {
    sweepTimer.expires_after(sweepInterval);
    sweepTimer.async_wait([this](Tcp::Error error) {
        if (error) return;
        for (const auto& connection : std::vector(connections.begin(), connections.end()))
            connection->checkDeadline(now());
        if (!connections.empty()) sweep();
    });
}

bool Server::isThisMachine(const std::string& address) {
    Tcp::Error error;
    const auto parsed = boost::asio::ip::make_address(address, error);
    return !error && parsed.is_loopback();
}

std::string Server::limitedPlace(const std::string& address) {
    Tcp::Error error;
    const auto parsed = boost::asio::ip::make_address(address, error);
    if (error || !parsed.is_v6()) return address;
    // Count by the first half of an IPv6 address: a client usually has all 2^64 addresses that share it.
    auto bytes = parsed.to_v6().to_bytes();
    std::fill(bytes.begin() + 8, bytes.end(), 0);
    return boost::asio::ip::address_v6(bytes).to_string();
}

// ---- the logic's host

Date Server::now() const {
    const auto elapsed = std::chrono::steady_clock::now() - startedSteady;
    return startedAt + std::chrono::duration<double>(elapsed).count();
}

void Server::wakeAt(Date when) {
    const double microseconds = std::ceil(std::max(when - now(), 0.0) * 1e6);
    wakeTimer.expires_after(std::chrono::microseconds(static_cast<std::int64_t>(microseconds)));
    wakeTimer.async_wait([this](Tcp::Error error) {
        if (!error) relay.wake(now());
    });
}

void Server::report(std::string_view line) {
    std::fprintf(stderr, "vimble-relay: %.*s\n", static_cast<int>(line.size()), line.data());
}

void Server::watchMembers() {
    membersTimer.expires_after(membersInterval);
    membersTimer.async_wait([this](Tcp::Error error) {
        if (error || isStopping) return;
        lookAtMembers();
        watchMembers();
    });
}

void Server::lookAtMembers() {
    try {
        const std::int64_t version = store.dataVersion();
        if (version == dataVersion) return;
        dataVersion = version;
        relay.membersChanged(now());
    } catch (const StoreError&) {
        // Do nothing: the logic deals with the same failure when it next needs the store.
    }
}

void Server::keepTime() {
    timeTimer.expires_after(timeInterval);
    timeTimer.async_wait([this](Tcp::Error error) {
        if (error || isStopping) return;
        saveTime();
        keepTime();
    });
}

void Server::saveTime() {
    try {
        store.saveTime(now());
    } catch (const StoreError&) {
        // Do nothing: if the relay restarts with an older time, mail is only kept a little longer than it must be.
    }
}

std::string Server::metrics() const { return metricsText(relay.counters(), relay.gauges(), shellCounters); }

// ---- signals

void Server::waitForSignal() {
    signals.async_wait([this](Tcp::Error error, int signal) {
        if (error) return;
        if (signal == SIGHUP)
            reloadTls();
        else if (!isStopping)
            stop();
        waitForSignal();
    });
}

void Server::reloadTls() {
    if (!tls) return;
    try {
        tls = std::make_unique<TlsContext>(*serveOptions.tlsCertificate, *serveOptions.tlsKey);
        report("the certificate was read again");
    } catch (const TlsError& error) {
        report(std::string("the old certificate stays in use: ") + error.what());
    }
}

void Server::stop() {
    isStopping = true;
    Tcp::Error error;
    acceptor.close(error);
    membersTimer.cancel();
    timeTimer.cancel();
    stopDeadline = std::chrono::steady_clock::now() + stopTime;
    status = relay.shutDown(now()) ? 0 : 1;
    if (status == 0) saveTime();
    stopWhenDone();
}

void Server::stopWhenDone() {
    // The close frames are on their way; connections that don't answer them are left behind.
    stopTimer.expires_after(stopRetry);
    stopTimer.async_wait([this](Tcp::Error error) {
        if (error) return;
        if (status != 0) status = relay.shutDown(now()) ? 0 : 1;
        const bool isLate = std::chrono::steady_clock::now() >= stopDeadline;
        if (!isLate && (status != 0 || !connections.empty())) return stopWhenDone();
        if (status != 0) report("the mail could not be saved: " + relay.storeFailure().value_or("unknown reason"));
        isDone = true;
    });
}
