#pragma once

#include "StateKit/MainLoop.h"
#include "StateKit/Transport.h"

#include <QUrl>
#include <QWebSocket>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

/// One WebSocket connection over `QWebSocket`: what `QtTransport` hands out, from behind a shared pointer.
///
/// `QWebSocket` reports in orders that differ from failure to failure, sometimes inside the very call
/// that began it. So its signals only note what happened, and everything else (telling the owner,
/// giving a socket up, making a new one) is posted to the loop, outside of any signal and of any call
/// of the owner. Each attempt has a new `QWebSocket`, since the close code of an old one stays behind.
///
/// Main thread only. The owner calls `abandon` when it dies; nothing is told after that.
class QtLink : public std::enable_shared_from_this<QtLink> {
public:
    using Completion = std::function<void(const std::optional<TransportError>&)>;

    struct Troubles {
        std::function<void(const std::string&)> tell;
        std::function<void()> mended;
    };

    QtLink(MainLoop& loop, TransportParameters parameters, Troubles troubles);
    ~QtLink();

    void start(TransportConnection::Handlers handlers);
    TransportState state() const { return _state; }
    void send(TransportMessage message, Completion completion);
    void cancel();
    void abandon();

    /// Pings the peer. @param done  true once it has answered, false when the link ended before; once
    ///        and never inside this call, also after the owner's death
    void confirm(std::function<void(bool)> done);

private:
    void enter(TransportState newState, std::optional<TransportError> error);
    void finish(const TransportError& error);
    void attempt();
    void watch(QWebSocket& webSocket);
    void dropSocket();
    void noteError(std::string text);
    void attemptBroke();
    void afterBreak();
    void becameReady();
    void deliver(TransportMessage message);
    void peerCloses();
    void heard();
    void ping();
    void closeHandedOver();
    void answerConfirmations(bool isConfirmed);
    void pongCame(const QByteArray& payload);
    void complete(Completion completion, std::optional<TransportError> error);
    /// Posts a call of a member that happens unless the link is over by then.
    void postMember(std::function<void(QtLink&)> work, unsigned ofAttempt);

    MainLoop& loop;
    const TransportParameters parameters;
    Troubles troubles;
    QUrl target;
    std::shared_ptr<TransportConnection::Handlers> handlers;
    TransportState _state = TransportState::setup;
    bool hasStarted = false;

    std::unique_ptr<QWebSocket> socket;
    unsigned attemptNumber = 0;  // what is posted for an earlier attempt is stale
    bool isReady = false;        // as the socket knows it; `_state` follows when the owner is told
    bool hasBroken = false;      // the attempt's end has been noted
    bool hasPeerClosed = false;
    bool isClosing = false;  // a close message of ours is on its way
    std::string brokenBecause;
    Seconds backOff = 1;

    std::unique_ptr<Timer> timer;  // of the attempt, the back-off, the silence or the close: never two at once
    bool isPinged = false;
    Completion closeCompletion;
    std::uint64_t nextConfirmation = 1;
    std::map<std::uint64_t, std::function<void(bool)>> confirmations;
};
