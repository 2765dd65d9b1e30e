#include "PlatformCore/MemoryFolder.h"

#include "TestSupport/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

TEST(MemoryFolderTest, LiesInMemoryForItsOwnerAloneAndGoesWithItsContents) {
    fs::path place;
    {
        const MemoryFolder folder({"/dev/shm"});
        place = folder.path();
        struct statfs system {};
        ASSERT_EQ(::statfs(place.c_str(), &system), 0);
        EXPECT_EQ(system.f_type, TMPFS_MAGIC);
        struct stat status {};
        ASSERT_EQ(::stat(place.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0700u);
        std::ofstream(place / "file") << "text";
    }
    EXPECT_FALSE(fs::exists(place));
}

TEST(MemoryFolderTest, PlacesThatAreOnADiskOrMissingArePassedOver) {
    // "/proc" is not on a disk either, but no folder can be made there.
    const MemoryFolder folder({"/proc", "/nowhere", fs::current_path().root_path(), "/dev/shm"});
    EXPECT_EQ(folder.path().parent_path(), "/dev/shm");
}

TEST(MemoryFolderTest, WithoutAPlaceInMemoryThereIsNone) {
    EXPECT_THROW(MemoryFolder(std::vector<fs::path>{}), MemoryFolderError);
    EXPECT_THROW(MemoryFolder({"/proc", "/nowhere"}), MemoryFolderError);
}

}  // namespace
