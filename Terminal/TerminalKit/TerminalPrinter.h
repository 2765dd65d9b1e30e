#pragma once

#include "TerminalKit/TerminalOutput.h"
#include "VimbleKit/Kit.h"

#include <cstddef>
#include <optional>
#include <string>

/// How the terminal client writes what happens.
enum class OutputForm { plain, json };

/// Writes what the session tells, each line in the order in which it comes: the banner, the state of the
/// session before its first word, then traffic, session states and events.
///
/// Plain lines are those of the console. They are escaped as a whole, since nobody can tell afterwards
/// which part of a line somebody else wrote: control characters and those that turn the writing
/// direction become "\n", "\u{202e}" and so on, and every backslash is doubled.
///
/// Main thread only. The kit and the output must outlive it.
class TerminalPrinter : public SignalTarget {
public:
    TerminalPrinter(Kit& kit, TerminalOutput& output, OutputForm form);

    /// Writes the banner and begins to observe. Once. @param version  of the bundle
    void start(const std::optional<std::string>& version);

    /// What the observers are not told of: only JSON has lines for it.
    void sent(const std::string& target, const std::string& text, Date when);
    void sentCommand(const std::string& command, Date when);
    void notSent(std::string_view typed, std::string_view reason);

    /// Nothing is written any more.
    void stop() { isStopped = true; }

private:
    void write(const std::optional<std::string>& line);
    void stateChanged(const State& state);
    void happened(const Event& event);

    Kit& kit;
    TerminalOutput& output;
    const OutputForm form;
    bool isStopped = false;
    std::size_t roomSize = 0;   // messages in the room, at the last change of the state
    bool hasRoomGrown = false;  // with the last change: how a text for the room is told from a direct one
};
