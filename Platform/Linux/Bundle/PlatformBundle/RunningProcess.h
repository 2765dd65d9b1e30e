#pragma once

#include "Base/FileDescriptor.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// How a process had been started, so that another can be started likewise.
struct LaunchContext {
    std::filesystem::path executable;      // as the kernel knows it: absolute, without links
    std::vector<std::string> arguments;    // without argument 0
    std::vector<std::string> environment;  // "NAME=value" each
    std::filesystem::path workingFolder;
};

/// A process of this machine. Once opened, it is never confused with a later one that got its number.
class RunningProcess {
public:
    /// @return nothing if it does not run (any more); one that has ended and was not waited for does not run
    /// @throws std::system_error  no number of a process, or a kernel before 5.3
    static std::optional<RunningProcess> open(pid_t number);

    bool isRunning() const;

    /// Blocks until it has ended, or `atMost` is over. @return whether it has ended
    bool waitForEnd(std::chrono::milliseconds atMost) const;

    /// @param number  of the signal; 0 only asks whether the process may be signalled
    /// @return false if it has ended
    /// @throws std::system_error  not allowed
    bool signal(int number) const;

    /// @return nothing if it has ended meanwhile
    /// @throws std::system_error  not allowed, or its arguments are longer than 8 MiB
    std::optional<LaunchContext> launchContext() const;

private:
    RunningProcess(pid_t number, FileDescriptor handle) : number(number), handle(std::move(handle)) {}

    pid_t number;
    FileDescriptor handle;
};

/// Whether a process of that number runs, ours or not. Asks the system each time. A process that has ended and was
/// not waited for does not run.
bool isProcessRunning(pid_t number);
