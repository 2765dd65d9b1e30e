#pragma once

#include "TerminalKit/TerminalOutput.h"
#include "VimbleKit/Kit.h"

#include <cstddef>
#include <optional>
#include <string>

/// How the terminal client writes what happens.
enum class OutputForm { plain, json };

/// Writes what the engine reports, in the order in which it comes: first the banner and the session state
/// `startup`, then traffic, session states and events.
///
/// Plain lines are those of the console. A line is escaped as a whole, since any part of it may have been
/// written by somebody else: control characters and those that change the writing direction become "\n",
/// "\u{202e}" and so on, and every backslash is doubled.
///
/// Main thread only. The kit and the output must outlive the printer.
class TerminalPrinter : public SignalTarget {
public:
    TerminalPrinter(Kit& kit, TerminalOutput& output, OutputForm form);

    /// Writes the banner and begins to observe. Call it once. @param version  of the bundle
    void start(const std::optional<std::string>& version);

    /// Write what the engine does not report to observers. Only the JSON form has lines for it.
    void sent(const std::string& target, const std::string& text, Date when);
    void sentCommand(const std::string& command, Date when);
    void notSent(std::string_view typed, std::string_view reason);

    /// Writes nothing from now on.
    void stop() { isStopped = true; }

private:
    void write(const std::optional<std::string>& line);
    void stateChanged(const State& state);
    void happened(const Event& event);

    Kit& kit;
    TerminalOutput& output;
    const OutputForm form;
    bool isStopped = false;
    std::size_t roomSize = 0;   // the number of messages in the room at the last change of state
    bool hasRoomGrown = false;  // at the last change of state; tells a text for the room from a direct one
};
