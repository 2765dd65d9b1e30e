#pragma once

#include "StateKit/MainLoop.h"
#include "StateKit/SignalTarget.h"
#include "TerminalKit/TerminalOutput.h"

#include <QSocketNotifier>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

/// Opens /dev/null for each of the three standard streams that is closed, so that no other file that the
/// program opens gets the stream's number. Call it before anything else.
void claimStandardStreams();

/// Writes one line to standard error, with the program's name in front.
void complain(std::string_view text);

/// Reads standard input (a terminal, a pipe, a file) without blocking the loop.
///
/// Main thread only; make it after the `QCoreApplication`. The loop calls the handlers.
class StandardInput {
public:
    struct Handlers {
        std::function<void(std::string_view bytes)> read;
        std::function<void()> ended;  // called once; nothing is read after it
    };

    explicit StandardInput(Handlers handlers);
    void setReading(bool isReading);

private:
    void canRead();

    Handlers handlers;
    std::unique_ptr<QSocketNotifier> notifier;  // null after the end of input
};

/// Writes a session's lines to the standard streams.
///
/// A write waits for a slow reader, until a signal asks the program to end. When standard output can't be
/// written to any more, further lines are dropped. Main thread only.
class StandardOutput : public TerminalOutput, public SignalTarget {
public:
    /// What happens besides lines. The loop calls these in a turn of their own, except `setReading`, which is
    /// called at once.
    struct Handlers {
        std::function<void()> closed;  // called once, when standard output can't be written to any more
        std::function<void(bool isReading)> setReading;
        std::function<void(int exitStatus)> ended;
    };

    explicit StandardOutput(MainLoop& loop) : loop(loop) {}
    void setHandlers(Handlers newHandlers) { handlers = std::move(newHandlers); }

    void line(std::string_view text) override;
    void note(std::string_view text) override { complain(text); }
    void setReading(bool isReading) override;
    void end(int exitStatus) override;

    /// Whether all lines were written.
    bool isGood() const { return !isClosed; }

private:
    MainLoop& loop;
    Handlers handlers;
    bool isClosed = false;
};
