#pragma once

#include <string_view>

/// Where a terminal session writes, and whom it tells when it is done. Main thread only.
///
/// No operation may call back into the session: what it has to say comes at a later turn of the loop.
class TerminalOutput {
public:
    virtual ~TerminalOutput() = default;

    /// One line for standard output, without its end; flushed before this returns.
    virtual void line(std::string_view text) = 0;

    /// One line for standard error, likewise.
    virtual void note(std::string_view text) = 0;

    /// Whether more input is wanted now. It is at first.
    virtual void setReading(bool isReading) = 0;

    /// The session is over, its state saved as far as that was possible. Once.
    virtual void end(int exitStatus) = 0;
};
