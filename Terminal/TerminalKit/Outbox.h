#pragma once

#include "StateKit/MainLoop.h"
#include "StateKit/SignalTarget.h"
#include "TerminalKit/Addressee.h"
#include "TerminalKit/TypedLine.h"
#include "VimbleKit/Kit.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

/// What the user has said and the network has not taken yet, in the order in which it was said.
///
/// A line waits until the link is up and the server's list, with the user on it, has come over that
/// link: before that the engine would drop it, or seal it for nobody. Lines go out at a pace that the
/// relay's own limit never minds. Whether what went out arrived is asked again and again, and lines
/// whose link died before the answer are counted as in doubt; they are not sent a second time, since
/// nobody wants to read a line twice for each one that is missing.
///
/// Whom a direct message is for is decided when it is typed if the user is listed then, else when they
/// are: what is on the screen decides, not who took which name later.
///
/// Main thread only. Destroying it drops what waits.
class Outbox : public SignalTarget {
public:
    /// Asks the network whether everything that was sent before has been read at the other end.
    /// @param done  called once, never inside the call: false if the link died, or `atMost` has passed
    using Drain = std::function<void(Seconds atMost, std::function<void(bool)> done)>;

    struct Handlers {
        /// A text went out; to the room if `target` is empty.
        std::function<void(const std::string& target, const std::string& text)> sent;
        std::function<void(const std::string& command)> sentCommand;
        /// A line will never go out.
        std::function<void(const std::string& typed, const std::string& reason)> refused;
        /// A link died with that many lines on their way.
        std::function<void(std::size_t lines)> doubted;
        /// Anything that this class counts has changed.
        std::function<void()> changed;
    };

    /// So many lines at once, and then so many a second: below what a relay allows by default.
    static constexpr double burst = 200;
    static constexpr double linesPerSecond = 80;
    /// Lines on their way without an answer; more wait.
    static constexpr std::size_t mostUnproved = 256;
    /// Longer than it takes to notice that a link is dead.
    static constexpr Seconds proofPatience = 60;

    /// All must outlive it but the handlers.
    Outbox(Kit& kit, MainLoop& loop, Drain drain, Handlers handlers);

    /// @param line  not of the kind `nothing`
    void add(TypedLine line);

    /// Sends nothing more.
    void stop() { isStopped = true; }

    bool isReady() const;

    /// Lines that have not gone out, and their bytes.
    std::size_t waiting() const { return queue.size(); }
    std::size_t waitingBytes() const { return queuedBytes; }
    /// Lines that went out and of which nothing is known yet.
    std::size_t unproved() const { return unprovedLines; }
    /// Lines of which nothing will be known any more.
    std::size_t doubtful() const { return doubtfulLines; }
    /// Answers of the server to commands that are still to come, at most.
    std::size_t awaitedAnswers() const { return answers; }

private:
    struct Entry {
        TypedLine line;
        std::optional<Addressee> addressee;  // of a direct message, once it is decided
    };

    void happened(const Event& event);
    void linkEnded();
    bool decide(Entry& entry);
    void pumpSoon();
    void pump();
    void say(const Entry& entry);
    void askForProof();
    void proofCame(std::size_t lines, bool isProved);
    void refill();
    void refuse(const TypedLine& line, const std::string& reason);

    Kit& kit;
    MainLoop& loop;
    const Drain drain;
    const Handlers handlers;
    bool isStopped = false;
    bool isListed = false;  // the list came over the present link, and the user is on it
    bool isPumpPosted = false;
    std::deque<Entry> queue;
    std::size_t queuedBytes = 0;
    std::size_t unprovedLines = 0;
    std::size_t doubtfulLines = 0;
    std::size_t answers = 0;
    bool isProofAsked = false;
    double allowance = burst;
    Date refilled;
    std::unique_ptr<Timer> paceTimer;
};
