#pragma once

#include "StateKit/MainLoop.h"
#include "StateKit/SignalTarget.h"
#include "TerminalKit/TerminalOutput.h"

#include <QSocketNotifier>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

/// Opens /dev/null in the place of those of the three standard streams that are closed, so that no file
/// of the program ever takes their number. Before anything else.
void claimStandardStreams();

/// One line to standard error, with the program's name in front.
void complain(std::string_view text);

/// Reads standard input, whatever it is (a terminal, a pipe, a file), without holding the loop.
///
/// Main thread only, after the `QCoreApplication`. The handlers are called by the loop.
class StandardInput {
public:
    struct Handlers {
        std::function<void(std::string_view bytes)> read;
        std::function<void()> ended;  // once; nothing more is read
    };

    explicit StandardInput(Handlers handlers);
    void setReading(bool isReading);

private:
    void canRead();

    Handlers handlers;
    std::unique_ptr<QSocketNotifier> notifier;  // gone after the end
};

/// Writes a session's lines to the standard streams.
///
/// A write waits for a slow reader; a signal that asks the program to end frees it. Once standard
/// output can't be written to, lines for it are dropped. Main thread only.
class StandardOutput : public TerminalOutput, public SignalTarget {
public:
    /// What the session asks for beside lines. All are called by the loop, at a turn of their own, but
    /// `setReading`.
    struct Handlers {
        std::function<void()> closed;  // standard output can't be written to; once
        std::function<void(bool isReading)> setReading;
        std::function<void(int exitStatus)> ended;
    };

    explicit StandardOutput(MainLoop& loop) : loop(loop) {}
    void setHandlers(Handlers newHandlers) { handlers = std::move(newHandlers); }

    void line(std::string_view text) override;
    void note(std::string_view text) override { complain(text); }
    void setReading(bool isReading) override;
    void end(int exitStatus) override;

    /// Whether all lines went out.
    bool isGood() const { return !isClosed; }

private:
    MainLoop& loop;
    Handlers handlers;
    bool isClosed = false;
};
