#pragma once

#include <QByteArray>
#include <QCryptographicHash>
#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>

#include <functional>
#include <string>
#include <sys/socket.h>
#include <utility>

/// A server that does exactly what a test says, byte by byte, for one client after the other.
class RawServer {
public:
    /// @param onRequest  called with each complete request of an upgrade
    explicit RawServer(std::function<void(QTcpSocket&, const QByteArray& request)> onRequest)
        : onRequest(std::move(onRequest)) {
        server.listen(QHostAddress::LocalHost);
        QObject::connect(&server, &QTcpServer::newConnection, [this] {
            socket = server.nextPendingConnection();
            ++connections;
            received.clear();
            isUpgraded = false;
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this] {
                received += socket->readAll();
                if (isUpgraded || !received.contains("\r\n\r\n")) return;
                isUpgraded = true;
                const QByteArray request = std::exchange(received, {});
                this->onRequest(*socket, request);
            });
        });
    }

    /// The answer that accepts an upgrade (RFC 6455, section 4.2.2).
    static QByteArray acceptance(const QByteArray& request) {
        const qsizetype start = request.indexOf("Sec-WebSocket-Key: ") + 19;
        const QByteArray key = request.mid(start, request.indexOf("\r\n", start) - start);
        const QByteArray digest =
            QCryptographicHash::hash(key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11", QCryptographicHash::Sha1).toBase64();
        return "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
               "Sec-WebSocket-Accept: " +
               digest + "\r\n\r\n";
    }

    static std::function<void(QTcpSocket&, const QByteArray&)> accepting() {
        return [](QTcpSocket& client, const QByteArray& request) { client.write(acceptance(request)); };
    }

    /// Ends the link with a reset instead of a polite end.
    void reset() {
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        const linger hard{1, 0};
        setsockopt(static_cast<int>(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        socket->abort();
    }

    std::string url() const { return "ws://127.0.0.1:" + std::to_string(server.serverPort()) + "/relay"; }

    QTcpServer server;
    QTcpSocket* socket = nullptr;  // the last client; owned by the server
    QByteArray received;           // what came after the upgrade
    int connections = 0;

private:
    std::function<void(QTcpSocket&, const QByteArray&)> onRequest;
    bool isUpgraded = false;
};
