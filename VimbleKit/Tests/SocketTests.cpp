#include "StateKit/Log.h"
#include "StateKit/Printed.h"
#include "TestSupport/FakeHost.h"
#include "TestSupport/FakeServer.h"
#include "TestSupport/FakeTransport.h"
#include "TestSupport/TestLoop.h"
#include "VimbleKit/Socket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>

namespace {

using Strings = std::vector<std::string>;

/// Writes down what it is told, a line each.
class Recorder : public SignalTarget, public SocketDelegate {
public:
    Strings take() { return std::exchange(calls, {}); }

    std::function<void(const std::string&)> then;  // run behind each line
    bool readsLines = true;
    std::vector<Pack> packs;
    std::vector<MetaPerson> people;

private:
    void socketDidConnect(Socket&) override { note("connected"); }
    void socketConnectFailed(Socket&, const std::string& text) override { note("connect failed: " + text); }
    void socketAuthorizationFailed(Socket&, const std::string& text) override { note("refused: " + text); }
    void socketDisconnected(Socket&, const std::optional<SocketError>& error) override {
        note("disconnected: " + (error ? error->localizedDescription() : "no error"));
    }
    void socketReceivedPeople(Socket&, const std::vector<MetaPerson>& list) override {
        people = list;
        note("people " + std::to_string(list.size()));
    }
    void socketCommandFailed(Socket&, const std::string& text) override { note("failed: " + text); }
    void socketCommandResponded(Socket&, const std::string& text) override { note("responded: " + text); }
    void socketReceivedPack(Socket&, const Pack& pack) override {
        packs.push_back(pack);
        note("pack");
    }
    void socketSent(Socket&, const std::string& line) override { note("sent " + line); }
    void socketReceived(Socket&, const std::string& line) override { note("received " + line); }
    bool socketLinesAreRead() const override { return readsLines; }

    void note(const std::string& line) {
        calls.push_back(line);
        if (const auto action = then) action(line);
    }

    Strings calls;
};

const MetaPerson one{keyTextOf(1), false, true};
const MetaPerson two{keyTextOf(2), true, true};
const MetaPerson three{keyTextOf(3), false, false};

class SocketTest : public testing::Test {
protected:
    SocketTest() { makeSocket("https://chat.example.org/base"); }

    void makeSocket(const std::string& endpoint) {
        socket = std::make_unique<Socket>(transport, host, endpoint, std::make_shared<const Keys>(keysOf(1)));
        socket->setDelegate(&recorder);
    }

    /// Connects until the transport is open, before the greeting.
    void open(std::uint8_t serverNumber = 200) {
        socket->connect();
        server = std::make_unique<FakeServer>(transport.links.back(), keysOf(1).publicKey, serverNumber);
        server->link->ready();
    }
    /// Connects until the server's list has arrived.
    void connectWith(const std::vector<MetaPerson>& people) {
        open();
        server->greet();
        server->sendList(people);
        recorder.take();
        server->takePacks();
    }

    TestLoop loop;
    FakeHost host;
    FakeTransport transport{loop};
    Recorder recorder;
    std::unique_ptr<Socket> socket;
    std::unique_ptr<FakeServer> server;
};

// ---- the road to the first list

TEST_F(SocketTest, MakingOneDoesNotConnect) {
    EXPECT_TRUE(transport.links.empty());
    EXPECT_FALSE(socket->isConnected());
    EXPECT_FALSE(socket->isConnecting());
    EXPECT_EQ(socket->endpoint(), "https://chat.example.org/base");
}

TEST_F(SocketTest, TheLinkGoesToTheRelayOfTheEndpointWithTheUserAgentAlone) {
    socket->connect();
    const FakeLink& link = transport.last();
    EXPECT_TRUE(link.isStarted);
    EXPECT_EQ(link.parameters.url, "https://chat.example.org/base/relay");
    ASSERT_EQ(link.parameters.headers.size(), 1u);
    EXPECT_EQ(link.parameters.headers[0].first, "User-Agent");
    EXPECT_TRUE(socket->isConnecting());
    EXPECT_FALSE(socket->isConnected());
}

TEST_F(SocketTest, AnEndpointThatIsNoUrlIsTheTransportsToRefuse) {
    makeSocket("no url");
    socket->connect();
    EXPECT_EQ(transport.last().parameters.url, "no url");
}

TEST_F(SocketTest, AnOpenTransportProvesNothing) {
    open();
    EXPECT_TRUE(socket->isConnecting());
    EXPECT_FALSE(socket->isConnected());
    EXPECT_TRUE(recorder.take().empty());
    EXPECT_TRUE(server->link->sent.empty());
}

TEST_F(SocketTest, TheGreetingIsAnsweredWithTheSealedCommandList) {
    open();
    server->greet();
    EXPECT_EQ(recorder.take(), (Strings{"sent scmd: list"}));
    ASSERT_EQ(server->link->sent.size(), 1u);
    EXPECT_EQ(server->link->sent[0].opcode, Opcode::binary);
    const auto pack = EncryptedPack::parse(server->link->sent[0].content);
    ASSERT_TRUE(pack);
    EXPECT_EQ(pack->authorKey, keysOf(1).publicKey);
    EXPECT_EQ(pack->targetKey, server->keys.publicKey);
    EXPECT_EQ(textOf(Nacl::open(pack->ciphertext, pack->nonce, pack->authorKey, server->keys.secretKey)), "list");
    EXPECT_TRUE(socket->isConnecting());
    EXPECT_FALSE(socket->isConnected());
}

TEST_F(SocketTest, TheFirstListAuthenticatesAndIsThenReported) {
    open();
    server->greet();
    recorder.take();
    recorder.then = [&](const std::string& line) {
        if (line != "connected") return;
        EXPECT_TRUE(socket->isConnected());
        EXPECT_FALSE(socket->isConnecting());
        EXPECT_TRUE(socket->serverPeople().empty());
    };
    server->sendList({two, one});
    EXPECT_EQ(recorder.take(), (Strings{"connected", "received list of 2 people", "people 2"}));
    EXPECT_EQ(recorder.people, (std::vector{two, one}));
    EXPECT_EQ(socket->serverPeople(), (std::vector{two, one}));

    server->sendList({});
    EXPECT_EQ(recorder.take(), (Strings{"received list of 0 people", "people 0"}));
    EXPECT_TRUE(server->takeCommands() == Strings{"list"});  // asked for only once
}

TEST_F(SocketTest, WhatIsNoGreetingIsDroppedAndTheNextOneStillCounts) {
    open();
    Bytes wrong = Greeting::encoded(server->keys.publicKey);
    wrong[0] = 'V';
    Bytes notUtf8 = Greeting::encoded(server->keys.publicKey);
    notUtf8[3] = 0xFF;
    const Bytes good = Greeting::encoded(server->keys.publicKey);
    for (const Bytes& frame : {wrong, notUtf8, Bytes(good.begin(), good.end() - 1), Bytes(40, 'v'), Bytes(1, 'v'),
                               server->packFrom(server->keys, ServerMessage::encodedList({one})).bytes()})
        server->link->deliver(ByteView(frame));
    EXPECT_TRUE(recorder.take().empty());
    EXPECT_TRUE(server->link->sent.empty());

    server->link->deliver(Opcode::text, good);  // bytes are bytes, whatever the opcode
    EXPECT_EQ(recorder.take(), (Strings{"sent scmd: list"}));
}

TEST_F(SocketTest, ASecondGreetingIsNoPackAndChangesNothing) {
    connectWith({one});
    server->link->deliver(ByteView(Greeting::encoded(keysOf(201).publicKey)));
    server->sendResponse("still here");
    EXPECT_EQ(recorder.take(), (Strings{"received command response: still here", "responded: still here"}));
}

TEST_F(SocketTest, AServerKeyThatNobodyCanSealForHearsNothing) {
    open();
    server->link->deliver(ByteView(Greeting::encoded(PublicKey{})));
    EXPECT_TRUE(recorder.take().empty());
    EXPECT_TRUE(server->link->sent.empty());
    EXPECT_TRUE(socket->isConnecting());
}

TEST_F(SocketTest, AFirstServerPackOfAnUnknownKindAuthenticates) {
    open();
    server->greet();
    recorder.take();
    server->send("what?");
    EXPECT_EQ(recorder.take(), (Strings{"connected"}));
    EXPECT_TRUE(socket->isConnected());
}

TEST_F(SocketTest, AFirstServerPackThatIsTooShortAuthenticatesToo) {
    open();
    server->greet();
    recorder.take();
    server->send("list");
    EXPECT_EQ(recorder.take(), (Strings{"connected"}));
}

TEST_F(SocketTest, APackFromAPersonNeedsNoAuthenticatedLink) {
    open();
    server->greet();
    recorder.take();
    server->relay(keysOf(2), {std::nullopt, "B", "", "hi"});
    EXPECT_EQ(recorder.take(), (Strings{"pack"}));
    EXPECT_FALSE(socket->isConnected());
    ASSERT_EQ(recorder.packs.size(), 1u);
    EXPECT_EQ(recorder.packs[0].authorKey, keysOf(2).publicKey);
    EXPECT_EQ(recorder.packs[0].targetKey, keysOf(1).publicKey);
    EXPECT_EQ(PackPlaintext::decoded(recorder.packs[0].plaintext)->text, "hi");
}

// ---- receiving

TEST_F(SocketTest, WhatIsNoPackOrDoesNotOpenIsDropped) {
    connectWith({one});
    const Bytes good = server->packFrom(keysOf(2), Bytes{'x'}).bytes();
    server->link->deliver(ByteView(Bytes(88, 1)));
    server->link->deliver(ByteView(Bytes(89, 1)));
    server->link->deliver(ByteView(Bytes(500, 0)));
    server->link->deliver(ByteView(Bytes(good.begin(), good.end() - 1)));
    for (const std::size_t at : {std::size_t(0), std::size_t(70), std::size_t(90), good.size() - 1}) {
        Bytes altered = good;
        altered[at] ^= 1;
        server->link->deliver(ByteView(altered));
    }
    // Sealed for somebody else.
    server->link->deliver(ByteView(
        Pack{keysOf(2).publicKey, keysOf(3).publicKey, std::nullopt, {'x'}}.encrypted(keysOf(2).secretKey).bytes()));
    EXPECT_TRUE(recorder.take().empty());
    EXPECT_TRUE(recorder.packs.empty());

    // The target's field is not checked.
    Bytes otherTarget = good;
    otherTarget[40] ^= 1;
    server->link->deliver(ByteView(otherTarget));
    server->link->deliver(ByteView(good));
    EXPECT_EQ(recorder.take(), (Strings{"pack", "pack"}));
}

TEST_F(SocketTest, NobodyElseCanSpeakForTheServer) {
    connectWith({one});
    // The pack names the server's key as its author, but another key has sealed it.
    const Bytes forged = Pack{server->keys.publicKey, keysOf(1).publicKey, std::nullopt, ServerMessage::encodedList({})}
                             .encrypted(keysOf(2).secretKey)
                             .bytes();
    server->link->deliver(ByteView(forged));
    EXPECT_TRUE(recorder.take().empty());
    EXPECT_EQ(socket->serverPeople().size(), 1u);
    // A server message that a person has sealed counts as that person's pack.
    server->sendFrom(keysOf(2), ServerMessage::encodedList({}));
    EXPECT_EQ(recorder.take(), (Strings{"pack"}));
    EXPECT_EQ(socket->serverPeople().size(), 1u);
}

TEST_F(SocketTest, AListThatDoesNotDecodeLeavesTheOldOne) {
    connectWith({one, two});
    for (const char* message : {"list", "list[", "list{}", "list[{\"publicKey\":\"x\"}]", "list[] x"})
        server->send(message);
    EXPECT_TRUE(recorder.take().empty());
    EXPECT_EQ(socket->serverPeople().size(), 2u);
}

TEST_F(SocketTest, CommandErrorsAreToldWithTheirText) {
    connectWith({one});
    server->sendError("no such key");
    EXPECT_EQ(recorder.take(), (Strings{"received command error: no such key", "failed: no such key"}));
    for (const char* body : {R"({"name":"","emoji":""})", R"({"text":"without name and emoji"})", "x", "\xff"})
        server->send("cerr" + std::string(body));
    EXPECT_EQ(recorder.take(), (Strings{"received command error: Unknown Error", "failed: Unknown Error",
                                        "received command error: Unknown Error", "failed: Unknown Error",
                                        "received command error: Unknown Error", "failed: Unknown Error",
                                        "received command error: Unknown Error", "failed: Unknown Error"}));
}

TEST_F(SocketTest, CommandResponsesAreToldWithTheirTextOrTheirBody) {
    connectWith({one});
    server->sendResponse("done");
    EXPECT_EQ(recorder.take(), (Strings{"received command response: done", "responded: done"}));
    for (const std::string body : {R"({"name":"","emoji":""})", R"({"other":1})", "plain words"}) {
        server->send("crsp" + body);
        const std::string text = "Could not understand response: " + body;
        EXPECT_EQ(recorder.take(), (Strings{"received command response: " + text, "responded: " + text}));
    }
}

TEST_F(SocketTest, AResponseThatIsNotUtf8EndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    connectWith({one});
    EXPECT_DEATH(server->send("crsp\xff"), "not UTF-8");
}

TEST_F(SocketTest, OtherKindsOfServerMessagesArePrintedAndDropped) {
    connectWith({one});
    static Strings lines;
    lines.clear();
    const auto before = DebugLines::setPrint([](std::string_view line) { lines.emplace_back(line); });
    server->send("what?");
    server->send("\xff\xff\xff\xff?");
    DebugLines::setPrint(before);
    EXPECT_TRUE(recorder.take().empty());
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_THAT(lines[0], testing::StartsWith("Got websocket data: "));
    EXPECT_EQ(lines[1], "Got unknown server message of kind what");
}

TEST_F(SocketTest, TheGreetingIsPrinted) {
    static Strings lines;
    lines.clear();
    open();
    const auto before = DebugLines::setPrint([](std::string_view line) { lines.emplace_back(line); });
    server->greet();
    DebugLines::setPrint(before);
    const std::string key = server->keys.publicKeyText();
    EXPECT_EQ(lines, (Strings{"Got websocket data: " + Nacl::hex(bytesOf("vimble:")) + key,
                              "Got Websocket server key: " + key}));
}

// ---- the end of a link

TEST_F(SocketTest, BeforeAuthenticationAFailureIsAFailedConnection) {
    const struct {
        std::function<void(FakeLink&)> ending;
        Strings told;
    } rows[] = {
        {[](FakeLink& link) { link.end("reset"); }, {"connect failed: Network connnection failed (reset)"}},
        {[](FakeLink& link) { link.fail("broken"); }, {"connect failed: Network connnection failed (broken)"}},
        {[](FakeLink& link) { link.close(CloseCode::goingAway); },
         {"connect failed: Network connnection failed (closed by the server)"}},
        {[](FakeLink& link) { link.close({}); }, {"connect failed: Network connnection failed (closed by the server)"}},
        {[](FakeLink& link) { link.close(CloseCode::policyViolation); }, {"refused: closed by the server"}},
    };
    for (const auto& row : rows) {
        for (const bool isGreeted : {false, true}) {
            open();
            if (isGreeted) server->greet();
            recorder.take();
            row.ending(*server->link);
            EXPECT_EQ(recorder.take(), row.told);
            EXPECT_FALSE(socket->isConnecting());
            EXPECT_FALSE(socket->isConnected());
        }
    }
}

TEST_F(SocketTest, AfterAuthenticationAFailureIsADisconnection) {
    const struct {
        std::function<void(FakeLink&)> ending;
        Strings told;
    } rows[] = {
        {[](FakeLink& link) { link.end("reset"); }, {"disconnected: Network connnection failed (reset)"}},
        {[](FakeLink& link) { link.close(CloseCode::internalError); },
         {"disconnected: Network connnection failed (closed by the server)"}},
        {[](FakeLink& link) { link.close(CloseCode::policyViolation); },
         {"refused: closed by the server", "disconnected: Authorization failed (closed by the server)"}},
    };
    for (const auto& row : rows) {
        connectWith({one, two});
        row.ending(*server->link);
        EXPECT_EQ(recorder.take(), row.told);
        EXPECT_FALSE(socket->isConnected());
        EXPECT_TRUE(socket->serverPeople().empty());
        EXPECT_THROW(socket->sendCommand("x"), SocketError);
    }
}

TEST_F(SocketTest, ALocalCloseBeforeAuthenticationTellsNothing) {
    open();
    server->greet();
    recorder.take();
    socket->disconnect();
    EXPECT_FALSE(socket->isConnecting());
    loop.run();
    EXPECT_TRUE(server->link->isCancelled);
    EXPECT_TRUE(recorder.take().empty());
}

TEST_F(SocketTest, ALocalCloseSendsTheNormalCodeAndIsADisconnectionWithoutError) {
    connectWith({one});
    socket->disconnect();
    EXPECT_TRUE(socket->isConnected());  // until the report
    EXPECT_EQ(server->link->sent.back().opcode, Opcode::close);
    EXPECT_EQ(server->link->sent.back().closeCode, CloseCode::normalClosure);
    EXPECT_TRUE(recorder.take().empty());
    loop.run();
    EXPECT_EQ(recorder.take(), (Strings{"disconnected: no error"}));
    EXPECT_FALSE(socket->isConnected());
}

TEST_F(SocketTest, DisconnectingWithoutALinkDoesNothing) {
    socket->disconnect();
    EXPECT_TRUE(transport.links.empty());
}

TEST_F(SocketTest, ALinkThatNeverGotReadyTellsNothingAndStaysConnecting) {
    socket->connect();
    transport.last().wait();
    transport.last().fail();
    loop.run();
    EXPECT_TRUE(recorder.take().empty());
    EXPECT_TRUE(socket->isConnecting());
    socket->disconnect();
    EXPECT_FALSE(socket->isConnecting());
    EXPECT_TRUE(transport.last().isCancelled);
    loop.run();
    EXPECT_TRUE(recorder.take().empty());
}

TEST_F(SocketTest, AReconnectionWaitsForANewGreeting) {
    connectWith({one});
    server->link->end();
    recorder.take();
    open(201);
    EXPECT_THROW(socket->sendCommand("x"), SocketError);
    server->sendList({one});
    EXPECT_TRUE(recorder.take().empty());
    server->greet();
    server->sendList({one, two});
    EXPECT_EQ(recorder.take(), (Strings{"sent scmd: list", "connected", "received list of 2 people", "people 2"}));
}

TEST_F(SocketTest, AReconnectionBeforeTheOldLinksEndIsReportedWaitsForANewGreetingToo) {
    open();
    server->greet();
    socket->disconnect();
    recorder.take();
    open(201);  // the end of the old link was not reported, and never will be
    server->greet();
    server->sendList({one});
    EXPECT_EQ(recorder.take(), (Strings{"sent scmd: list", "connected", "received list of 1 people", "people 1"}));
    loop.run();
    EXPECT_TRUE(recorder.take().empty());
    EXPECT_TRUE(socket->isConnected());
}

// ---- sending

TEST_F(SocketTest, AChatGoesToEverybodyOnTheListSealedForEach) {
    connectWith({two, one, three});
    socket->sendChat("hello", "Me", "🦊", "room");
    const auto packs = server->takePacks();
    ASSERT_EQ(packs.size(), 3u);
    const std::uint8_t readers[] = {2, 1, 3};
    std::set<Nonce> nonces;
    std::set<Bytes> ciphertexts;
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(packs[i].authorKey, keysOf(1).publicKey);
        EXPECT_EQ(packs[i].targetKey, keysOf(readers[i]).publicKey);
        EXPECT_EQ(
            textOf(Nacl::open(packs[i].ciphertext, packs[i].nonce, packs[i].authorKey, keysOf(readers[i]).secretKey)),
            R"({"kind":"room","name":"Me","emoji":"🦊","text":"hello"})");
        for (std::uint8_t other : readers)
            EXPECT_EQ(recordIn(packs[i], keysOf(other)).has_value(), other == readers[i]);
        nonces.insert(packs[i].nonce);
        ciphertexts.insert(packs[i].ciphertext);
    }
    EXPECT_EQ(nonces.size(), 3u);
    EXPECT_EQ(ciphertexts.size(), 3u);
    EXPECT_EQ(recorder.take(), (Strings{"sent chat ×" + printed(std::vector{two, one, three}) + " Me: hello"}));
}

TEST_F(SocketTest, NoNonceServesTwice) {
    // Send several texts, to more readers than nonces are drawn at once.
    std::vector<MetaPerson> people;
    for (int i = 0; i < 300; ++i) people.push_back({keyTextOf(static_cast<std::uint8_t>(2 + i % 100)), false, true});
    connectWith(people);
    for (int i = 0; i < 3; ++i) socket->sendChat("same", "same", "", "room");
    for (int i = 0; i < 5; ++i) socket->sendDirect("same", keyTextOf(2), "same", "");
    for (int i = 0; i < 5; ++i) socket->sendCommand("same");
    socket->sendPong("same", "");
    const auto packs = server->takePacks();
    EXPECT_EQ(packs.size(), 300u * 4 + 10);
    std::set<Nonce> nonces;
    for (const EncryptedPack& pack : packs) nonces.insert(pack.nonce);
    EXPECT_EQ(nonces.size(), packs.size());
    EXPECT_FALSE(nonces.contains(Nonce{}));
}

TEST_F(SocketTest, AMalformedKeyOnTheListIsPassedOver) {
    connectWith({one, {"not hexadecimal", false, true}, three});
    socket->sendChat("hello", "Me", "", "room");
    const auto packs = server->takePacks();
    ASSERT_EQ(packs.size(), 2u);
    EXPECT_TRUE(recordIn(packs[0], keysOf(1)));
    EXPECT_TRUE(recordIn(packs[1], keysOf(3)));
    EXPECT_NE(packs[0].nonce, packs[1].nonce);
    EXPECT_EQ(recorder.take().size(), 1u);
}

TEST_F(SocketTest, AKeyThatCantBeSealedForEndsTheFanOutBehindTheEarlierReaders) {
    const std::string tooShort = "abcd", noPoint(64, '0'), tooLong(66, 'a'), empty;
    for (const std::string& bad : {tooShort, noPoint, tooLong, empty}) {
        connectWith({one, {bad, false, true}, three});
        for (int times = 0; times < 2; ++times) {
            EXPECT_THROW(socket->sendChat("hello", "Me", "", "room"), NaclError) << bad;
            EXPECT_THROW(socket->sendPong("Me", ""), NaclError) << bad;
            const auto packs = server->takePacks();
            ASSERT_EQ(packs.size(), 2u);
            EXPECT_TRUE(recordIn(packs[0], keysOf(1)));
            EXPECT_TRUE(recorder.take().empty());
        }
        server->link->end();
    }
}

TEST_F(SocketTest, WithNobodyOnTheListAChatIsStillLogged) {
    connectWith({});
    socket->sendChat("hello", "Me", "", "room");
    socket->sendPong("Me", "🦊");
    EXPECT_TRUE(server->takePacks().empty());
    EXPECT_EQ(recorder.take(), (Strings{"sent chat ×[] Me: hello", "sent pong ×[] Me 🦊"}));
}

TEST_F(SocketTest, ALineShowsTheFirst64CharactersOfAText) {
    connectWith({});
    std::string long64, long65;
    for (int i = 0; i < 64; ++i) long64 += "👍🏽";
    long65 = long64 + "x";
    socket->sendChat(long65, "Me", "", "room");
    socket->sendDirect(long65, keyTextOf(2), "Me", "");
    EXPECT_EQ(recorder.take(),
              (Strings{"sent chat ×[] Me: " + long64, "sent dm → " + keyTextOf(2).substr(0, 8) + ": " + long64}));
}

TEST_F(SocketTest, ANewListIsWhatTheNextTextGoesBy) {
    connectWith({one, two});
    socket->sendChat("a", "Me", "", "room");
    EXPECT_EQ(server->takePacks().size(), 2u);
    server->sendList({three});
    recorder.take();
    socket->sendChat("b", "Me", "", "room");
    const auto packs = server->takePacks();
    ASSERT_EQ(packs.size(), 1u);
    EXPECT_TRUE(recordIn(packs[0], keysOf(3)));
    EXPECT_EQ(recorder.take(), (Strings{"sent chat ×" + printed(std::vector{three}) + " Me: b"}));
}

TEST_F(SocketTest, ANewListOfTheSameLengthCountsToo) {
    connectWith({one, two});
    socket->sendChat("a", "Me", "", "room");
    server->takePacks();
    server->sendList({three, two});
    socket->sendChat("b", "Me", "", "room");
    const auto packs = server->takePacks();
    ASSERT_EQ(packs.size(), 2u);
    EXPECT_TRUE(recordIn(packs[0], keysOf(3)));
    EXPECT_TRUE(recordIn(packs[1], keysOf(2)));
}

TEST_F(SocketTest, APongHasNeitherKindNorText) {
    connectWith({two});
    socket->sendPong("Me", "🦊");
    const auto packs = server->takePacks();
    ASSERT_EQ(packs.size(), 1u);
    EXPECT_EQ(textOf(packs[0].decrypted(keysOf(2).secretKey).plaintext), R"({"name":"Me","emoji":"🦊"})");
    EXPECT_EQ(recorder.take(), (Strings{"sent pong ×" + printed(std::vector{two}) + " Me 🦊"}));
}

TEST_F(SocketTest, ADirectTextGoesToItsReaderAloneWhetherListedOrNot) {
    connectWith({two});
    socket->sendDirect("psst", keyTextOf(77), "Me", "🦊");
    const auto packs = server->takePacks();
    ASSERT_EQ(packs.size(), 1u);
    EXPECT_EQ(packs[0].targetKey, keysOf(77).publicKey);
    EXPECT_EQ(textOf(packs[0].decrypted(keysOf(77).secretKey).plaintext),
              R"({"name":"Me","emoji":"🦊","text":"psst"})");
    EXPECT_EQ(recorder.take(), (Strings{"sent dm → " + keyTextOf(77).substr(0, 8) + ": psst"}));
}

TEST_F(SocketTest, ADirectTextToWhatIsNoKeyIsRefused) {
    connectWith({two});
    try {
        socket->sendDirect("psst", "not hexadecimal", "Me", "");
        FAIL();
    } catch (const SocketError& error) {
        EXPECT_EQ(error.code, SocketError::Code::badArgument);
    }
    EXPECT_THROW(socket->sendDirect("psst", "abcd", "Me", ""), NaclError);
    EXPECT_THROW(socket->sendDirect("psst", std::string(64, '0'), "Me", ""), NaclError);
    EXPECT_THROW(socket->sendDirect("psst", "", "Me", ""), NaclError);
    EXPECT_TRUE(server->takePacks().empty());
    EXPECT_TRUE(recorder.take().empty());
}

TEST_F(SocketTest, TextWithoutAJsonFormGoesToNobody) {
    connectWith({two});
    socket->sendChat("\xff", "Me", "", "room");
    socket->sendDirect("\xff", keyTextOf(2), "Me", "");
    EXPECT_TRUE(server->takePacks().empty());
    ASSERT_EQ(recorder.take().size(), 1u);  // the line of the chat; the direct text reports nothing
}

TEST_F(SocketTest, ACommandGoesSealedToTheServer) {
    connectWith({one});
    socket->sendCommand("add  someone ");
    EXPECT_EQ(server->takeCommands(), (Strings{"add  someone "}));
    EXPECT_EQ(recorder.take(), (Strings{"sent scmd: add  someone "}));
    EXPECT_THROW(socket->sendCommand("\xff"), SocketError);
    EXPECT_TRUE(server->takePacks().empty());
}

TEST_F(SocketTest, ACommandBeforeTheGreetingIsRefused) {
    open();
    try {
        socket->sendCommand("who");
        FAIL();
    } catch (const SocketError& error) {
        EXPECT_EQ(error.code, SocketError::Code::notConnected);
    }
    EXPECT_TRUE(server->link->sent.empty());
}

TEST_F(SocketTest, LinesThatNobodyReadsAreNotTold) {
    recorder.readsLines = false;
    open();
    server->greet();
    server->sendList({one});
    socket->sendChat("hello", "Me", "", "room");
    EXPECT_EQ(recorder.take(), (Strings{"connected", "people 1"}));
}

// ---- a delegate that destroys, leaves or closes in the middle

TEST_F(SocketTest, TheDelegateMayDestroyTheSocketInAnyCallback) {
    const Strings all{"sent scmd: list",
                      "connected",
                      "received list of 2 people",
                      "people 2",
                      "received command error: e",
                      "failed: e",
                      "received command response: r",
                      "responded: r",
                      "pack",
                      "refused: closed by the server",
                      "disconnected: Authorization failed (closed by the server)"};
    for (std::size_t last = 0; last < all.size(); ++last) {
        makeSocket("https://chat.example.org");
        recorder.take();
        recorder.then = [&](const std::string& line) {
            if (line == all[last]) socket.reset();
        };
        open();
        server->greet();
        server->sendList({one, two});
        server->sendError("e");
        server->sendResponse("r");
        server->relay(keysOf(2), {});
        server->refuse();
        loop.run();
        recorder.then = {};
        EXPECT_EQ(recorder.take(), Strings(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(last) + 1));
        EXPECT_FALSE(socket);
        EXPECT_TRUE(server->link->isDestroyed);
    }
}

TEST_F(SocketTest, TheDelegateMayDestroyTheSocketInALineOfItsOwnSending) {
    for (int operation = 0; operation < 4; ++operation) {
        makeSocket("https://chat.example.org");
        connectWith({one, two});
        recorder.then = [&](const std::string&) { socket.reset(); };
        switch (operation) {
            case 0: socket->sendChat("x", "Me", "", "room"); break;
            case 1: socket->sendPong("Me", ""); break;
            case 2: socket->sendDirect("x", keyTextOf(2), "Me", ""); break;
            case 3: socket->sendCommand("x"); break;
        }
        recorder.then = {};
        EXPECT_FALSE(socket);
    }
}

TEST_F(SocketTest, TheDelegateMayDestroyTheSocketWhenAConnectionFails) {
    open();
    recorder.then = [&](const std::string&) { socket.reset(); };
    server->link->end();
    EXPECT_FALSE(socket);
}

TEST_F(SocketTest, TheDelegateMayCloseTheLinkInAnyCallback) {
    connectWith({one});
    recorder.then = [&](const std::string& line) {
        if (line == "received list of 2 people") socket->disconnect();
    };
    server->sendList({one, two});
    EXPECT_EQ(recorder.take(), (Strings{"received list of 2 people", "people 2"}));
    loop.run();
    EXPECT_EQ(recorder.take(), (Strings{"disconnected: no error"}));
}

TEST_F(SocketTest, ADelegateThatHasGoneIsNotTold) {
    {
        Recorder shortLived;
        socket->setDelegate(&shortLived);
    }
    open();
    server->greet();
    server->sendList({one});
    EXPECT_TRUE(socket->isConnected());
    socket->sendChat("x", "Me", "", "room");
    server->refuse();
    EXPECT_FALSE(socket->isConnected());
}

TEST_F(SocketTest, DestroyingTheSocketEndsItsLink) {
    connectWith({one});
    socket.reset();
    EXPECT_TRUE(server->link->isDestroyed);
    EXPECT_FALSE(server->sendList({}));
    loop.run();
    EXPECT_TRUE(recorder.take().empty());
}

TEST_F(SocketTest, MadeUpAuthorsLeaveNothingBehind) {
    // Frames that name keys they can't prove are dropped, however many come; the next good one is heard.
    connectWith({one});
    for (int i = 0; i < 200; ++i) {
        Bytes frame(120, static_cast<std::uint8_t>(i));
        server->link->deliver(ByteView(frame));
    }
    server->relay(keysOf(2), {std::nullopt, "B", "", "hi"});
    EXPECT_EQ(recorder.take(), (Strings{"pack"}));
}

}  // namespace
