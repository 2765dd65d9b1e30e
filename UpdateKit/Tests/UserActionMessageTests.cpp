#include "UpdateKit/UserActionMessage.h"

#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <stdexcept>
#include <system_error>

namespace {

constexpr const char* place =
    "UpdateKit couldn't replace the app in its current location. Move it to a writable location such as "
    "/Applications or your home folder, then try again.";
constexpr const char* space =
    "There isn't enough free disk space to install the update. Free up some space, then try again.";

std::system_error systemError(int code) { return std::system_error(code, std::system_category(), "rename"); }

/// One error inside another.
template <class Outer, class Inner>
std::optional<std::string> messageOfNested(const Outer& outer, const Inner& inner) {
    try {
        try {
            throw inner;
        } catch (...) {
            std::throw_with_nested(outer);
        }
    } catch (const std::exception& error) {
        return userActionMessage(error);
    }
}

TEST(UserActionMessageTest, MissingPermissionAsksForAnotherPlace) {
    for (const int code : {EACCES, EPERM, EROFS}) {
        EXPECT_EQ(userActionMessage(systemError(code)), place) << code;
        EXPECT_EQ(userActionMessage(std::system_error(code, std::generic_category())), place) << code;
    }
    EXPECT_EQ(userActionMessage(
                  std::filesystem::filesystem_error("x", std::make_error_code(std::errc::read_only_file_system))),
              place);
}

TEST(UserActionMessageTest, AFullDiskAsksForSpace) {
    EXPECT_EQ(userActionMessage(systemError(ENOSPC)), space);
    EXPECT_EQ(userActionMessage(systemError(EDQUOT)), space);
}

TEST(UserActionMessageTest, OtherErrorsGiveNoMessage) {
    for (const int code : {ENOENT, EIO, EXDEV, EBUSY, ENOTEMPTY})
        EXPECT_EQ(userActionMessage(systemError(code)), std::nullopt) << code;
    EXPECT_EQ(userActionMessage(std::runtime_error("Permission denied")), std::nullopt);
}

TEST(UserActionMessageTest, TheErrorInsideIsAskedFirst) {
    EXPECT_EQ(messageOfNested(std::runtime_error("move"), systemError(ENOSPC)), space);
    EXPECT_EQ(messageOfNested(systemError(EACCES), systemError(ENOSPC)), space);
    EXPECT_EQ(messageOfNested(systemError(EACCES), std::runtime_error("inside")), place);
    EXPECT_EQ(messageOfNested(systemError(EIO), systemError(EIO)), std::nullopt);
    EXPECT_EQ(messageOfNested(systemError(ENOSPC), 7), space);
}

}  // namespace
