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

/// The lines that the user has typed and that were not sent yet, in the order in which they were typed.
///
/// A line waits until the link is up and the server's list, with the user on it, has come over that
/// link: before that the engine would drop the line, or seal it for nobody. Lines are sent at a pace below the
/// relay's limit. The network is asked again and again whether the lines that were sent have arrived. Lines
/// whose link died before the answer are counted as doubtful; they are not sent again, since most of them
/// have arrived and would be read twice.
///
/// The addressee of a direct message is found when the line is typed, or if the user is not listed yet, as soon as
/// they are. So the names count that are on the screen while the user types, and not who takes a name later.
///
/// Main thread only. Destroying it drops the lines that wait.
class Outbox : public SignalTarget {
public:
    /// Asks the network whether the other end of the link has read everything that was sent before.
    /// @param done  called once, never inside the call: false if the link died, or `atMost` has passed
    using Drain = std::function<void(Seconds atMost, std::function<void(bool)> done)>;

    struct Handlers {
        /// A text was sent; to the room if `target` is empty.
        std::function<void(const std::string& target, const std::string& text)> sent;
        std::function<void(const std::string& command)> sentCommand;
        /// A line will never be sent.
        std::function<void(const std::string& typed, const std::string& reason)> refused;
        /// So many lines were sent, but the link died before the network said that they arrived.
        std::function<void(std::size_t lines)> doubted;
        /// One of this class's counts may have changed.
        std::function<void()> changed;
    };

    /// At most `burst` lines are sent at once, and then `linesPerSecond`: less than a relay allows by default.
    static constexpr double burst = 200;
    static constexpr double linesPerSecond = 80;
    /// The most lines that are sent but not proved to have arrived; further lines wait.
    static constexpr std::size_t mostUnproved = 256;
    /// The longest wait for a proof: longer than it takes to notice that a link is dead.
    static constexpr Seconds proofPatience = 60;

    /// `kit`, `loop`, and the network that `drain` asks must outlive this object.
    Outbox(Kit& kit, MainLoop& loop, Drain drain, Handlers handlers);

    /// @param line  not of the kind `nothing`
    void add(TypedLine line);

    /// Sends nothing more.
    void stop() { isStopped = true; }

    bool isReady() const;

    /// The number of lines that were not sent yet, and of their bytes.
    std::size_t waiting() const { return queue.size(); }
    std::size_t waitingBytes() const { return queuedBytes; }
    /// The number of lines that were sent, and for which the proof that they arrived is still awaited.
    std::size_t unproved() const { return unprovedLines; }
    /// The number of lines that were sent, and for which no proof will ever come.
    std::size_t doubtful() const { return doubtfulLines; }
    /// The most answers to commands that the server may still send.
    std::size_t awaitedAnswers() const { return answers; }

private:
    struct Entry {
        TypedLine line;
        std::optional<Addressee> addressee;  // of a direct message, once it is known
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
