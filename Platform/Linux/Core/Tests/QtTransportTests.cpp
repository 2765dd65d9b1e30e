#include "RawServer.h"
#include "TransportFixture.h"

#include <QWebSocket>
#include <QWebSocketServer>

#include <functional>

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

/// A proper WebSocket server with one client.
class QtTransportTest : public TransportTest {
protected:
    QtTransportTest() {
        server.listen(QHostAddress::LocalHost);
        QObject::connect(&server, &QWebSocketServer::newConnection,
                         [this] { peer.reset(server.nextPendingConnection()); });
    }

    std::string url() const { return "ws://127.0.0.1:" + std::to_string(server.serverPort()) + "/relay"; }

    void becomeReady() {
        start(url());
        ASSERT_TRUE(turn([this] { return connection->state() == TransportState::ready && peer; }));
    }

    QWebSocketServer server{QStringLiteral("test"), QWebSocketServer::NonSecureMode};
    std::unique_ptr<QWebSocket> peer;
};

TEST_F(QtTransportTest, AGoodLinkGoesThroughPreparingToReady) {
    make(url());
    EXPECT_EQ(connection->state(), TransportState::setup);
    connection->start(recording());
    ASSERT_TRUE(hears("ready"));
    EXPECT_THAT(told, ElementsAre("preparing", "ready"));
    EXPECT_EQ(connection->state(), TransportState::ready);
    EXPECT_THAT(troubles, IsEmpty());
}

TEST_F(QtTransportTest, TheHandshakeHasOurHeadersInOrderAndNoOthers) {
    QByteArray seen;
    RawServer raw([&seen](QTcpSocket& client, const QByteArray& request) {
        seen = request;
        client.write(RawServer::acceptance(request));
    });
    make(raw.url(), false, {{"Authorization", "Token abc"}, {"User-Agent", "Vimble/1.0_1 (Europe/Zurich; de_CH)"}});
    connection->start(recording());
    ASSERT_TRUE(hears("ready"));

    QList<QByteArray> lines = seen.trimmed().split('\n');
    EXPECT_EQ(lines.takeFirst().trimmed(), "GET /relay HTTP/1.1");
    std::vector<std::string> names;
    for (const QByteArray& line : lines) names.push_back(line.left(line.indexOf(':')).toStdString());
    EXPECT_THAT(names, ElementsAre("Host", "Upgrade", "Connection", "Sec-WebSocket-Key", "Sec-WebSocket-Version",
                                   "Authorization", "User-Agent"));
    EXPECT_THAT(seen.toStdString(),
                HasSubstr("\r\nAuthorization: Token abc\r\nUser-Agent: Vimble/1.0_1 (Europe/Zurich; de_CH)\r\n"));
    EXPECT_THAT(seen.toStdString(), HasSubstr("\r\nSec-WebSocket-Version: 13\r\n"));
}

TEST_F(QtTransportTest, HttpAndForeignSchemesAreMappedAtTheLastMoment) {
    for (const std::string scheme : {"http", "HTTP", "ws", "ftp"}) {
        told.clear();
        start(scheme + url().substr(2));
        EXPECT_TRUE(hears("ready")) << scheme;
    }
}

TEST_F(QtTransportTest, MessagesGoBothWaysInOrder) {
    becomeReady();
    std::vector<std::string> seen;
    QObject::connect(peer.get(), &QWebSocket::binaryMessageReceived,
                     [&](const QByteArray& m) { seen.push_back("binary " + m.toStdString()); });
    QObject::connect(peer.get(), &QWebSocket::textMessageReceived,
                     [&](const QString& m) { seen.push_back("text " + m.toStdString()); });
    int completed = 0;
    const auto count = [&](const std::optional<TransportError>& error) {
        EXPECT_FALSE(error);
        ++completed;
    };
    connection->send({Opcode::binary, {'o', 'n', 'e'}, {}}, count);
    connection->send({Opcode::text, {'t', 0xc3, 0xa9}, {}}, count);
    connection->send({Opcode::binary, {}, {}}, {});
    EXPECT_EQ(completed, 0) << "completed inside send";
    ASSERT_TRUE(turn([&] { return seen.size() == 3; }));
    EXPECT_THAT(seen, ElementsAre("binary one", "text t\u00e9", "binary "));
    EXPECT_EQ(completed, 2);

    told.clear();
    peer->sendBinaryMessage("a");
    peer->sendTextMessage(QStringLiteral("\u00e9"));
    peer->sendBinaryMessage("");
    peer->sendBinaryMessage(QByteArray(1 << 20, 'x'));
    ASSERT_TRUE(turn([&] { return told.size() == 4; }));
    EXPECT_THAT((std::vector(told.begin(), told.begin() + 3)), ElementsAre("binary a", "text \u00e9", "binary "));
    EXPECT_THAT(told[3], SizeIs(7 + (1 << 20)));
}

TEST_F(QtTransportTest, SendingBeforeReadyCompletesWithAnError) {
    make(url());
    std::optional<TransportError> error;
    connection->send({Opcode::binary, {'x'}, {}}, [&](const auto& e) { error = e; });
    connection->start(recording());
    ASSERT_TRUE(turn([&] { return error.has_value(); }));
}

TEST_F(QtTransportTest, KindsThatOnlyTheLinkMaySendAreRefused) {
    becomeReady();
    int errors = 0;
    const auto count = [&](const auto& error) { errors += error ? 1 : 0; };
    connection->send({Opcode::continuation, {'x'}, {}}, count);
    connection->send({Opcode::pong, {'x'}, {}}, count);
    connection->send({Opcode::ping, Bytes(126), {}}, count);
    connection->send({Opcode::ping, Bytes(125), {}}, count);
    loop.run();
    EXPECT_EQ(errors, 3);
}

TEST_F(QtTransportTest, ACloseOfTheServerComesAsItsCodeAndThenAsTheEnd) {
    becomeReady();
    told.clear();
    peer->sendTextMessage(QStringLiteral("last"));
    peer->close(static_cast<QWebSocketProtocol::CloseCode>(1008), QStringLiteral("you are\nnot listed"));
    ASSERT_TRUE(hears("receiveFailed"));
    settle();
    EXPECT_THAT(told, ElementsAre("text last", "close 1008", "receiveFailed"));
    EXPECT_EQ(lastError, "closed with code 1008: you are not listed");
    EXPECT_EQ(connection->state(), TransportState::failed);
    EXPECT_FALSE(loop.hasTimers());
}

TEST_F(QtTransportTest, APrivateCloseCodeIsKept) {
    becomeReady();
    told.clear();
    peer->close(static_cast<QWebSocketProtocol::CloseCode>(4000));
    ASSERT_TRUE(hears("receiveFailed"));
    EXPECT_THAT(told, ElementsAre("close 4000", "receiveFailed"));
}

TEST_F(QtTransportTest, AResetHasNoCloseCode) {
    RawServer raw(RawServer::accepting());
    start(raw.url());
    ASSERT_TRUE(hears("ready"));
    told.clear();
    raw.reset();
    ASSERT_TRUE(hears("receiveFailed"));
    settle();
    EXPECT_THAT(told, ElementsAre("receiveFailed"));
}

TEST_F(QtTransportTest, AnEndOfTheStreamHasNoCloseCode) {
    RawServer raw(RawServer::accepting());
    start(raw.url());
    ASSERT_TRUE(hears("ready"));
    told.clear();
    raw.socket->disconnectFromHost();
    ASSERT_TRUE(hears("receiveFailed"));
    settle();
    EXPECT_THAT(told, ElementsAre("receiveFailed"));
}

TEST_F(QtTransportTest, AMessageOverTheLimitEndsTheLink) {
    RawServer raw(RawServer::accepting());
    start(raw.url());
    ASSERT_TRUE(hears("ready"));
    told.clear();
    const std::uint64_t size = QtTransport::maximumMessageBytes + 1;
    QByteArray header("\x82\x7f", 2);
    for (int shift = 56; shift >= 0; shift -= 8) header += static_cast<char>(size >> shift);
    raw.socket->write(header);
    ASSERT_TRUE(hears("receiveFailed"));
    EXPECT_THAT(told, ElementsAre("close 1009", "receiveFailed"));
}

TEST_F(QtTransportTest, GarbageAfterTheUpgradeEndsTheLink) {
    RawServer raw(RawServer::accepting());
    start(raw.url());
    ASSERT_TRUE(hears("ready"));
    raw.socket->write("\xff\xff\xff\xff nonsense");
    ASSERT_TRUE(hears("receiveFailed"));
}

TEST_F(QtTransportTest, ServerPingsAreAnsweredByThemselves) {
    becomeReady();
    QByteArray echoed;
    QObject::connect(peer.get(), &QWebSocket::pong, [&](quint64, const QByteArray& payload) { echoed = payload; });
    peer->ping("are you there");
    ASSERT_TRUE(turn([&] { return echoed == "are you there"; }));
    EXPECT_THAT(told, ElementsAre("preparing", "ready"));
}

TEST_F(QtTransportTest, APoliteCloseLeavesBeforeItsCompletionAndEndsInCancelled) {
    becomeReady();
    told.clear();
    int peerCode = 0;
    QObject::connect(peer.get(), &QWebSocket::disconnected, [&] { peerCode = peer->closeCode(); });
    bool isComplete = false;
    connection->send({Opcode::binary, Bytes(4 << 20, 7), {}}, {});
    qsizetype got = 0;
    QObject::connect(peer.get(), &QWebSocket::binaryMessageReceived, [&](const QByteArray& m) { got = m.size(); });
    connection->send({Opcode::close, {}, CloseCode::goingAway}, [&](const auto&) {
        isComplete = true;
        connection->cancel();
    });
    EXPECT_FALSE(isComplete);
    ASSERT_TRUE(turn([&] { return peerCode != 0 && isComplete; }));
    EXPECT_EQ(peerCode, 1001);
    EXPECT_EQ(got, 4 << 20) << "what was sent before the close was lost";
    settle();
    EXPECT_THAT(told, ElementsAre("cancelled"));
}

TEST_F(QtTransportTest, APoliteCloseToADeafPeerCompletesAfterSomeSeconds) {
    RawServer raw(RawServer::accepting());
    raw.server.setMaxPendingConnections(1);
    start(raw.url());
    ASSERT_TRUE(hears("ready"));
    raw.socket->setReadBufferSize(1);  // stops reading
    told.clear();
    connection->send({Opcode::binary, Bytes(32 << 20, 7), {}}, {});
    bool isComplete = false;
    connection->send({Opcode::close, {}, CloseCode::normalClosure}, [&](const auto&) { isComplete = true; });
    settle();
    EXPECT_FALSE(isComplete);
    loop.advance(5);
    EXPECT_TRUE(isComplete);
    connection->cancel();
    loop.run();
    EXPECT_THAT(told, ElementsAre("cancelled"));
}

TEST_F(QtTransportTest, CancelInAnyStateIsToldOnceAndNothingAfterIt) {
    const std::vector<std::function<void()>> befores{
        [&] {},                                // started, not yet preparing
        [&] { loop.run(); },                   // preparing
        [&] { ASSERT_TRUE(hears("ready")); },  // ready
        [&] {                                  // ready, with a message on its way
            ASSERT_TRUE(turn([&] { return connection->state() == TransportState::ready && peer; }));
            peer->sendTextMessage(QStringLiteral("late"));
            for (int i = 0; i < 20; ++i) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        },
    };
    for (const auto& before : befores) {
        told.clear();
        peer.reset();
        start(url());
        before();
        told.clear();
        connection->cancel();
        connection->cancel();
        EXPECT_THAT(told, IsEmpty()) << "told inside cancel";
        EXPECT_EQ(connection->state(), TransportState::cancelled);
        settle();
        EXPECT_THAT(told, ElementsAre("cancelled"));
        EXPECT_FALSE(loop.hasTimers());
    }
}

TEST_F(QtTransportTest, TheOwnerMayDestroyTheConnectionInsideAnyHandler) {
    for (const std::string last : {"preparing", "ready", "text x", "close 1008", "receiveFailed"}) {
        told.clear();
        peer.reset();
        onEvent = [&](const std::string& event) {
            if (event == "ready") loop.post([&] {});
            if (event == last) connection.reset();
        };
        start(url());
        ASSERT_TRUE(turn([&] { return !connection || peer; }));
        if (peer) {
            peer->sendTextMessage(QStringLiteral("x"));
            peer->close(static_cast<QWebSocketProtocol::CloseCode>(1008));
        }
        ASSERT_TRUE(turn([&] { return !connection; })) << last;
        settle();
        EXPECT_EQ(told.back(), last);
        EXPECT_FALSE(loop.hasTimers());
    }
}

TEST_F(QtTransportTest, TheOwnerMayDestroyTheConnectionInsideWaitingAndFailed) {
    for (const std::string last : {"waiting", "failed"}) {
        told.clear();
        onEvent = [&](const std::string& event) {
            if (event == last) connection.reset();
        };
        start(last == "waiting" ? "ws://127.0.0.1:1/relay" : "localhost:8080");
        ASSERT_TRUE(turn([&] { return !connection; }));
        settle();
        EXPECT_EQ(told.back(), last);
        EXPECT_FALSE(loop.hasTimers());
    }
}

TEST_F(QtTransportTest, NothingIsToldAfterDestructionNotEvenACompletion) {
    becomeReady();
    connection->send({Opcode::text, {'x'}, {}}, [](const auto&) { ADD_FAILURE() << "completed"; });
    peer->sendTextMessage(QStringLiteral("late"));
    told.clear();
    connection.reset();
    settle();
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(QtTransportTest, AConnectionMayOutliveItsTransport) {
    auto brief = std::make_unique<QtTransport>(loop);
    connection = brief->connection({url(), false, {}});
    connection->start(recording());
    brief.reset();
    EXPECT_TRUE(hears("ready"));
}

TEST_F(QtTransportTest, WhatTimeCanNotMendFailsAtOnce) {
    const std::vector<TransportParameters> impossible{
        {"localhost:8080", false, {}},
        {"", true, {}},
        {"ws://:80/", false, {}},
        {"ws://a b/", false, {}},
        {url(), false, {{"Authorization", "Token a\r\nX-Evil: 1"}}},
        {url(), false, {{"X\n", "y"}}},
    };
    for (const auto& parameters : impossible) {
        told.clear();
        connection = transport.connection(parameters);
        connection->start(recording());
        settle();
        EXPECT_THAT(told, ElementsAre("failed")) << parameters.url;
        EXPECT_NE(lastError, "");
        EXPECT_FALSE(loop.hasTimers());
    }
    EXPECT_FALSE(peer);
}

TEST_F(QtTransportTest, ASilentLinkIsPingedAndStaysWhenThePeerAnswers) {
    becomeReady();
    for (int round = 0; round < 3; ++round) {
        loop.advance(24.9);
        loop.advance(0.2);  // pinged
        EXPECT_NEAR(loop.untilNextTimer(), 19.9, 0.2);
        ASSERT_TRUE(turn([&] { return loop.untilNextTimer() > 24; })) << "the pong did not count";
    }
    EXPECT_THAT(told, ElementsAre("preparing", "ready"));
}

TEST_F(QtTransportTest, WhateverIsHeardPutsThePingOff) {
    becomeReady();
    loop.advance(20);
    peer->sendTextMessage(QStringLiteral("x"));
    ASSERT_TRUE(hears("text x"));
    EXPECT_NEAR(loop.untilNextTimer(), 25, 0.01);
}

TEST_F(QtTransportTest, ADeadLinkFailsTwentySecondsAfterThePing) {
    RawServer raw(RawServer::accepting());
    start(raw.url());
    ASSERT_TRUE(hears("ready"));
    told.clear();
    loop.advance(25);
    ASSERT_TRUE(turn([&] { return raw.received.startsWith('\x89'); })) << "no ping";
    loop.advance(19.9);
    EXPECT_THAT(told, IsEmpty());
    loop.advance(0.2);
    EXPECT_THAT(told, ElementsAre("failed"));
    EXPECT_EQ(lastError, "nothing was heard for 45 seconds");
    settle();
    EXPECT_THAT(told, ElementsAre("failed"));
    EXPECT_THAT(troubles, SizeIs(1));
}

TEST_F(QtTransportTest, DrainingIsTrueOnceThePeerHasReadEverything) {
    becomeReady();
    int messages = 0;
    int readWhenDrained = -1;
    QObject::connect(peer.get(), &QWebSocket::binaryMessageReceived, [&](const QByteArray&) { ++messages; });
    for (int i = 0; i < 50; ++i) connection->send({Opcode::binary, Bytes(100000, 1), {}}, {});
    std::optional<bool> drained;
    transport.drain(30, [&](bool isDrained) {
        drained = isDrained;
        readWhenDrained = messages;
    });
    EXPECT_FALSE(drained);
    ASSERT_TRUE(turn([&] { return drained.has_value(); }));
    EXPECT_EQ(drained, true);
    EXPECT_EQ(readWhenDrained, 50);
}

TEST_F(QtTransportTest, DrainingIsFalseWithoutALinkWhenItIsLostAndWhenTimeIsUp) {
    std::vector<bool> answers;
    const auto note = [&](bool isDrained) { answers.push_back(isDrained); };
    transport.drain(30, note);
    EXPECT_THAT(answers, IsEmpty()) << "answered inside the call";
    loop.run();
    EXPECT_THAT(answers, ElementsAre(false));

    RawServer raw(RawServer::accepting());
    start(raw.url());
    ASSERT_TRUE(hears("ready"));
    transport.drain(10, note);
    loop.advance(10);
    EXPECT_THAT(answers, ElementsAre(false, false));

    transport.drain(10, note);
    raw.reset();
    ASSERT_TRUE(hears("receiveFailed"));
    loop.run();
    EXPECT_THAT(answers, ElementsAre(false, false, false));
    settle();
    EXPECT_THAT(answers, SizeIs(3));
}

TEST_F(QtTransportTest, DrainingEndsFalseWhenTheConnectionIsDestroyed) {
    RawServer raw(RawServer::accepting());
    start(raw.url());
    ASSERT_TRUE(hears("ready"));
    std::vector<bool> answers;
    transport.drain(10, [&](bool isDrained) { answers.push_back(isDrained); });
    connection.reset();
    loop.run();
    EXPECT_THAT(answers, ElementsAre(false));
}

}  // namespace
