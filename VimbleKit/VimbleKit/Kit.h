#pragma once

#include "StateKit/Core.h"
#include "StateKit/Heartbeat.h"
#include "StateKit/Internets.h"
#include "StateKit/MainLoop.h"
#include "StateKit/Signal.h"
#include "VimbleKit/Event.h"
#include "VimbleKit/Incoming.h"
#include "VimbleKit/Keys.h"
#include "VimbleKit/NetworkIO.h"
#include "VimbleKit/Socket.h"
#include "VimbleKit/State.h"

#include <concepts>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

/// What a session needs of the machine. All references must outlive the session.
struct KitEnvironment {
    MainLoop& loop;
    Internets& internets;
    SecretStore& secrets;
    Transport& transport;
    const Host& host;
    std::filesystem::path folder;  // the application's own; holds the state files
    /// Gives what `State::load` gives for the folder and the last server in use. For a program that has begun
    /// to read the state earlier, on another thread. Called once, at the start; without this function the
    /// session itself reads the state then.
    std::function<State()> loadState = {};
};

/// A subset of the engine's state, made for a view: what `Kit::observeModel` takes.
template <class Model>
concept ViewModel = CoreInitable<Model> && std::same_as<typename Model::StateType, State>;

/// The session: the only door to the chat.
///
/// It owns the state, the user's keys and the link to the server, and decides when the program is
/// connected: a link that goes down is tried again after 1, 2, 4, 8, 16 and then every 30 seconds, at
/// once when the network returns, and not at all after the server refused the key. It writes the state
/// some two seconds after the last change, or at the first change that comes more than 30 seconds after
/// the oldest unwritten one. It does not write at the end of the process: the program calls `save`.
///
/// Every sending operation sends first, and changes the state only if sending raised no error. Observers
/// of events are told after the state has changed.
///
/// The application has one session, `shared`; tests and simulations have several in one process.
/// Main thread only. An observer may call any operation, and even destroy the session, inside any of
/// its actions.
class Kit : public SignalTarget, private SocketDelegate {
public:
    /// The target by which `send` means the room.
    static const std::string roomKey;

    /// Loads the keys and the state, and connects at the loop's next turn if the user was connected when
    /// last the program ran. Ends the process if the keys can't be read: it can't run without them.
    explicit Kit(const KitEnvironment& environment);

    /// The process's one session, made at first use from what `configureShared` was given.
    static Kit& shared();
    /// Says what the shared session runs on. Call it once, before the first use of `shared`.
    static void configureShared(std::function<KitEnvironment()> environment);

    const State& state() const { return _core->state(); }
    const Keys& keys() const { return *_keys; }
    /// The link to the server, present exactly when the state has an endpoint.
    const Socket* socket() const { return _socket.get(); }

    // ---- observing: the target is held weakly and never has to unsubscribe

    /// The state now, and after every change.
    template <class Target>
    void observeState(Target& target, std::type_identity_t<std::function<void(Target&, const State&)>> action) {
        _core->subscribe(target, std::move(action));
        _core->resend(target);
    }
    /// A subset of the state now, and when it changes.
    template <ViewModel Model, class Target>
    void observeModel(Target& target, std::type_identity_t<std::function<void(Target&, const Model&)>> action) {
        _core->template subscribeSubset<Model>(target, std::move(action));
        _core->resend(target);
    }
    /// Everything that happens from now on.
    template <class Target>
    void observeEvents(Target& target, std::type_identity_t<std::function<void(Target&, const Event&)>> action) {
        _subsEvents.subscribe(target, std::move(action));
    }
    template <class Target>
    void observeOnline(Target& target, std::type_identity_t<std::function<void(Target&, const Online&)>> action) {
        _subsOnline.subscribe(target, std::move(action));
    }
    template <class Target>
    void observeNetworkIO(Target& target, std::type_identity_t<std::function<void(Target&, const NetworkIO&)>> action) {
        _subsNetworkIO.subscribe(target, std::move(action));
    }

    // ---- what the user does

    /// Notes that the user wants to be connected to the chosen server, and connects if there is a network.
    void connect();

    /// Notes that the user no longer wants to be connected, and closes the link.
    void disconnect();

    /// Changes to another server and loads what is stored of it; does not connect.
    void setEndpoint(const Endpoint& endpoint);

    /// Tells everybody a new name, or emoji. Nothing happens without a link, or before the server's list
    /// has included the user.
    /// @throws SocketError badArgument  the text is not UTF-8
    /// @throws NaclError  nothing can be sealed for somebody's key
    void setName(const std::string& name);
    void setEmoji(const std::string& emoji);

    /// "name NAME", "emoji EMOJI", or a line for the server. Nothing happens without a link.
    /// @throws SocketError, NaclError
    void command(std::string_view text);

    /// Sends a text to the room (`roomKey`) or to the person with that key. Nothing happens without a
    /// link, or before the server's list has included the user; `canSend` tells whether it can.
    /// @throws SocketError badArgument  the target is no key, or the text is not UTF-8
    /// @throws NaclError  nothing can be sealed for somebody's key
    void send(const std::string& text, const std::string& target);
    bool canSend() const { return _socket && _socket->isConnected() && state().me(); }

    /// Notes that the user has seen all of a conversation, or of the room.
    void markRead(const std::string& key);
    void markRoomRead();

    /// @throws KitError notConnected  unless the link is up
    void requireOnline() const;

    /// Writes the state now. @throws DiskError, std::filesystem::filesystem_error
    void save() const;

private:
    using SessionSocket = std::unique_ptr<Socket>;

    void coreStateChanged(const State&);
    void persist();

    bool canConnect() const;
    void attemptConnection(bool reset);
    void cancelReconnect();
    void reconnectIfNeeded();
    void scheduleReconnect();
    void suspendConnection();
    void internetStatusChanged(Internets::Status status);
    void setConnection(Connection connection);
    void linkWentDown(const Socket& socket);
    void announce(Online online, const Event& event);
    SessionSocket makeSocket(const Endpoint& endpoint);

    void socketDidConnect(Socket&) override;
    void socketConnectFailed(Socket&, const std::string& text) override;
    void socketAuthorizationFailed(Socket&, const std::string& text) override;
    void socketDisconnected(Socket&, const std::optional<SocketError>& error) override;
    void socketReceivedPeople(Socket&, const std::vector<MetaPerson>& people) override;
    void socketCommandFailed(Socket&, const std::string& text) override;
    void socketCommandResponded(Socket&, const std::string& text) override;
    void socketReceivedPack(Socket&, const Pack& pack) override;
    void socketSent(Socket&, const std::string& line) override;
    void socketReceived(Socket&, const std::string& line) override;
    bool socketLinesAreRead() const override { return _subsNetworkIO.hasSubscribers(); }

    KitEnvironment _environment;
    std::shared_ptr<const Keys> _keys;   // shared with the sockets
    std::shared_ptr<Core<State>> _core;  // shared with nobody: `Core::make` returns it so
    SessionSocket _socket;
    std::shared_ptr<Heartbeat> _suspendTimer;  // its pending timer keeps it alive too
    Internets::Status _internetStatus;
    std::unique_ptr<Timer> _reconnectTimer;  // present while a retry is armed
    std::int64_t _reconnectAttempt = 0;      // retries since the last success or reset
    Signal<Event> _subsEvents;
    Signal<std::vector<Person>> _subsPeople;  // nothing is sent on it
    Signal<Online> _subsOnline;
    Signal<NetworkIO> _subsNetworkIO;
    std::unique_ptr<Incoming> _incoming;  // replaced with the server: drops the rest of an old server's pack
};
