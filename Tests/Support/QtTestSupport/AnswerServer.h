#pragma once

#include <QByteArray>
#include <QFile>
#include <QHostAddress>
#include <QProcess>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslServer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// A server that answers each request with exactly the bytes that a test gives it.
class AnswerServer {
public:
    using Answer = std::function<void(QTcpSocket&, const QByteArray& request)>;

    /// @param server  has not listened yet
    explicit AnswerServer(Answer answer, std::unique_ptr<QTcpServer> server = std::make_unique<QTcpServer>())
        : answer(std::move(answer)), server(std::move(server)) {
        this->server->listen(QHostAddress::LocalHost);
        QObject::connect(this->server.get(), &QTcpServer::pendingConnectionAvailable, [this] { accept(); });
    }

    /// An answer with a status line, a length and a body.
    static Answer saying(const QByteArray& status, const QByteArray& body, const QByteArray& headers = {}) {
        return [=](QTcpSocket& client, const QByteArray&) {
            client.write("HTTP/1.1 " + status + "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n" +
                         headers + "\r\n" + body);
        };
    }
    static Answer redirecting(const std::string& target) {
        return saying("302 Found", "moved", "Location: " + QByteArray::fromStdString(target) + "\r\n");
    }
    /// An answer of these bytes, after which the server closes the link.
    static Answer raw(const QByteArray& bytes) {
        return [=](QTcpSocket& client, const QByteArray&) {
            client.write(bytes);
            client.disconnectFromHost();
        };
    }

    std::string url(const std::string& path = "/latest.json") const {
        const bool isSecure = qobject_cast<QSslServer*>(server.get()) != nullptr;
        return (isSecure ? "https" : "http") + std::string("://127.0.0.1:") + std::to_string(server->serverPort()) +
               path;
    }

    Answer answer;
    std::vector<QByteArray> requests;
    QTcpSocket* client = nullptr;  // the link that came last

private:
    void accept() {
        while (QTcpSocket* socket = server->nextPendingConnection()) {
            client = socket;
            QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                received += socket->readAll();
                if (!received.contains("\r\n\r\n")) return;
                requests.push_back(std::exchange(received, {}));
                answer(*socket, requests.back());
            });
        }
    }

    std::unique_ptr<QTcpServer> server;
    QByteArray received;
};

/// A certificate for 127.0.0.1 that is its own authority, and servers that use it.
class TestAuthority {
public:
    /// Makes the certificate. @return whether that was possible
    bool make() {
        QProcess openssl;
        openssl.start(
            QStringLiteral("openssl"),
            {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"), QStringLiteral("ec"),
             QStringLiteral("-pkeyopt"), QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes"),
             QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"), QStringLiteral("/CN=test"),
             QStringLiteral("-addext"), QStringLiteral("subjectAltName=IP:127.0.0.1"), QStringLiteral("-keyout"),
             folder.filePath(QStringLiteral("key")), QStringLiteral("-out"), folder.filePath(QStringLiteral("cert"))});
        if (!openssl.waitForFinished() || openssl.exitCode() != 0) return false;
        certificate = QSslCertificate::fromPath(folder.filePath(QStringLiteral("cert"))).value(0);
        return !certificate.isNull();
    }

    std::unique_ptr<QTcpServer> server() const {
        QFile key(folder.filePath(QStringLiteral("key")));
        if (!key.open(QIODevice::ReadOnly)) return nullptr;
        QSslConfiguration configuration;
        configuration.setLocalCertificate(certificate);
        configuration.setPrivateKey(QSslKey(&key, QSsl::Ec));
        auto result = std::make_unique<QSslServer>();
        result->setSslConfiguration(configuration);
        return result;
    }

    QTemporaryDir folder;
    QSslCertificate certificate;
};
