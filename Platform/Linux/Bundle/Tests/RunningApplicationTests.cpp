#include "PlatformBundle/RunningApplication.h"

#include <gtest/gtest.h>

namespace {

TEST(RunningApplicationTest, AProgramInABundleBelongsToIt) {
    EXPECT_EQ(applicationOf("/opt/My Vimble.app/Contents/Linux/Vimble"), "/opt/My Vimble.app");
}

TEST(RunningApplicationTest, AProgramElsewhereHasItsFolder) {
    EXPECT_EQ(applicationOf("/usr/bin/vimble"), "/usr/bin");
    EXPECT_EQ(applicationOf("/x/Contents/Linux/vimble"), "/x/Contents/Linux");
    EXPECT_EQ(applicationOf("/x/A.app/Contents/Services/vimble"), "/x/A.app/Contents/Services");
    EXPECT_EQ(applicationOf("/vimble"), "/");
}

TEST(RunningApplicationTest, ThisProgramIsInNoBundle) {
    EXPECT_EQ(runningApplication(), std::filesystem::canonical("/proc/self/exe").parent_path());
}

}  // namespace
