#pragma once

#include "UpdateKit/ProcessRunner.h"

#include <chrono>
#include <cstddef>
#include <stop_token>
#include <utility>

/// Runs a tool with an empty input, and with one pipe for its output and errors, which is read while the tool runs
/// so that it never waits for us.
///
/// A tool that prints more than `maxOutput`, or takes longer than the time-out, is killed, and that is an error:
/// half an answer could be another answer. A tool that is called off is killed at once, which is an error too.
class PosixProcessLauncher : public ProcessLauncher {
public:
    static constexpr std::size_t maxOutput = std::size_t(1) << 20;  // bytes

    /// @param stop  calls off the tool that runs, and every later one
    explicit PosixProcessLauncher(std::chrono::milliseconds timeout = std::chrono::minutes(10),
                                  std::stop_token stop = {})
        : timeout(timeout), stop(std::move(stop)) {}

    /// @throws std::system_error
    ProcessResult launch(const std::filesystem::path& executable, const std::vector<std::string>& arguments) override;

private:
    std::chrono::milliseconds timeout;
    std::stop_token stop;
};
