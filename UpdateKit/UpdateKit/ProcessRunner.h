#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

/// What a tool returned.
struct ProcessResult {
    int status = 0;      // 0: it did what was asked. If a signal ended it: 128 and the signal's number
    std::string output;  // its standard output and error, in the order of writing, as bytes

    bool operator==(const ProcessResult&) const = default;
};

/// Starts tools of this machine. May be called on any thread; blocks until the tool has ended.
class ProcessLauncher {
public:
    virtual ~ProcessLauncher() = default;

    /// @throws std::exception  the tool could not be started, or was stopped since it printed or took too much
    [[nodiscard]] virtual ProcessResult launch(const std::filesystem::path& executable,
                                               const std::vector<std::string>& arguments) = 0;
};

/// A tool that ended with a status other than 0. Its text is what the tool printed.
class [[nodiscard]] ProcessError : public std::runtime_error {
public:
    ProcessError(std::string domain, int code, const std::string& output)
        : std::runtime_error(output), domain(std::move(domain)), code(code) {}

    std::string domain;  // who ran it, such as "UpdateKit.Process"
    int code;            // the tool's status
};

/// The domains of our own processes: a `ProcessError` names the one that has run the tool.
namespace ProcessDomain {
inline constexpr const char* application = "UpdateKit.Process";
inline constexpr const char* installer = "UpdateKitInstaller.Process";
}  // namespace ProcessDomain

enum class OnFailure { raise, ignore };

/// Runs a tool to its end.
/// @param domain  goes into the error
/// @return what the tool printed; empty if that is not UTF-8
/// @throws ProcessError  the tool's status was not 0, unless `onFailure` says to ignore that
/// @throws std::exception  what the launcher throws
std::string runProcess(ProcessLauncher& launcher, const std::filesystem::path& executable,
                       const std::vector<std::string>& arguments, OnFailure onFailure, const std::string& domain);
