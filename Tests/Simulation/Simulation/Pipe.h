#pragma once

#include "Base/Bytes.h"
#include "StateKit/MainLoop.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>

/// One thing that travels over a connection.
struct WireItem {
    enum class Kind {
        upgrade,  // the opening handshake: up the request, down the answer
        frame,
        ping,
        pong,
        close,  // a close frame
        end     // the connection has ended
    };

    Kind kind = Kind::frame;
    Bytes bytes = {};              // of a frame
    std::uint64_t payload = 0;     // of a ping or pong
    std::size_t heard = 0;         // of a client's pong: the packs that had arrived when it was sent
    std::optional<int> code = {};  // of a close frame
};

/// One direction of a connection: what goes in comes out later, in order, or not at all.
class Pipe {
public:
    /// @param loop  must outlive the pipe
    /// @param arrived  called with each item; may do anything but destroy the pipe
    Pipe(MainLoop& loop, Seconds latency, std::function<void(WireItem)> arrived);
    ~Pipe();
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    void push(WireItem item);
    /// Nothing comes out until then; what goes in waits.
    void stall(Date until);
    /// Lets through so many bytes a second.
    void slowDown(double bytesPerSecond);
    /// Ends stalling and slowness.
    void heal();
    /// Loses what is on its way, and all that follows.
    void cut();
    bool isCut() const { return _isCut; }

private:
    struct Travelling {
        Date due;
        WireItem item;
    };
    void arm();
    void deliver();

    MainLoop& loop;
    const Seconds latency;
    std::function<void(WireItem)> arrived;
    std::deque<Travelling> travelling;
    Date busyUntil;
    Date stalledUntil;
    std::optional<double> rate;
    std::optional<MainLoop::TimerId> timer;
    bool _isCut = false;
};
