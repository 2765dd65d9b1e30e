#pragma once

#include "StateKit/MainLoop.h"
#include "TerminalKit/InputLines.h"
#include "TerminalKit/Outbox.h"
#include "TerminalKit/TerminalOutput.h"
#include "TerminalKit/TerminalPrinter.h"
#include "VimbleKit/Kit.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// The terminal client between its standard streams and the engine.
///
/// It writes what the engine tells (`TerminalPrinter`), takes typed lines (`TypedLine`) and hands them
/// to the network when there is one (`Outbox`). It ends
///
/// - at the end of input: once everything that was said is proved to have arrived and the server has
///   answered the commands (3 seconds at most for that), or 30 seconds later;
/// - when it is interrupted: once what has gone out is proved to have arrived, or 2 seconds later, and
///   at once when it is interrupted again;
/// - when nobody reads its output: likewise;
/// - when the server refuses the user's key, since nothing can be said any more; but where somebody
///   sits at a keyboard it waits for Enter, and tries again.
///
/// At the end it saves the state, still wishing to be connected. The exit status is 1 if a line was
/// not sent, may not have arrived, or was refused, if the server refused the key, or if the state
/// could not be saved.
///
/// Main thread only. The kit, the loop and the output must outlive it.
class TerminalSession : public SignalTarget {
public:
    static constexpr Seconds flushPatience = 30;
    static constexpr Seconds answerPatience = 3;
    static constexpr Seconds interruptPatience = 2;
    /// With more bytes than this waiting, no more input is read until some have gone out.
    static constexpr std::size_t mostWaitingBytes = 16 << 20;

    struct Settings {
        OutputForm form = OutputForm::plain;
        std::optional<std::string> version;  // of the bundle
        bool isInteractive = false;          // somebody sits at a keyboard
    };

    TerminalSession(Kit& kit, MainLoop& loop, TerminalOutput& output, Outbox::Drain drain, Settings settings);

    /// Writes the banner and connects. Once, with a server chosen.
    void start();

    /// Bytes of input.
    void read(std::string_view bytes);
    void inputEnded();
    void interrupted();
    void outputClosed();

    /// Something went wrong below the engine: one line.
    void trouble(std::string_view text);

private:
    enum class Ending { none, flushing, hurrying, over };

    void typed(const std::string& line);
    void happened(const Event& event);
    void keyRefused();
    void notSent(std::string_view line, const std::string& reason);
    void tellOfWaiting();
    void outboxChanged();
    void hurry();
    void finishSoon();
    void finish();
    std::string account() const;

    Kit& kit;
    MainLoop& loop;
    TerminalOutput& output;
    const Settings settings;
    TerminalPrinter printer;
    Outbox outbox;
    InputLines input;
    Ending ending = Ending::none;
    bool isKeyRefused = false;
    bool isReading = true;
    bool isWaitingTold = false;  // for the present lack of a link
    std::size_t refusedLines = 0;
    std::unique_ptr<Timer> patience;
    std::unique_ptr<Timer> answers;
};
