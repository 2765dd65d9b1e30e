#include "UpdateKit/UserActionMessage.h"

#include <cerrno>
#include <system_error>

namespace {

std::optional<std::string> messageForCode(const std::error_code& code) {
    if (code == std::errc::permission_denied || code == std::errc::operation_not_permitted ||
        code == std::errc::read_only_file_system)
        return "UpdateKit couldn't replace the app in its current location. Move it to a writable location such as "
               "/Applications or your home folder, then try again.";
    // A user's own share of the disk can be full too.
    const bool isQuota = code.value() == EDQUOT &&
                         (code.category() == std::system_category() || code.category() == std::generic_category());
    if (code == std::errc::no_space_on_device || isQuota)
        return "There isn't enough free disk space to install the update. Free up some space, then try again.";
    return std::nullopt;
}

}  // namespace

std::optional<std::string> userActionMessage(const std::exception& error) {
    try {
        std::rethrow_if_nested(error);
    } catch (const std::exception& underlying) {
        if (auto message = userActionMessage(underlying)) return message;
    } catch (...) {
        // A nested error that is no `std::exception` has no code to look at.
    }
    const auto* systemError = dynamic_cast<const std::system_error*>(&error);
    return systemError ? messageForCode(systemError->code()) : std::nullopt;
}
