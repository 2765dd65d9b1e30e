#include "Base/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <type_traits>
#include <unistd.h>
#include <utility>

namespace {

int openNumber() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }

bool isOpen(int number) { return ::fcntl(number, F_GETFD) >= 0; }

static_assert(!std::is_copy_constructible_v<FileDescriptor> && !std::is_copy_assignable_v<FileDescriptor>);
static_assert(std::is_nothrow_move_constructible_v<FileDescriptor>);

TEST(FileDescriptorTest, ADescriptorIsClosedWithItsOwner) {
    const int number = openNumber();
    ASSERT_GE(number, 0);
    {
        const FileDescriptor owner(number);
        EXPECT_TRUE(owner);
        EXPECT_EQ(owner.get(), number);
        EXPECT_TRUE(isOpen(number));
    }
    EXPECT_FALSE(isOpen(number));
}

TEST(FileDescriptorTest, ANegativeNumberIsNoneAndLeavesTheErrorAlone) {
    errno = ENOENT;
    {
        const FileDescriptor none;
        const FileDescriptor failed(-1);
        EXPECT_FALSE(none);
        EXPECT_FALSE(failed);
        EXPECT_LT(failed.get(), 0);
    }
    EXPECT_EQ(errno, ENOENT);
}

TEST(FileDescriptorTest, MovingLeavesOneOwner) {
    const int number = openNumber();
    FileDescriptor first(number);
    FileDescriptor second(std::move(first));
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(second.get(), number);
    first = std::move(second);
    EXPECT_EQ(first.get(), number);
    EXPECT_FALSE(second);  // NOLINT(bugprone-use-after-move)
    EXPECT_TRUE(isOpen(number));
}

TEST(FileDescriptorTest, AssigningClosesTheOldOneAtOnce) {
    const int old = openNumber();
    const int number = openNumber();
    FileDescriptor owner(old);
    FileDescriptor next(number);
    owner = std::move(next);
    EXPECT_FALSE(isOpen(old));
    EXPECT_EQ(owner.get(), number);
    EXPECT_TRUE(isOpen(number));
}

TEST(FileDescriptorTest, MovingToItselfKeepsIt) {
    const int number = openNumber();
    FileDescriptor owner(number);
    FileDescriptor& same = owner;
    owner = std::move(same);
    EXPECT_EQ(owner.get(), number);
    EXPECT_TRUE(isOpen(number));
}

TEST(FileDescriptorTest, AReleasedOneIsTheCallersToClose) {
    const int number = openNumber();
    {
        FileDescriptor owner(number);
        EXPECT_EQ(owner.release(), number);
        EXPECT_FALSE(owner);
    }
    EXPECT_TRUE(isOpen(number));
    ::close(number);
}

TEST(FileDescriptorTest, ClosingEarlyTellsOfAnErrorAndClosesOnce) {
    const int number = openNumber();
    FileDescriptor owner(number);
    EXPECT_TRUE(owner.close());
    EXPECT_FALSE(owner);
    EXPECT_FALSE(isOpen(number));
    EXPECT_FALSE(owner.close());
    EXPECT_EQ(errno, EBADF);
}

TEST(FileDescriptorTest, ResettingClosesOnce) {
    const int number = openNumber();
    FileDescriptor owner(number);
    owner.reset();
    EXPECT_FALSE(owner);
    EXPECT_FALSE(isOpen(number));
    owner.reset();
    EXPECT_FALSE(owner);
}

}  // namespace
