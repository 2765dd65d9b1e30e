#pragma once

#include "StateKit/MainLoop.h"

#include <optional>
#include <ostream>
#include <string>

/// What a simulation has to tell: a line for each thing that happens, where somebody reads them, and
/// the first thing that must not have happened.
class Journal {
public:
    /// @param trace  where the lines go; null for nowhere
    Journal(const MainLoop& loop, std::ostream* trace) : loop(loop), started(loop.now()), trace(trace) {}

    /// @param build  yields the line; only called when somebody reads it
    template <class Build>
    void line(Build&& build) const {
        if (trace) write(build());
    }

    /// Notes that a promise was broken. The first one counts: what follows may follow from it.
    void fail(const std::string& reason);
    const std::optional<std::string>& failure() const { return firstFailure; }

private:
    void write(const std::string& text) const;

    const MainLoop& loop;
    Date started;
    std::ostream* trace;
    std::optional<std::string> firstFailure;
};
