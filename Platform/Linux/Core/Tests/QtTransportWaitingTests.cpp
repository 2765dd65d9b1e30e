#include "RawServer.h"
#include "TransportFixture.h"

#include <QFile>
#include <QProcess>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QTemporaryDir>
#include <QWebSocket>
#include <QWebSocketServer>

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

namespace {

/// Until a connection has been ready once, a failure that may pass leads to the state `waiting`.
class QtTransportWaitingTest : public TransportTest {};

/// A port on which nobody listens: one that was just free.
int freePort() {
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return server.serverPort();
}

TEST_F(QtTransportWaitingTest, ARefusedLinkTriesAgainAfterGrowingPausesUpToThirtySeconds) {
    start("ws://127.0.0.1:" + std::to_string(freePort()) + "/relay");
    for (const double pause : {1, 2, 4, 8, 16, 30, 30, 30}) {
        ASSERT_TRUE(hears("waiting"));
        EXPECT_EQ(connection->state(), TransportState::waiting);
        EXPECT_THAT(lastError, HasSubstr("refused"));
        EXPECT_NEAR(loop.untilNextTimer(), pause, 1e-6);
        told.clear();
        loop.step();
        loop.run();
    }
    EXPECT_THAT(troubles, SizeIs(1)) << "each retry was told";
    EXPECT_THAT(troubles[0], HasSubstr("127.0.0.1:"));
}

TEST_F(QtTransportWaitingTest, AServerThatComesUpLaterIsFound) {
    const int port = freePort();
    start("ws://127.0.0.1:" + std::to_string(port) + "/relay");
    ASSERT_TRUE(hears("waiting"));
    QWebSocketServer server(QStringLiteral("test"), QWebSocketServer::NonSecureMode);
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost, static_cast<quint16>(port)));
    loop.advance(1);
    ASSERT_TRUE(hears("ready"));
    EXPECT_THAT(told, ElementsAre("preparing", "waiting", "preparing", "ready"));
}

TEST_F(QtTransportWaitingTest, ANameThatDoesNotExistIsWaitedFor) {
    start("ws://no-such-host.invalid/relay");
    ASSERT_TRUE(hears("waiting"));
    EXPECT_NE(lastError, "");
    EXPECT_NE(lastError, "the link was closed");
}

TEST_F(QtTransportWaitingTest, ARefusedUpgradeIsWaitedForWithItsStatus) {
    for (const QByteArray status : {"502 Bad Gateway", "401 Unauthorized", "302 Found"}) {
        told.clear();
        RawServer raw([&](QTcpSocket& client, const QByteArray&) {
            client.write("HTTP/1.1 " + status + "\r\nContent-Length: 0\r\nLocation: http://127.0.0.1/\r\n\r\n");
            client.disconnectFromHost();
        });
        start(raw.url());
        ASSERT_TRUE(hears("waiting"));
        settle();
        EXPECT_THAT(told, ElementsAre("preparing", "waiting"));
        EXPECT_THAT(lastError, HasSubstr(status.left(3).toStdString()));
    }
}

TEST_F(QtTransportWaitingTest, AnAnswerThatIsNoHttpIsWaitedFor) {
    RawServer raw([](QTcpSocket& client, const QByteArray&) {
        client.write("SSH-2.0-\x1b[2J nonsense\r\n\r\n");
        client.disconnectFromHost();
    });
    start(raw.url());
    ASSERT_TRUE(hears("waiting"));
    for (const std::string& trouble : troubles)
        for (const char c : trouble)
            EXPECT_GE(static_cast<unsigned char>(c), 0x20) << "a control character got through";
}

TEST_F(QtTransportWaitingTest, AWrongKeyInTheAnswerIsWaitedFor) {
    RawServer raw([](QTcpSocket& client, const QByteArray&) {
        client.write(
            "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
            "Sec-WebSocket-Accept: AAAAAAAAAAAAAAAAAAAAAAAAAAA=\r\n\r\n");
    });
    start(raw.url());
    ASSERT_TRUE(hears("waiting"));
}

TEST_F(QtTransportWaitingTest, AServerThatHangsDuringTheUpgradeIsGivenUpAfterFifteenSeconds) {
    RawServer raw([](QTcpSocket&, const QByteArray&) {});
    start(raw.url());
    ASSERT_TRUE(turn([&] { return raw.connections == 1; }));
    settle();
    loop.advance(14.9);
    EXPECT_THAT(told, ElementsAre("preparing"));
    loop.advance(0.2);
    EXPECT_THAT(told, ElementsAre("preparing", "waiting"));
    EXPECT_EQ(lastError, "no answer within 15 seconds");
    loop.advance(1);
    ASSERT_TRUE(turn([&] { return raw.connections == 2; })) << "it did not try again";
}

TEST_F(QtTransportWaitingTest, CancelWhileWaitingEndsTheRetries) {
    start("ws://127.0.0.1:" + std::to_string(freePort()) + "/relay");
    ASSERT_TRUE(hears("waiting"));
    connection->cancel();
    loop.run();
    EXPECT_EQ(told.back(), "cancelled");
    EXPECT_FALSE(loop.hasTimers());
}

TEST_F(QtTransportWaitingTest, TroubleIsToldAgainOnceALinkHasBeenReady) {
    const int port = freePort();
    const std::string url = "ws://127.0.0.1:" + std::to_string(port) + "/relay";
    start(url);
    ASSERT_TRUE(hears("waiting"));
    told.clear();
    start(url);
    ASSERT_TRUE(hears("waiting"));
    EXPECT_THAT(troubles, SizeIs(1));
    {
        QWebSocketServer server(QStringLiteral("test"), QWebSocketServer::NonSecureMode);
        ASSERT_TRUE(server.listen(QHostAddress::LocalHost, static_cast<quint16>(port)));
        loop.advance(1);
        ASSERT_TRUE(hears("ready"));
        connection.reset();
    }
    told.clear();
    start(url);
    ASSERT_TRUE(hears("waiting"));
    EXPECT_THAT(troubles, SizeIs(2));
}

/// A server with a certificate that it has signed itself.
class QtTransportTlsTest : public TransportTest {
protected:
    void SetUp() override {
        QProcess openssl;
        openssl.start(
            QStringLiteral("openssl"),
            {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"), QStringLiteral("ec"),
             QStringLiteral("-pkeyopt"), QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes"),
             QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"), QStringLiteral("/CN=test"),
             QStringLiteral("-addext"), QStringLiteral("subjectAltName=IP:127.0.0.1"), QStringLiteral("-keyout"),
             folder.filePath(QStringLiteral("key")), QStringLiteral("-out"), folder.filePath(QStringLiteral("cert"))});
        ASSERT_TRUE(openssl.waitForFinished());
        ASSERT_EQ(openssl.exitCode(), 0) << openssl.readAllStandardError().toStdString();
        certificate = QSslCertificate::fromPath(folder.filePath(QStringLiteral("cert"))).value(0);
        QFile key(folder.filePath(QStringLiteral("key")));
        ASSERT_TRUE(key.open(QIODevice::ReadOnly));
        QSslConfiguration configuration;
        configuration.setLocalCertificate(certificate);
        configuration.setPrivateKey(QSslKey(&key, QSsl::Ec));
        server.setSslConfiguration(configuration);
        ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
        QObject::connect(&server, &QWebSocketServer::newConnection,
                         [this] { peer.reset(server.nextPendingConnection()); });
        before = QSslConfiguration::defaultConfiguration();
    }

    void TearDown() override { QSslConfiguration::setDefaultConfiguration(before); }

    void trust() {
        QSslConfiguration trusting = before;
        trusting.addCaCertificate(certificate);
        QSslConfiguration::setDefaultConfiguration(trusting);
    }

    std::string url(const std::string& scheme) const {
        return scheme + "://127.0.0.1:" + std::to_string(server.serverPort()) + "/relay";
    }

    QTemporaryDir folder;
    QSslCertificate certificate;
    QSslConfiguration before;
    QWebSocketServer server{QStringLiteral("test"), QWebSocketServer::SecureMode};
    std::unique_ptr<QWebSocket> peer;
};

TEST_F(QtTransportTlsTest, ACertificateThatDoesNotVerifyIsNeverLetThrough) {
    start(url("wss"), true);
    for (int tries = 0; tries < 3; ++tries) {
        ASSERT_TRUE(hears("waiting"));
        EXPECT_THAT(lastError, HasSubstr("TLS"));
        EXPECT_THAT(lastError, HasSubstr("self-signed"));
        told.clear();
        loop.step();
    }
    EXPECT_THAT(told, Not(::testing::Contains("ready")));
    EXPECT_THAT(troubles, SizeIs(1));
    EXPECT_FALSE(peer);
}

TEST_F(QtTransportTlsTest, HttpsAndUnknownSchemesUseTls) {
    trust();
    for (const std::string scheme : {"wss", "https", "ftp", "vimble"}) {
        told.clear();
        start(url(scheme), true);
        EXPECT_TRUE(hears("ready")) << scheme << " " << lastError;
    }
}

TEST_F(QtTransportTlsTest, ACloseOfTheServerComesOnceOverTls) {
    trust();
    start(url("wss"), true);
    ASSERT_TRUE(turn([&] { return connection->state() == TransportState::ready && peer; })) << lastError;
    told.clear();
    peer->close(static_cast<QWebSocketProtocol::CloseCode>(1008), QStringLiteral("no"));
    ASSERT_TRUE(hears("receiveFailed"));
    settle();
    EXPECT_THAT(told, ElementsAre("close 1008", "receiveFailed"));
}

TEST_F(QtTransportTlsTest, PlainTextToATlsServerIsWaitedFor) {
    start(url("ws"), false);
    ASSERT_TRUE(hears("waiting"));
}

TEST_F(QtTransportTlsTest, TlsToAPlainServerIsWaitedFor) {
    QWebSocketServer plain(QStringLiteral("test"), QWebSocketServer::NonSecureMode);
    ASSERT_TRUE(plain.listen(QHostAddress::LocalHost));
    start("wss://127.0.0.1:" + std::to_string(plain.serverPort()) + "/relay", true);
    // Either side may wait for the other to speak first; then the time limit ends the attempt.
    settle();
    if (told.back() != "waiting") loop.advance(15);
    EXPECT_TRUE(hears("waiting"));
}

}  // namespace
