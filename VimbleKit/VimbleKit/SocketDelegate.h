#pragma once

#include "VimbleKit/SocketError.h"
#include "VimbleWire/Pack.h"
#include "VimbleWire/ServerMessage.h"

#include <optional>
#include <string>
#include <vector>

class Socket;

/// Is told what a `Socket` receives. The socket holds it weakly. It may replace or destroy the socket inside
/// any call.
class SocketDelegate {
public:
    virtual ~SocketDelegate() = default;

    /// The first pack from the server came: the link is authenticated.
    virtual void socketDidConnect(Socket& socket) = 0;
    /// The link closed with a network failure before it was authenticated.
    virtual void socketConnectFailed(Socket& socket, const std::string& text) = 0;
    /// The server refused the user's key.
    virtual void socketAuthorizationFailed(Socket& socket, const std::string& text) = 0;
    /// An authenticated link ended.
    virtual void socketDisconnected(Socket& socket, const std::optional<SocketError>& error) = 0;
    virtual void socketReceivedPeople(Socket& socket, const std::vector<MetaPerson>& people) = 0;
    virtual void socketCommandFailed(Socket& socket, const std::string& text) = 0;
    virtual void socketCommandResponded(Socket& socket, const std::string& text) = 0;
    /// A pack arrived whose author is not the server; it has been opened.
    virtual void socketReceivedPack(Socket& socket, const Pack& pack) = 0;

    /// Lines for the logs of traffic.
    virtual void socketSent(Socket& socket, const std::string& line) = 0;
    virtual void socketReceived(Socket& socket, const std::string& line) = 0;
    /// Whether anybody reads those lines. If not, they are not built: the line of a text to a thousand people
    /// prints all of them.
    virtual bool socketLinesAreRead() const { return true; }
};
