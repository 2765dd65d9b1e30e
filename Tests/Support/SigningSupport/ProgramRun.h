#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// A program that was run to its end.
struct ProgramRun {
    int status = -1;     // 128 plus the signal's number if a signal ended it
    std::string output;  // with a terminal: includes what the terminal echoes
    std::string errors;  // with a terminal: empty, since both go there

    /// Runs a program without a terminal, on an empty standard input.
    /// @param user  the user to run it as; absent: the test's own
    static ProgramRun of(const std::vector<std::string>& command, std::optional<uid_t> user = {});
    /// Runs a program on a terminal of its own, and types the passphrase at each prompt for one.
    /// @param folder  the program's current folder; empty: the test's own
    static ProgramRun onTerminal(const std::vector<std::string>& command, const std::string& passphrase,
                                 const std::string& folder = {});

    bool hasLine(const std::string& line) const;
    /// The lines that begin with this text, without it.
    std::vector<std::string> values(const std::string& beginning) const;
};

/// Runs the real `vimble-codesign`.
ProgramRun codesign(std::vector<std::string> arguments);
