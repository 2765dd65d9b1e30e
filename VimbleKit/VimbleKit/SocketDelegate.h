#pragma once

#include "VimbleKit/SocketError.h"
#include "VimbleWire/Pack.h"
#include "VimbleWire/ServerMessage.h"

#include <optional>
#include <string>
#include <vector>

class Socket;

/// Who is told what a `Socket` hears. Held weakly; may replace or destroy the socket inside any call.
class SocketDelegate {
public:
    virtual ~SocketDelegate() = default;

    /// The first pack from the server came: the link is authenticated.
    virtual void socketDidConnect(Socket& socket) = 0;
    /// The link closed with a network failure before that.
    virtual void socketConnectFailed(Socket& socket, const std::string& text) = 0;
    /// The server refused the user's key.
    virtual void socketAuthorizationFailed(Socket& socket, const std::string& text) = 0;
    /// An authenticated link ended.
    virtual void socketDisconnected(Socket& socket, const std::optional<SocketError>& error) = 0;
    virtual void socketReceivedPeople(Socket& socket, const std::vector<MetaPerson>& people) = 0;
    virtual void socketCommandFailed(Socket& socket, const std::string& text) = 0;
    virtual void socketCommandResponded(Socket& socket, const std::string& text) = 0;
    /// A pack from anybody but the server, opened.
    virtual void socketReceivedPack(Socket& socket, const Pack& pack) = 0;

    /// Lines for the logs of traffic.
    virtual void socketSent(Socket& socket, const std::string& line) = 0;
    virtual void socketReceived(Socket& socket, const std::string& line) = 0;
    /// Whether anybody reads those lines: one to a thousand people prints them all, and is left unbuilt
    /// where nobody does.
    virtual bool socketLinesAreRead() const { return true; }
};
