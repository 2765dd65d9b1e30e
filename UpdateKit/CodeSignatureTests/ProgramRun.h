#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// A program that was run to its end.
struct ProgramRun {
    int status = -1;     // 128 and the number if a signal ended it
    std::string output;  // what is typed on a terminal is shown among it
    std::string errors;  // with a terminal: empty, since both go there

    /// Without a terminal, an empty standard input.
    /// @param user  whom to run it as; absent: as the test
    static ProgramRun of(const std::vector<std::string>& command, std::optional<uid_t> user = {});
    /// On a terminal of its own, where a line is typed at each prompt for a passphrase.
    static ProgramRun onTerminal(const std::vector<std::string>& command, const std::string& passphrase,
                                 const std::string& folder = {});

    bool hasLine(const std::string& line) const;
    /// The lines that begin so, without that beginning.
    std::vector<std::string> values(const std::string& beginning) const;
};

/// The real program.
ProgramRun codesign(std::vector<std::string> arguments);
