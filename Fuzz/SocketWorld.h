#pragma once

#include "FuzzSupport/FuzzKeys.h"

#include "StateKit/SignalTarget.h"
#include "TestSupport/FakeHost.h"
#include "TestSupport/FakePathMonitor.h"
#include "TestSupport/FakeTransport.h"
#include "TestSupport/TemporaryFolder.h"
#include "TestSupport/TestLoop.h"
#include "VimbleKit/Kit.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// A session, and around it a machine, a network, two servers and seven people.
///
/// The fuzzer calls the operations. After each of them the rules are checked that must always hold. If no
/// observer has acted meanwhile, the state must also be exactly what the operation should make of it.
class SocketWorld {
public:
    /// What a transport reports.
    enum class Turn { ready, wait, fail, end };

    SocketWorld();
    ~SocketWorld();

    /// The text of a person's public key. Number 0 is the user.
    static const std::string& keyText(std::size_t person);

    // ---- the network, the server, and people
    void rawFrame(ByteView frame);
    void greet(std::size_t server);
    void serverSays(ByteView plaintext);
    void personSays(std::size_t person, ByteView plaintext);
    /// The last frame that was sealed, with one byte altered.
    void altered(std::size_t place, std::uint8_t bits);
    void link(Turn turn);
    void close(std::optional<std::uint16_t> code);
    void sends(FakeLink::Sends sends);
    void completeSends();
    void advance(Seconds interval);
    void path(bool isSatisfied);

    // ---- the user; these may be called from inside an observer's action
    /// Connects, in a new session if there is none.
    void connect();
    void disconnect();
    void chooseServer(std::size_t server);
    void setName(const std::string& name);
    void setEmoji(const std::string& emoji);
    void command(const std::string& text);
    void sendToRoom(const std::string& text) { send(text, Kit::roomKey); }
    void sendTo(const std::string& target, const std::string& text) { send(text, target); }
    void markRead(std::size_t person);
    void markRoomRead();
    void save();
    void endSession();

    /// Calls this inside the next action of an observer.
    void duringNext(std::function<void()> action) { next = std::move(action); }

    /// Saves the state and reads it again.
    void end();

private:
    class Secrets;
    class Observer;

    void startSession();
    void send(const std::string& text, const std::string& target);
    template <class Operation>
    bool tried(Operation&& operation);
    bool deliver(ByteView frame);
    FakeLink* openLink();
    void settle();
    void checkSent(FakeLink& link);
    void react();
    bool isUndisturbed() const { return kit && !next && disturbances == disturbancesBefore; }

    TestLoop loop;
    FakePath path_;
    Internets internets;
    std::unique_ptr<Secrets> secrets;
    FakeTransport transport;
    FakeHost host;
    TemporaryFolder folder;
    std::unique_ptr<Kit> kit;
    std::unique_ptr<Observer> observer;

    std::function<void()> next;
    std::uint64_t disturbances = 0;  // how many actions ran inside an observer's
    std::uint64_t disturbancesBefore = 0;
    const FakeLink* endedLink = nullptr;  // the link whose end was reported: nothing more may come from it
    const FakeLink* greetedLink = nullptr;
    std::size_t greetedBy = 0;
    bool wishesNoLink = false;
    FakeLink::Sends sendMode = FakeLink::Sends::complete;
    Bytes lastFrame;
};
