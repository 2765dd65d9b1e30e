#include "StateKit/LargeBuffer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

namespace {

TEST(LargeBufferTest, AllOfABufferOfAnySizeCanBeWritten) {
    for (const std::size_t size : {std::size_t(0), std::size_t(1), std::size_t(4) << 20, (std::size_t(5) << 20) + 1}) {
        const LargeBuffer buffer(size);
        EXPECT_EQ(buffer.size(), size);
        ASSERT_NE(buffer.data(), nullptr);
        std::memset(buffer.data(), 7, size);
        if (size == 0) continue;
        EXPECT_EQ(buffer.data()[size - 1], 7);
    }
}

TEST(LargeBufferTest, AMovedBufferTakesItsContentsAlong) {
    LargeBuffer first(3);
    std::memcpy(first.data(), "abc", 3);
    LargeBuffer second(std::move(first));
    LargeBuffer third;
    third = std::move(second);
    ASSERT_EQ(third.size(), 3u);
    EXPECT_EQ(std::memcmp(third.data(), "abc", 3), 0);
}

}  // namespace
