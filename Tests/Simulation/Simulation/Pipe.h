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
        upgrade,  // the opening handshake: the request going up, the answer coming down
        frame,
        ping,
        pong,
        close,  // a close frame
        end     // the connection has ended
    };

    Kind kind = Kind::frame;
    Bytes bytes = {};              // of a frame
    std::uint64_t payload = 0;     // of a ping or pong
    std::size_t heard = 0;         // of a client's pong: how many packs had arrived when it was sent
    std::optional<int> code = {};  // of a close frame
};

/// One direction of a connection: items come out later, in the order in which they went in, or not at all.
class Pipe {
public:
    /// @param loop  must outlive the pipe
    /// @param arrived  called with each item; may do anything but destroy the pipe
    Pipe(MainLoop& loop, Seconds latency, std::function<void(WireItem)> arrived);
    ~Pipe();
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    void push(WireItem item);
    /// Nothing comes out until that time; what goes in waits.
    void stall(Date until);
    /// From now on, lets through at most this many bytes a second.
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
