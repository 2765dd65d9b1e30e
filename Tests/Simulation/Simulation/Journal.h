#pragma once

#include "StateKit/MainLoop.h"

#include <optional>
#include <ostream>
#include <string>

/// What a simulation reports: a line for each event, if there is a trace, and the first broken promise.
class Journal {
public:
    /// @param trace  where the lines go; null: nowhere
    Journal(const MainLoop& loop, std::ostream* trace) : loop(loop), started(loop.now()), trace(trace) {}

    /// @param build  returns the line; called only if there is a trace
    template <class Build>
    void line(Build&& build) const {
        if (trace) write(build());
    }

    /// Notes that a promise was broken. Only the first one counts, since it may have caused the others.
    void fail(const std::string& reason);
    const std::optional<std::string>& failure() const { return firstFailure; }

private:
    void write(const std::string& text) const;

    const MainLoop& loop;
    Date started;
    std::ostream* trace;
    std::optional<std::string> firstFailure;
};
