#pragma once

#include "StateKit/Websocket.h"
#include "VimbleKit/Keys.h"
#include "VimbleKit/SharedKeyCache.h"
#include "VimbleKit/SocketDelegate.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The client of the chat protocol: one server, any number of connections one after the other.
///
/// It takes the server's key from the greeting, proves the user's key by the command "list", which it
/// sends sealed, keeps the server's list, seals each text once for each reader, and tells the delegate
/// what arrives. It owns no chat state. A frame that can't be parsed or opened is dropped silently.
///
/// Main thread only. A link that never becomes ready reports nothing, and leaves `isConnecting` set
/// until `disconnect`.
class Socket : public SignalTarget, public WebsocketDelegate {
public:
    /// Does not connect.
    /// @param transport, host  must outlive the socket
    Socket(Transport& transport, const Host& host, std::string endpoint, std::shared_ptr<const Keys> keys);

    void setDelegate(Weak<SocketDelegate> newDelegate) { delegate = newDelegate; }

    void connect();
    /// Closes the link, or the one that is being made, with code 1000. The report of its end follows later.
    void disconnect();

    /// Sends one pack to each entry of the server's list, also to the user and to those who are offline.
    /// @throws NaclError  nothing can be sealed for a key of the list; the entries before it have their pack
    void sendChat(const std::string& text, const std::string& name, const std::string& emoji, const std::string& kind);

    /// Sends one pack to a key, which need not be on the server's list.
    /// @throws SocketError badArgument  the key is not hexadecimal
    /// @throws NaclError  it is hexadecimal, but no public key
    void sendDirect(const std::string& text, const std::string& targetKey, const std::string& name,
                    const std::string& emoji);

    /// Sends one pack to the server.
    /// @throws SocketError notConnected  before the greeting; badArgument  the text is not UTF-8
    void sendCommand(std::string_view command);

    /// Tells everybody the user's name and emoji. @throws NaclError  as `sendChat`
    void sendPong(const std::string& name, const std::string& emoji);

    /// True from the first pack of the server until the link ends.
    bool isConnected() const { return _isConnected; }
    /// True from `connect` until the link is authenticated or closed.
    bool isConnecting() const { return _isConnecting; }
    /// The server's last list, as sent; empty without a link.
    const std::vector<MetaPerson>& serverPeople() const { return _serverPeople; }
    const std::string& endpoint() const { return _endpoint; }

private:
    /// One entry of the server's list; the first text to it computes `shared`.
    struct Recipient {
        std::optional<PublicKey> key;  // nothing: hexadecimal, but no key by its size
        SharedKeyCache::Entry shared;
    };

    void websocketDidConnect(Websocket&) override {}
    void websocketDidDisconnect(Websocket&, const std::optional<TransportError>& error,
                                std::optional<CloseCode> closeCode) override;
    void websocketDidReceive(Websocket&, ByteView message) override;

    void receiveGreeting(ByteView frame);
    void receiveServerMessage(ByteView plaintext);
    std::optional<Pack> opened(ByteView frame);
    void setServerPeople(std::vector<MetaPerson> people);
    void fanOut(const PackPlaintext& record);
    SharedKeyCache::Entry sharedKey(const PublicKey& other);
    void seal(const PublicKey& target, const Nonce& nonce, ByteView payload, const SharedKeyCache::Entry& shared);
    template <class Build>
    void logSent(Build&& build);
    template <class Build>
    void logReceived(Build&& build);

    std::string _endpoint;
    bool _isConnected = false;
    bool _isConnecting = false;
    Weak<SocketDelegate> delegate;
    std::shared_ptr<const Keys> keys;  // shared with the session, which makes a socket for each endpoint
    SharedKeyCache sharedKeys;
    std::optional<PublicKey> serverKey;  // from the greeting to the end of the link
    std::vector<MetaPerson> _serverPeople;
    std::vector<std::optional<Recipient>> recipients;  // as `_serverPeople`; nothing: its key is not hexadecimal
    std::string printedPeople;                         // the list's printed form, empty until a line needs it
    Websocket websocket;                               // last: its reports use the other members
};
