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
/// It writes what the engine reports (`TerminalPrinter`), takes typed lines (`TypedLine`) and sends them
/// when there is a link (`Outbox`). It ends
///
/// - at the end of input: once all lines are proved to have arrived and the server has answered the
///   commands (3 seconds at most for that), or 30 seconds later;
/// - when it is interrupted: once the lines that were sent are proved to have arrived, or 2 seconds later, and
///   at once when it is interrupted again;
/// - when nobody reads its output any more: as when it is interrupted;
/// - when the server refuses the user's key, since nothing can be sent then; but an interactive session
///   waits for Enter, and tries again.
///
/// At the end it saves the state, with the wish to be connected. The exit status is 1 if a line was
/// not sent, may not have arrived, or was refused, if the server refused the key, or if the state
/// could not be saved.
///
/// Main thread only. The kit, the loop and the output must outlive it.
class TerminalSession : public SignalTarget {
public:
    static constexpr Seconds flushPatience = 30;
    static constexpr Seconds answerPatience = 3;
    static constexpr Seconds interruptPatience = 2;
    /// While more bytes than this wait to be sent, no more input is read.
    static constexpr std::size_t mostWaitingBytes = 16 << 20;

    struct Settings {
        OutputForm form = OutputForm::plain;
        std::optional<std::string> version;  // of the bundle
        bool isInteractive = false;          // whether the input is a terminal
    };

    TerminalSession(Kit& kit, MainLoop& loop, TerminalOutput& output, Outbox::Drain drain, Settings settings);

    /// Writes the banner and connects. Call it once, after a server was chosen.
    void start();

    /// Takes bytes of input.
    void read(std::string_view bytes);
    void inputEnded();
    void interrupted();
    void outputClosed();

    /// Tells the user that something went wrong below the engine. @param text  one line
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
    bool isWaitingTold = false;  // whether the user was told that lines wait for the link
    std::size_t refusedLines = 0;
    std::unique_ptr<Timer> patience;
    std::unique_ptr<Timer> answers;
};
