#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// A program to be started, with no open files but its input, output and errors.
struct SpawnRequest {
    std::filesystem::path executable;                     // also its argument 0
    std::vector<std::string> arguments;                   // from argument 1 on
    std::optional<std::vector<std::string>> environment;  // "NAME=value" each; nothing: this process's own
    std::optional<std::filesystem::path> workingFolder;   // nothing: this process's own
    std::optional<int> input;                             // a file to read; nothing: an empty input
    std::optional<int> output;                            // a file for output and errors; nothing: this process's
    bool keepsErrors = false;                             // errors go to this process's, whatever `output` is
    bool hasOwnSession = false;                           // it outlives terminal and session of this process
};

/// Starts a program, with no signal blocked or ignored. The caller has to wait for its end.
/// @throws std::system_error  there is no such program, or it can't be started
pid_t spawn(const SpawnRequest& request);
