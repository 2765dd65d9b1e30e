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

/// One WebSocket connection over `QWebSocket`. The connections that `QtTransport` gives out are handles of it.
///
/// `QWebSocket` sends its signals in an order that differs from failure to failure, sometimes inside the
/// very call that failed. So they only note what happened, and everything else (telling the owner, giving
/// a socket up, making a new one) is posted to the loop, outside of any signal and of any call of the
/// owner. Each attempt has a new `QWebSocket`, since an old one keeps its close code.
///
/// Main thread only. The owner calls `abandon` when it dies; after that no handler is called.
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

    /// Pings the peer. @param done  called once and never inside this call, also after the owner's death:
    ///        true when the peer has answered, false when the link has ended before
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
    /// Posts work that is dropped if the link or that attempt is over by then.
    void postMember(std::function<void(QtLink&)> work, unsigned ofAttempt);

    MainLoop& loop;
    const TransportParameters parameters;
    Troubles troubles;
    QUrl target;
    std::shared_ptr<TransportConnection::Handlers> handlers;
    TransportState _state = TransportState::setup;
    bool hasStarted = false;

    std::unique_ptr<QWebSocket> socket;
    unsigned attemptNumber = 0;  // work that was posted for an earlier attempt is dropped
    bool isReady = false;        // the socket is; `_state` follows when the owner is told
    bool hasBroken = false;      // the attempt's end has been noted
    bool hasPeerClosed = false;
    bool isClosing = false;  // a close message of ours is on its way
    std::string brokenBecause;
    Seconds backOff = 1;

    std::unique_ptr<Timer> timer;  // for the attempt, the back-off, the silence or the close: never two at once
    bool isPinged = false;
    Completion closeCompletion;
    std::uint64_t nextConfirmation = 1;
    std::map<std::uint64_t, std::function<void(bool)>> confirmations;
};
