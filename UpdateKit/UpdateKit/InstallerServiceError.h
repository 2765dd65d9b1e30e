#pragma once

#include <exception>
#include <string>
#include <string_view>

/// Why the installer service did not install, in the words of its reply.
class [[nodiscard]] InstallerServiceError : public std::exception {
public:
    enum class Code {
        missingAppBundle,          // a path
        missingExecutable,         // a path
        processTerminationFailed,  // a reason
        userActionRequired,        // the whole text, for the user
        replacementFailed,         // a reason
        relaunchFailed,            // a reason
        signatureMismatch,         // nothing
        processDidNotExit          // nothing
    };

    /// @param payload  what the code's comment says
    explicit InstallerServiceError(Code code, std::string_view payload = {});

    Code code() const { return _code; }
    bool shouldPresentToUser() const { return _code == Code::userActionRequired; }
    const char* what() const noexcept override { return text.c_str(); }

private:
    Code _code;
    std::string text;
};
