#include "StateKit/Websocket.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TestSupport/FakeHost.h"
#include "TestSupport/FakeTransport.h"
#include "TestSupport/LogLines.h"
#include "TestSupport/TestLoop.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

/// Writes down what it is told, and then does what the test wants.
struct Delegate : WebsocketDelegate, SignalTarget {
    std::vector<std::string> told;
    std::function<void()> then;

    void websocketDidConnect(Websocket&) override { tell("connected"); }
    void websocketDidDisconnect(Websocket&, const std::optional<TransportError>& error,
                                std::optional<CloseCode> closeCode) override {
        tell("disconnected " + (error ? error->text : "without error") + " " +
             (closeCode ? std::to_string(static_cast<int>(*closeCode)) : "without code"));
    }
    void websocketDidReceive(Websocket&, ByteView message) override {
        tell("received " + std::string(textOf(message)));
    }

private:
    void tell(std::string line) {
        told.push_back(std::move(line));
        if (then) then();
    }
};

struct WebsocketTest : testing::Test {
    LogLines log;
    TestLoop loop;
    FakeHost host;
    FakeTransport transport{loop};
    Delegate delegate;
    std::unique_ptr<Websocket> websocket = make("wss://chat.example/relay");

    std::unique_ptr<Websocket> make(std::string url) {
        auto made = std::make_unique<Websocket>(transport, host, std::move(url));
        made->setDelegate(&delegate);
        return made;
    }
    void connectAndBecomeReady() {
        websocket->connect();
        transport.last().ready();
        log.take();
        delegate.told.clear();
    }
    FakeLink& link() { return transport.last(); }
};

TEST_F(WebsocketTest, ANewOneDoesNotConnect) {
    EXPECT_FALSE(websocket->isConnected());
    EXPECT_THAT(transport.links, IsEmpty());
    EXPECT_EQ(websocket->url, "wss://chat.example/relay");
}

TEST_F(WebsocketTest, ConnectingWithoutATokenSendsOnlyTheUserAgent) {
    websocket->connect();
    EXPECT_EQ(link().parameters.url, "wss://chat.example/relay");
    EXPECT_THAT(link().parameters.headers,
                ElementsAre(Pair("User-Agent", "Vimble/1.2_34 (Europe/Zurich; de_CH) x86_64 macOS/Version 12")));
    EXPECT_TRUE(link().isStarted);
    EXPECT_THAT(log.take(), ElementsAre("info StateKit/Websocket: Connecting to wss://chat.example/relay"));
}

TEST_F(WebsocketTest, ATokenGoesBeforeTheUserAgent) {
    websocket->connect("secret");
    EXPECT_THAT(link().parameters.headers,
                ElementsAre(Pair("Authorization", "Token secret"), Pair("User-Agent", testing::StartsWith("Vimble/"))));
}

TEST_F(WebsocketTest, TheTokenIsNotLogged) {
    websocket->connect("secret");
    for (const std::string& line : log.take()) EXPECT_THAT(line, testing::Not(testing::HasSubstr("secret")));
}

TEST_F(WebsocketTest, OnlyWsAndHttpGoWithoutTls) {
    for (const auto& [url, usesTls] : std::vector<std::pair<std::string, bool>>{{"ws://a", false},
                                                                                {"http://a", false},
                                                                                {"WS://a", false},
                                                                                {"Http://a", false},
                                                                                {"wss://a", true},
                                                                                {"https://a", true},
                                                                                {"HTTPS://a", true},
                                                                                {"ftp://a", true},
                                                                                {"wsx://a", true},
                                                                                {"a.example", true},
                                                                                {"localhost:8080", true},
                                                                                {"", true}}) {
        const auto other = make(url);
        other->connect();
        EXPECT_EQ(link().parameters.usesTls, usesTls) << url;
        EXPECT_EQ(link().parameters.url, url);
    }
}

TEST_F(WebsocketTest, BecomingReadyIsToldAndLogged) {
    websocket->connect();
    link().prepare();
    EXPECT_FALSE(websocket->isConnected());
    link().ready();
    EXPECT_TRUE(websocket->isConnected());
    EXPECT_THAT(delegate.told, ElementsAre("connected"));
    EXPECT_THAT(log.take(),
                ElementsAre("info StateKit/Websocket: Connecting to wss://chat.example/relay",
                            "debug StateKit/Websocket: NW Preparing", "info StateKit/Websocket: NW Connected"));
}

TEST_F(WebsocketTest, WaitingIsOnlyLogged) {
    websocket->connect();
    log.take();
    link().wait("refused");
    EXPECT_THAT(delegate.told, IsEmpty());
    EXPECT_THAT(log.take(), ElementsAre("error StateKit/Websocket: NW Waiting: refused"));
    link().ready();
    EXPECT_THAT(delegate.told, ElementsAre("connected"));
}

TEST_F(WebsocketTest, AFailureBeforeReadyIsOnlyLogged) {
    websocket->connect();
    link().prepare();
    log.take();
    link().fail("no route");
    EXPECT_FALSE(websocket->isConnected());
    EXPECT_THAT(delegate.told, IsEmpty());
    EXPECT_THAT(log.take(), ElementsAre("error StateKit/Websocket: NW Failed: no route"));
}

TEST_F(WebsocketTest, AFailureAfterReadyIsADisconnection) {
    connectAndBecomeReady();
    link().fail("reset");
    EXPECT_FALSE(websocket->isConnected());
    EXPECT_THAT(delegate.told, ElementsAre("disconnected reset without code"));
    EXPECT_THAT(log.take(), ElementsAre("error StateKit/Websocket: NW Failed: reset"));
}

TEST_F(WebsocketTest, TheEndOfReceivingIsADisconnection) {
    connectAndBecomeReady();
    link().end("end of stream");
    EXPECT_FALSE(websocket->isConnected());
    EXPECT_THAT(delegate.told, ElementsAre("disconnected end of stream without code"));
    EXPECT_THAT(log.take(), ElementsAre("error StateKit/Websocket: NW Disconnected: end of stream"));
}

TEST_F(WebsocketTest, MessagesOfAllKindsReachTheDelegateAsBytes) {
    connectAndBecomeReady();
    link().deliver(Opcode::binary, {'a'});
    link().deliver("b");
    link().deliver(Opcode::continuation, {'c'});
    EXPECT_THAT(delegate.told, ElementsAre("received a", "received b", "received c"));
}

TEST_F(WebsocketTest, AnEmptyMessageDoesNotReachTheDelegateAndEndsNothing) {
    connectAndBecomeReady();
    link().deliver(Opcode::binary, {});
    link().deliver("");
    link().deliver("a");
    EXPECT_THAT(delegate.told, ElementsAre("received a"));
    EXPECT_TRUE(websocket->isConnected());
}

TEST_F(WebsocketTest, PingsAndPongsAreIgnored) {
    connectAndBecomeReady();
    link().deliver(Opcode::ping, {'a'});
    link().deliver(Opcode::pong, {'a'});
    EXPECT_THAT(delegate.told, IsEmpty());
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(WebsocketTest, AnUnknownOpcodeIsLogged) {
    connectAndBecomeReady();
    link().deliver(static_cast<Opcode>(11), {'a'});
    link().deliver("b");
    EXPECT_THAT(delegate.told, ElementsAre("received b"));
    EXPECT_THAT(log.take(), ElementsAre("error StateKit/Websocket: Unknown opcode 11"));
}

TEST_F(WebsocketTest, ACloseFrameAndTheEndGiveOneReportWithErrorAndCode) {
    connectAndBecomeReady();
    link().deliverClose(CloseCode{4000});
    EXPECT_THAT(delegate.told, IsEmpty());
    EXPECT_TRUE(websocket->isConnected());
    link().end("closed");
    EXPECT_THAT(delegate.told, ElementsAre("disconnected closed 4000"));
}

TEST_F(WebsocketTest, ACloseFrameWithoutACodeGivesNone) {
    connectAndBecomeReady();
    link().close({});
    EXPECT_THAT(delegate.told, ElementsAre("disconnected closed by the server without code"));
}

TEST_F(WebsocketTest, ACloseFrameAndAFailureGiveTheCodeToo) {
    connectAndBecomeReady();
    link().deliverClose(CloseCode::policyViolation);
    link().fail("reset");
    EXPECT_THAT(delegate.told, ElementsAre("disconnected reset 1008"));
}

TEST_F(WebsocketTest, AServersCloseAndTheCancellationBehindItGiveOneReport) {
    connectAndBecomeReady();
    link().close(CloseCode::goingAway);
    websocket->close(CloseCode::normalClosure);
    loop.run();
    EXPECT_THAT(delegate.told, ElementsAre("disconnected closed by the server 1001"));
}

TEST_F(WebsocketTest, TheEndAndAFailureBehindItGiveOneReport) {
    connectAndBecomeReady();
    link().end("end");
    link().fail("failed");
    EXPECT_THAT(delegate.told, ElementsAre("disconnected end without code"));
}

TEST_F(WebsocketTest, ACancellationGivesNeitherErrorNorCode) {
    connectAndBecomeReady();
    link().deliverClose(CloseCode::goingAway);
    websocket->close(CloseCode::normalClosure);
    loop.run();
    EXPECT_THAT(delegate.told, ElementsAre("disconnected without error without code"));
    EXPECT_THAT(log.take(), ElementsAre("info StateKit/Websocket: NW Cancelled"));
}

TEST_F(WebsocketTest, ClosingSendsACloseFrameAndCancelsOnceItIsSent) {
    connectAndBecomeReady();
    link().sends = FakeLink::Sends::stay;
    websocket->close(CloseCode::goingAway);
    ASSERT_EQ(link().sent.size(), 1u);
    EXPECT_EQ(link().sent[0].opcode, Opcode::close);
    EXPECT_EQ(link().sent[0].closeCode, CloseCode::goingAway);
    EXPECT_THAT(link().sent[0].content, IsEmpty());
    loop.run();
    EXPECT_FALSE(link().isCancelled);
    EXPECT_TRUE(websocket->isConnected());
    link().completeSends();
    EXPECT_TRUE(link().isCancelled);
    loop.run();
    EXPECT_FALSE(websocket->isConnected());
    EXPECT_THAT(delegate.told, ElementsAre("disconnected without error without code"));
}

TEST_F(WebsocketTest, ClosingCancelsAlsoWhenTheFrameCanNotBeSent) {
    connectAndBecomeReady();
    link().sends = FakeLink::Sends::fail;
    websocket->close(CloseCode::normalClosure);
    loop.run();
    EXPECT_TRUE(link().isCancelled);
}

TEST_F(WebsocketTest, ClosingWhatIsNotReadyCancelsAtOnce) {
    websocket->connect();
    link().prepare();
    websocket->close(CloseCode::normalClosure);
    EXPECT_TRUE(link().isCancelled);
    EXPECT_THAT(link().sent, IsEmpty());
    loop.run();
    EXPECT_THAT(delegate.told, IsEmpty());
}

TEST_F(WebsocketTest, ClosingWithoutAConnectionDoesNothing) {
    websocket->close(CloseCode::normalClosure);
    EXPECT_THAT(transport.links, IsEmpty());
}

TEST_F(WebsocketTest, SendsBytesAsBinaryAndTextAsText) {
    connectAndBecomeReady();
    websocket->send(Bytes{1, 2, 3});
    websocket->send("é");
    ASSERT_EQ(link().sent.size(), 2u);
    EXPECT_EQ(link().sent[0].opcode, Opcode::binary);
    EXPECT_THAT(link().sent[0].content, ElementsAre(1, 2, 3));
    EXPECT_EQ(link().sent[1].opcode, Opcode::text);
    EXPECT_EQ(textOf(link().sent[1].content), "é");
}

TEST_F(WebsocketTest, SendingBeforeReadyDoesNothingAndLogsNothing) {
    websocket->send("before connect");
    websocket->connect();
    log.take();
    websocket->send("in setup");
    link().prepare();
    log.take();
    websocket->send(Bytes{1});
    link().ready();
    log.take();
    EXPECT_THAT(link().sent, IsEmpty());
    link().fail();
    log.take();
    websocket->send("after the failure");
    EXPECT_THAT(link().sent, IsEmpty());
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(WebsocketTest, AMessageThatCanNotBeSentIsOnlyLogged) {
    connectAndBecomeReady();
    link().sends = FakeLink::Sends::fail;
    websocket->send("12345");
    loop.run();
    EXPECT_THAT(log.take(), ElementsAre("error StateKit/Websocket: Failed to send 5 bytes: broken pipe"));
    EXPECT_THAT(delegate.told, IsEmpty());
    EXPECT_TRUE(websocket->isConnected());
}

TEST_F(WebsocketTest, ConnectingAgainCancelsTheEarlierConnectionWithoutAReport) {
    connectAndBecomeReady();
    const auto earlier = transport.links.back();
    websocket->connect();
    EXPECT_TRUE(earlier->isCancelled);
    EXPECT_FALSE(websocket->isConnected());
    loop.run();
    EXPECT_THAT(delegate.told, IsEmpty());
    EXPECT_FALSE(earlier->deliver("late"));
    link().ready();
    EXPECT_THAT(delegate.told, ElementsAre("connected"));
}

TEST_F(WebsocketTest, ACloseCodeIsForgottenWithItsConnection) {
    connectAndBecomeReady();
    link().deliverClose(CloseCode::policyViolation);
    websocket->connect();
    link().ready();
    link().end("end");
    EXPECT_THAT(delegate.told, ElementsAre("connected", "disconnected end without code"));
}

TEST_F(WebsocketTest, CanConnectManyTimes) {
    for (int i = 0; i < 3; ++i) {
        connectAndBecomeReady();
        link().deliver("a");
        link().close(CloseCode::normalClosure);
        EXPECT_THAT(delegate.told, ElementsAre("received a", "disconnected closed by the server 1000"));
    }
    EXPECT_EQ(transport.links.size(), 3u);
}

TEST_F(WebsocketTest, WithoutADelegateNobodyIsTold) {
    websocket->setDelegate(nullptr);
    websocket->connect();
    link().ready();
    EXPECT_TRUE(websocket->isConnected());
    link().deliver("a");
    link().end();
    EXPECT_FALSE(websocket->isConnected());
    EXPECT_THAT(delegate.told, IsEmpty());
}

TEST_F(WebsocketTest, ADelegateThatHasGoneIsNotTold) {
    auto dying = std::make_unique<Delegate>();
    websocket->setDelegate(dying.get());
    websocket->connect();
    dying.reset();
    link().ready();
    link().deliver("a");
    link().end();
    EXPECT_FALSE(websocket->isConnected());
}

TEST_F(WebsocketTest, DestroyingItCancelsItsConnectionWithoutAReport) {
    connectAndBecomeReady();
    websocket.reset();
    EXPECT_TRUE(link().isCancelled);
    EXPECT_TRUE(link().isDestroyed);
    loop.run();
    EXPECT_THAT(delegate.told, IsEmpty());
}

TEST_F(WebsocketTest, DestroyingItBeforeASendCompletesIsSafe) {
    connectAndBecomeReady();
    link().sends = FakeLink::Sends::fail;
    websocket->send("a");
    websocket->close(CloseCode::normalClosure);
    websocket.reset();
    loop.run();
}

TEST_F(WebsocketTest, ALateCompletionOfACloseDoesNotCancelTheNextConnection) {
    connectAndBecomeReady();
    websocket->close(CloseCode::normalClosure);
    websocket->connect();
    link().ready();
    loop.run();
    EXPECT_FALSE(link().isCancelled);
    EXPECT_TRUE(websocket->isConnected());
}

// What a delegate may do inside each report.

TEST_F(WebsocketTest, TheDelegateMayDestroyItOnConnection) {
    delegate.then = [this] { websocket.reset(); };
    websocket->connect();
    link().ready();
    EXPECT_TRUE(link().isDestroyed);
}

TEST_F(WebsocketTest, TheDelegateMayDestroyItOnAMessage) {
    connectAndBecomeReady();
    delegate.then = [this] { websocket.reset(); };
    link().deliver("a");
    EXPECT_TRUE(link().isDestroyed);
    EXPECT_FALSE(link().deliver("b"));
    EXPECT_THAT(delegate.told, ElementsAre("received a"));
}

TEST_F(WebsocketTest, TheDelegateMayDestroyItOnEveryKindOfDisconnection) {
    const std::function<void(FakeLink&)> ends[] = {[](FakeLink& link) { link.fail(); },
                                                   [](FakeLink& link) { link.end(); },
                                                   [](FakeLink& link) { link.close(CloseCode::goingAway); },
                                                   [this](FakeLink&) {
                                                       websocket->close(CloseCode::normalClosure);
                                                       loop.run();
                                                   }};
    for (const auto& end : ends) {
        delegate.then = {};
        websocket = make("wss://a");
        connectAndBecomeReady();
        delegate.then = [this] { websocket.reset(); };
        end(link());
        EXPECT_EQ(delegate.told.size(), 1u);
        EXPECT_TRUE(link().isDestroyed);
    }
}

TEST_F(WebsocketTest, TheDelegateMayConnectAgainOnEveryReport) {
    connectAndBecomeReady();
    const auto first = transport.links.back();
    delegate.then = [this] { websocket->connect(); };
    first->deliver("a");
    EXPECT_TRUE(first->isDestroyed);
    const auto second = transport.links.back();
    second->ready();
    EXPECT_TRUE(second->isDestroyed);
    delegate.then = {};
    const auto third = transport.links.back();
    third->ready();
    delegate.then = [this] { websocket->connect(); };
    third->end();
    EXPECT_TRUE(third->isDestroyed);
    EXPECT_EQ(transport.links.size(), 4u);
    EXPECT_THAT(delegate.told,
                ElementsAre("received a", "connected", "connected", "disconnected end of stream without code"));
    EXPECT_FALSE(websocket->isConnected());
}

TEST_F(WebsocketTest, TheDelegateMayCloseOnAMessage) {
    connectAndBecomeReady();
    delegate.then = [this] {
        if (websocket->isConnected()) websocket->close(CloseCode::goingAway);
    };
    link().deliver("a");
    loop.run();
    EXPECT_THAT(delegate.told, ElementsAre("received a", "disconnected without error without code"));
}

/// A connection that goes on talking after it was cancelled and destroyed, as no adapter should.
class RudeTransport : public Transport {
public:
    struct RudeConnection : TransportConnection {
        explicit RudeConnection(std::vector<Handlers>& all) : all(all) {}
        void start(Handlers handlers) override { all.push_back(std::move(handlers)); }
        TransportState state() const override { return TransportState::ready; }
        void send(TransportMessage, std::function<void(const std::optional<TransportError>&)>) override {}
        void cancel() override {}
        std::vector<Handlers>& all;
    };

    std::unique_ptr<TransportConnection> connection(const TransportParameters&) override {
        return std::make_unique<RudeConnection>(all);
    }
    std::vector<TransportConnection::Handlers> all;
};

TEST_F(WebsocketTest, LateReportsOfAReplacedConnectionReachNobody) {
    RudeTransport rude;
    Websocket other(rude, host, "wss://a");
    other.setDelegate(&delegate);
    other.connect();
    rude.all[0].stateChanged(TransportState::ready, {});
    other.connect();
    delegate.told.clear();
    rude.all[0].stateChanged(TransportState::ready, {});
    rude.all[0].received({.opcode = Opcode::text, .content = {'a'}, .closeCode = {}});
    rude.all[0].received({.opcode = Opcode::close, .content = {}, .closeCode = CloseCode::policyViolation});
    rude.all[0].stateChanged(TransportState::cancelled, {});
    rude.all[0].receiveFailed({"late"});
    EXPECT_THAT(delegate.told, IsEmpty());
    EXPECT_FALSE(other.isConnected());
    rude.all[1].stateChanged(TransportState::ready, {});
    rude.all[0].receiveFailed({"late"});
    rude.all[1].receiveFailed({"in time"});
    EXPECT_THAT(delegate.told, ElementsAre("connected", "disconnected in time without code"));
}

TEST_F(WebsocketTest, ReportsToADestroyedOneReachNobody) {
    RudeTransport rude;
    auto other = std::make_unique<Websocket>(rude, host, "wss://a");
    other->setDelegate(&delegate);
    other->connect();
    other.reset();
    rude.all[0].stateChanged(TransportState::ready, {});
    rude.all[0].received({.opcode = Opcode::text, .content = {'a'}, .closeCode = {}});
    rude.all[0].receiveFailed({"late"});
    EXPECT_THAT(delegate.told, IsEmpty());
}

}  // namespace
