#pragma once

#include <exception>
#include <string>

/// Why the application got no answer from the installer service, or a bad one.
class [[nodiscard]] InstallerClientError : public std::exception {
public:
    enum class Code { connectionFailed, installationFailed };

    /// "Installation failed: " and the reason.
    static InstallerClientError connectionFailed(const std::string& reason);
    /// @param message  the whole text, as the service worded it
    static InstallerClientError installationFailed(const std::string& message, bool shouldPresentToUser);

    Code code() const { return _code; }
    /// The reason or the message, as it was given.
    const std::string& payload() const { return _payload; }
    /// Whether the text is worded for the user; false for a failed connection.
    bool shouldPresentToUser() const { return _shouldPresentToUser; }
    const char* what() const noexcept override { return text.c_str(); }

    bool operator==(const InstallerClientError& other) const {
        return _code == other._code && _payload == other._payload && _shouldPresentToUser == other._shouldPresentToUser;
    }

private:
    InstallerClientError(Code code, std::string payload, bool shouldPresentToUser);

    Code _code;
    std::string _payload;
    bool _shouldPresentToUser;
    std::string text;
};
