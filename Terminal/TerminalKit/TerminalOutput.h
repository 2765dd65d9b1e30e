#pragma once

#include <string_view>

/// A terminal session writes here, and tells here when it is over. Main thread only.
///
/// No operation may call back into the session, except in a later turn of the loop.
class TerminalOutput {
public:
    virtual ~TerminalOutput() = default;

    /// Writes one line to standard output; `text` is without the line end. The line is flushed before this returns.
    virtual void line(std::string_view text) = 0;

    /// Writes one line to standard error in the same way.
    virtual void note(std::string_view text) = 0;

    /// Sets whether the session wants more input now. At first it does.
    virtual void setReading(bool isReading) = 0;

    /// Called once, when the session is over and has saved the state, or failed to.
    virtual void end(int exitStatus) = 0;
};
