#include "PlatformCore/QtLink.h"

#include "PlatformCore/QtTransport.h"
#include "QtText/QtText.h"

#include <QNetworkRequest>
#include <QSslError>

#include <algorithm>
#include <utility>

namespace {

constexpr char confirmationPrefix[] = "drain ";
constexpr qsizetype longestPing = 125;  // RFC 6455, section 5.5

/// How long a close message may take to leave after all that was sent before it, in seconds.
constexpr Seconds closeTimeout = 5;

/// Makes text of the peer safe for a log or a terminal: one line without control characters.
std::string plainLine(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }, ' ');
    return text;
}

/// The URL that the link connects to: the user's, with the scheme that the library wants, and without the
/// parts that do not belong in a request.
QUrl targetOf(const TransportParameters& parameters) {
    QUrl url(toQt(parameters.url));
    url.setScheme(parameters.usesTls ? QStringLiteral("wss") : QStringLiteral("ws"));
    url.setFragment({});
    url.setUserInfo({});
    return url;
}

std::optional<TransportError> impossible(const QUrl& target, const TransportParameters& parameters) {
    if (!target.isValid() || target.host().isEmpty()) return TransportError{"not a URL with a host"};
    for (const auto& [name, value] : parameters.headers)
        if ((name + value).find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos)
            return TransportError{"a header with a line break in it"};
    return std::nullopt;
}

std::string address(const QUrl& url) {
    const QString host =
        url.host().contains(QLatin1Char(':')) ? QLatin1Char('[') + url.host() + QLatin1Char(']') : url.host();
    return fromQt(url.port() < 0 ? host : host + QLatin1Char(':') + QString::number(url.port()));
}

}  // namespace

QtLink::QtLink(MainLoop& loop, TransportParameters given, Troubles troubles)
    : loop(loop), parameters(std::move(given)), troubles(std::move(troubles)), target(targetOf(parameters)) {}

QtLink::~QtLink() { dropSocket(); }

void QtLink::start(TransportConnection::Handlers newHandlers) {
    if (std::exchange(hasStarted, true)) return;
    handlers = std::make_shared<TransportConnection::Handlers>(std::move(newHandlers));
    if (const auto error = impossible(target, parameters)) {
        postMember(
            [error](QtLink& link) {
                link.troubles.tell(plainLine(link.parameters.url.substr(0, 200)) + ": " + error->text);
                link.enter(TransportState::failed, error);
            },
            attemptNumber);
        return;
    }
    postMember([](QtLink& link) { link.attempt(); }, attemptNumber);
}

void QtLink::cancel() {
    if (_state == TransportState::cancelled) return;
    dropSocket();
    closeHandedOver();
    _state = TransportState::cancelled;
    if (!handlers) return;
    loop.post([weak = weak_from_this(), kept = std::weak_ptr(handlers)] {
        const auto link = weak.lock();
        const auto told = kept.lock();
        if (link && told && told->stateChanged) told->stateChanged(TransportState::cancelled, std::nullopt);
    });
}

void QtLink::abandon() {
    // A handler may be running right now; its caller holds the handlers until it returns.
    handlers.reset();
    closeCompletion = {};
    dropSocket();
    _state = TransportState::cancelled;
}

void QtLink::send(TransportMessage message, Completion completion) {
    if (_state != TransportState::ready || !isReady || hasBroken || isClosing) {
        complete(std::move(completion), TransportError{"the link is not ready"});
        return;
    }
    const QByteArray content(reinterpret_cast<const char*>(message.content.data()),
                             static_cast<qsizetype>(message.content.size()));
    switch (message.opcode) {
        case Opcode::text: socket->sendTextMessage(QString::fromUtf8(content)); break;
        case Opcode::binary: socket->sendBinaryMessage(content); break;
        case Opcode::ping:
            if (content.size() > longestPing)
                return complete(std::move(completion), TransportError{"a ping that is too long"});
            socket->ping(content);
            break;
        case Opcode::close:
            isClosing = true;
            closeCompletion = std::move(completion);
            timer = std::make_unique<Timer>(loop, closeTimeout, [this] { closeHandedOver(); });
            socket->close(
                static_cast<QWebSocketProtocol::CloseCode>(message.closeCode.value_or(CloseCode::normalClosure)),
                QString::fromUtf8(content));
            return;
        case Opcode::continuation:
        case Opcode::pong:
            return complete(std::move(completion), TransportError{"a message that only the link itself may send"});
    }
    complete(std::move(completion), std::nullopt);
}

void QtLink::complete(Completion completion, std::optional<TransportError> error) {
    if (!completion) return;
    loop.post([weak = weak_from_this(), completion = std::move(completion), error = std::move(error)] {
        const auto link = weak.lock();
        if (link && link->handlers) completion(error);
    });
}

void QtLink::closeHandedOver() {
    if (isClosing) complete(std::exchange(closeCompletion, {}), std::nullopt);
}

void QtLink::confirm(std::function<void(bool)> done) {
    if (!isReady || hasBroken || isClosing || !socket) {
        loop.post([done = std::move(done)] { done(false); });
        return;
    }
    const std::uint64_t number = nextConfirmation++;
    confirmations.emplace(number, std::move(done));
    socket->ping(confirmationPrefix + QByteArray::number(static_cast<qulonglong>(number)));
}

void QtLink::answerConfirmations(bool isConfirmed) {
    for (auto& [number, done] : std::exchange(confirmations, {}))
        loop.post([done = std::move(done), isConfirmed] { done(isConfirmed); });
}

void QtLink::pongCame(const QByteArray& payload) {
    heard();
    if (!payload.startsWith(confirmationPrefix)) return;
    const auto found = confirmations.find(payload.mid(sizeof confirmationPrefix - 1).toULongLong());
    if (found == confirmations.end()) return;
    loop.post([done = std::move(found->second)] { done(true); });
    confirmations.erase(found);
}

void QtLink::postMember(std::function<void(QtLink&)> work, unsigned ofAttempt) {
    loop.post([weak = weak_from_this(), work = std::move(work), ofAttempt] {
        const auto link = weak.lock();  // kept alive for the length of the call
        if (link && link->handlers && link->attemptNumber == ofAttempt && link->_state != TransportState::cancelled)
            work(*link);
    });
}

void QtLink::enter(TransportState newState, std::optional<TransportError> error) {
    _state = newState;
    const auto kept = handlers;
    if (kept && kept->stateChanged) kept->stateChanged(newState, error);
}

void QtLink::attempt() {
    enter(TransportState::preparing, std::nullopt);
    if (_state != TransportState::preparing) return;  // the handler has given the link up
    dropSocket();
    socket = std::make_unique<QWebSocket>();
    watch(*socket);
    timer = std::make_unique<Timer>(loop, QtTransport::attemptTimeout, [this] {
        noteError("no answer within " + std::to_string(static_cast<int>(QtTransport::attemptTimeout)) + " seconds");
        attemptBroke();
    });
    QNetworkRequest request(target);
    for (const auto& [name, value] : parameters.headers)
        request.setRawHeader(QByteArray::fromStdString(name), QByteArray::fromStdString(value));
    socket->open(request);
}

void QtLink::watch(QWebSocket& webSocket) {
    webSocket.setMaxAllowedIncomingMessageSize(QtTransport::maximumMessageBytes);
    webSocket.setMaxAllowedIncomingFrameSize(QtTransport::maximumMessageBytes);
    QObject::connect(&webSocket, &QWebSocket::connected, [this] { becameReady(); });
    QObject::connect(&webSocket, &QWebSocket::disconnected, [this] { attemptBroke(); });
    QObject::connect(&webSocket, &QWebSocket::aboutToClose, [this] { peerCloses(); });
    QObject::connect(&webSocket, &QWebSocket::binaryFrameReceived, [this] { heard(); });
    QObject::connect(&webSocket, &QWebSocket::textFrameReceived, [this] { heard(); });
    QObject::connect(&webSocket, &QWebSocket::pong, [this](quint64, const QByteArray& payload) { pongCame(payload); });
    QObject::connect(&webSocket, &QWebSocket::binaryMessageReceived, [this](const QByteArray& content) {
        deliver({Opcode::binary, Bytes(content.begin(), content.end()), std::nullopt});
    });
    QObject::connect(&webSocket, &QWebSocket::textMessageReceived, [this](const QString& text) {
        const QByteArray content = text.toUtf8();
        deliver({Opcode::text, Bytes(content.begin(), content.end()), std::nullopt});
    });
    QObject::connect(&webSocket, &QWebSocket::sslErrors, [this](const QList<QSslError>& errors) {
        std::string text = "TLS:";
        for (const QSslError& error : errors) text += " " + fromQt(error.errorString());
        noteError(std::move(text));
    });
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    const auto errorSignal = &QWebSocket::errorOccurred;
#else
    const auto errorSignal = QOverload<QAbstractSocket::SocketError>::of(&QWebSocket::error);
#endif
    QObject::connect(&webSocket, errorSignal, [this](QAbstractSocket::SocketError) {
        noteError(fromQt(socket->errorString()));
        attemptBroke();
    });
}

void QtLink::dropSocket() {
    ++attemptNumber;
    timer.reset();
    isReady = hasBroken = hasPeerClosed = isPinged = false;
    brokenBecause.clear();
    answerConfirmations(false);
    if (!socket) return;
    // Disconnect its signals first: `abort` and the destructor send some that are about no attempt.
    socket->disconnect();
    socket->abort();
    socket.reset();
}

void QtLink::noteError(std::string text) {
    // Keep the first error, which says most: after "Connection refused" may come "The remote host closed".
    if (brokenBecause.empty()) brokenBecause = plainLine(std::move(text));
}

void QtLink::attemptBroke() {
    if (std::exchange(hasBroken, true)) return;
    // Read the reason later: some failures report their error only after the disconnection.
    postMember([](QtLink& link) { link.afterBreak(); }, attemptNumber);
}

void QtLink::afterBreak() {
    const TransportError error{brokenBecause.empty() ? "the link was closed" : brokenBecause};
    if (isClosing) {
        // An owner that closes the link cancels it in the completion; then `finish` is not called.
        closeHandedOver();
        postMember([error](QtLink& link) { link.finish(error); }, attemptNumber);
        return;
    }
    if (_state == TransportState::ready) return finish(error);
    dropSocket();
    timer = std::make_unique<Timer>(loop, backOff,
                                    [this] { postMember([](QtLink& link) { link.attempt(); }, attemptNumber); });
    backOff = std::min(backOff * 2, QtTransport::longestBackOff);
    troubles.tell(address(target) + ": " + error.text);
    enter(TransportState::waiting, error);
}

void QtLink::finish(const TransportError& error) {
    dropSocket();
    _state = TransportState::failed;
    const auto kept = handlers;
    if (kept && kept->receiveFailed) kept->receiveFailed(error);
}

void QtLink::becameReady() {
    isReady = true;
    timer.reset();
    postMember(
        [](QtLink& link) {
            link.troubles.mended();
            link.enter(TransportState::ready, std::nullopt);
        },
        attemptNumber);
    heard();
}

void QtLink::deliver(TransportMessage message) {
    // A shared pointer, since posted work has to be copyable and a message may be large.
    postMember(
        [kept = std::make_shared<TransportMessage>(std::move(message))](QtLink& link) {
            const auto told = link.handlers;
            if (told->received) told->received(std::move(*kept));
        },
        attemptNumber);
}

void QtLink::peerCloses() {
    // The signal also comes when this side closes, twice for some closes, and after the end over TLS.
    if (!isReady || isClosing || hasBroken || std::exchange(hasPeerClosed, true)) return;
    const int code = socket->closeCode();
    const std::string reason = fromQt(socket->closeReason());
    noteError("closed with code " + std::to_string(code) + (reason.empty() ? "" : ": " + reason));
    deliver({Opcode::close, Bytes(reason.begin(), reason.end()), static_cast<CloseCode>(code)});
}

void QtLink::heard() {
    if (isClosing) return;  // the timer is in use for the close
    isPinged = false;
    timer = std::make_unique<Timer>(loop, QtTransport::silenceBeforePing, [this] { ping(); });
}

void QtLink::ping() {
    isPinged = true;
    timer = std::make_unique<Timer>(loop, QtTransport::patienceAfterPing, [this] {
        const TransportError error{
            "nothing was heard for " +
            std::to_string(static_cast<int>(QtTransport::silenceBeforePing + QtTransport::patienceAfterPing)) +
            " seconds"};
        postMember(
            [error](QtLink& link) {
                link.dropSocket();
                link.troubles.tell(address(link.target) + ": " + error.text);
                link.enter(TransportState::failed, error);
            },
            attemptNumber);
    });
    socket->ping();
}
