#include "UpdateKit/InstallerClientError.h"

#include <utility>

InstallerClientError::InstallerClientError(Code code, std::string payload, bool shouldPresentToUser)
    : _code(code), _payload(std::move(payload)), _shouldPresentToUser(shouldPresentToUser) {
    text = code == Code::connectionFailed ? "Installation failed: " + _payload : _payload;
}

InstallerClientError InstallerClientError::connectionFailed(const std::string& reason) {
    return {Code::connectionFailed, reason, false};
}

InstallerClientError InstallerClientError::installationFailed(const std::string& message, bool shouldPresentToUser) {
    return {Code::installationFailed, message, shouldPresentToUser};
}
