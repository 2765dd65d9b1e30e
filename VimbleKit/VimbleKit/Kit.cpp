#include "VimbleKit/Kit.h"

#include "Base/Check.h"
#include "StateKit/Log.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace {

constexpr Seconds saveInterval = 2.0;
constexpr Seconds saveMaxDelay = 30.0;
constexpr Seconds maxReconnectDelay = 30.0;

const Log kitLog("zorvane.VimbleKit", "Kit");

std::function<KitEnvironment()>& sharedEnvironment() {
    static std::function<KitEnvironment()> make;
    return make;
}

std::shared_ptr<const Keys> loadKeys(SecretStore& secrets) {
    try {
        return std::make_shared<const Keys>(Keys::loadOrGenerate(secrets));
    } catch (const KeysError& error) {
        fatal(error.what());
    }
}

State ownedBy(const Keys& keys, State state) {
    state.publicKey = keys.publicKeyText();
    return state;
}

State firstState(const KitEnvironment& environment) {
    return environment.loadState ? environment.loadState() : State::load(environment.folder, {});
}

}  // namespace

Kit& Kit::shared() {
    // Lives as long as the process, and is never torn down.
    static Kit* const kit = [] {
        check(static_cast<bool>(sharedEnvironment()), "Kit::shared was used before Kit::configureShared");
        return new Kit(sharedEnvironment()());
    }();
    return *kit;
}

void Kit::configureShared(std::function<KitEnvironment()> environment) { sharedEnvironment() = std::move(environment); }

Kit::Kit(const KitEnvironment& environment)
    : _environment(environment),
      _keys(loadKeys(environment.secrets)),
      _core(Core<State>::make(environment.loop, ownedBy(*_keys, firstState(environment)))),
      _suspendTimer(Heartbeat::make(environment.loop, saveInterval, saveMaxDelay)),
      _internetStatus(environment.internets.status()),
      _subsEvents(environment.loop),
      _subsPeople(environment.loop),
      _subsOnline(environment.loop),
      _subsNetworkIO(environment.loop),
      _incoming(std::make_unique<Incoming>(environment.loop, *_core, _subsEvents)) {
    if (state().endpoint) _socket = makeSocket(*state().endpoint);
    _core->subscribe(*this, &Kit::coreStateChanged);
    _suspendTimer->subscribe(*this, &Kit::persist);
    _environment.internets.subscribe(*this,
                                     [](Kit& kit, Internets::Status status) { kit.internetStatusChanged(status); });
    _environment.loop.post([self = Weak<Kit>(this)] {
        if (self) self->reconnectIfNeeded();
    });
}

Kit::SessionSocket Kit::makeSocket(const Endpoint& endpoint) {
    auto socket = std::make_unique<Socket>(_environment.transport, _environment.host, endpoint.url(), _keys);
    socket->setDelegate(Weak<SocketDelegate>(this, *this));
    return socket;
}

// ---- saving

void Kit::coreStateChanged(const State&) {
    _suspendTimer->beat();
    DebugLines::print([] { return "core state changed"; });
}

void Kit::persist() {
    try {
        save();
    } catch (const std::exception& error) {
        kitLog.error(std::string("Failed to suspend state: ") + error.what());
    }
}

void Kit::save() const { state().save(_environment.folder); }

// ---- the link

bool Kit::canConnect() const {
    return state().connection != Connection::setup && _internetStatus == Internets::Status::online && _socket &&
           !_socket->isConnected() && !_socket->isConnecting();
}

void Kit::attemptConnection(bool reset) {
    if (!canConnect()) return;
    if (reset) _reconnectAttempt = 0;
    cancelReconnect();
    _socket->connect();
}

void Kit::cancelReconnect() { _reconnectTimer.reset(); }

void Kit::reconnectIfNeeded() {
    if (state().connection != Connection::setup) attemptConnection(true);
}

void Kit::scheduleReconnect() {
    if (!canConnect()) return;
    cancelReconnect();
    const Seconds delay = std::min(maxReconnectDelay, 1.0 * std::pow(2.0, static_cast<double>(_reconnectAttempt)));
    check(!__builtin_add_overflow(_reconnectAttempt, 1, &_reconnectAttempt), "Kit ran out of reconnection attempts");
    _reconnectTimer = std::make_unique<Timer>(_environment.loop, delay, [self = Weak<Kit>(this)] {
        Kit* kit = self.get();
        if (!kit) return;
        kit->_reconnectTimer.reset();
        kit->attemptConnection(false);
    });
}

void Kit::suspendConnection() {
    if (state().connection == Connection::setup) return;
    cancelReconnect();
    if (_socket) _socket->disconnect();
    setConnection(Connection::offline);
}

void Kit::internetStatusChanged(Internets::Status status) {
    if (status == _internetStatus) return;
    _internetStatus = status;
    if (status == Internets::Status::offline)
        suspendConnection();
    else
        reconnectIfNeeded();
}

void Kit::setConnection(Connection connection) {
    _core->commit([&](State& state) { state.connection = connection; });
}

// ---- what the socket reports: the state changes first, then observers are told

// Every commit and every event runs observers, which may destroy this session.

void Kit::announce(Online online, const Event& event) {
    const Weak<Kit> self(this);
    _subsOnline.send(online);
    if (self) _subsEvents.send(event);
}

void Kit::linkWentDown(const Socket& socket) {
    if (state().connection == Connection::setup) return;
    const Weak<Kit> self(this);
    setConnection(Connection::offline);
    // An observer of the commit may have changed the server, and the new one is connected to only on request.
    if (self && _socket.get() == &socket) scheduleReconnect();
}

void Kit::socketDidConnect(Socket&) {
    // The user has disconnected, and the server's first pack crossed our close frame. If this counted as a
    // connection, the end of the link would look like a loss and start a retry.
    if (state().connection == Connection::setup) return;
    const Weak<Kit> self(this);
    cancelReconnect();
    _reconnectAttempt = 0;
    setConnection(Connection::online);
    if (self) announce(Online::online, Events::Connected{});
}

void Kit::socketConnectFailed(Socket& socket, const std::string& text) {
    const Weak<Kit> self(this);
    const Event event = Events::ConnectFailed{text};
    linkWentDown(socket);
    if (self) announce(Online::offline, event);
}

void Kit::socketAuthorizationFailed(Socket&, const std::string& text) {
    const Weak<Kit> self(this);
    const Event event = Events::AuthorizationFailed{text};
    cancelReconnect();
    _reconnectAttempt = 0;
    setConnection(Connection::setup);
    if (self) announce(Online::offline, event);
}

void Kit::socketDisconnected(Socket& socket, const std::optional<SocketError>&) {
    const Weak<Kit> self(this);
    linkWentDown(socket);
    if (self) announce(Online::offline, Events::Disconnected{});
}

void Kit::socketReceivedPeople(Socket&, const std::vector<MetaPerson>& people) { _incoming->receivedPeople(people); }

void Kit::socketCommandFailed(Socket&, const std::string& text) { _subsEvents.send(Events::CommandFailed{text}); }

void Kit::socketCommandResponded(Socket&, const std::string& text) { _subsEvents.send(Events::CommandResponded{text}); }

void Kit::socketReceivedPack(Socket&, const Pack& pack) { _incoming->receivedPack(pack); }

void Kit::socketSent(Socket&, const std::string& line) { _subsNetworkIO.send({NetworkIO::Direction::outbound, line}); }

void Kit::socketReceived(Socket&, const std::string& line) {
    _subsNetworkIO.send({NetworkIO::Direction::inbound, line});
}
