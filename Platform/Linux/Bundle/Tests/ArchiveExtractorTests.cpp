#include "PlatformBundle/ArchiveExtractor.h"

#include "FlushedFiles.h"
#include "TestBundle.h"
#include "TestSupport/TemporaryFolder.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stop_token>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct Entry {
    std::string name;
    std::string contents;  // of a link: where it leads
    mode_t mode = AE_IFREG | 0644;
};

constexpr mode_t link = AE_IFLNK | 0777;
constexpr mode_t folder = AE_IFDIR | 0755;

class ArchiveExtractorTest : public testing::Test {
protected:
    ArchiveExtractorTest() { std::filesystem::create_directory(destination); }

    void write(const std::vector<Entry>& entries) {
        struct archive* writer = archive_write_new();
        archive_write_set_format_zip(writer);
        archive_write_open_filename(writer, file.c_str());
        for (const auto& each : entries) {
            archive_entry* entry = archive_entry_new();
            archive_entry_set_pathname(entry, each.name.c_str());
            archive_entry_set_mode(entry, each.mode);
            if ((each.mode & AE_IFMT) == AE_IFLNK)
                archive_entry_set_symlink(entry, each.contents.c_str());
            else
                archive_entry_set_size(entry, static_cast<la_int64_t>(each.contents.size()));
            EXPECT_EQ(archive_write_header(writer, entry), ARCHIVE_OK) << archive_error_string(writer);
            if ((each.mode & AE_IFMT) == AE_IFREG)
                archive_write_data(writer, each.contents.data(), each.contents.size());
            archive_entry_free(entry);
        }
        archive_write_close(writer);
        archive_write_free(writer);
    }

    /// Replaces bytes of the archive, to get what no tool would write. The new text must be as long as the old.
    void alter(const std::string& before, const std::string& after) {
        ASSERT_EQ(before.size(), after.size());
        std::string bytes = read(file);
        std::size_t count = 0;
        for (std::size_t at = bytes.find(before); at != bytes.npos; at = bytes.find(before, at + 1), ++count)
            bytes.replace(at, before.size(), after);
        ASSERT_GT(count, 0U);
        std::ofstream(file, std::ios::binary) << bytes;
    }

    /// Gives the file with the permissions 0612 another kind in the archive's directory.
    void alterKind(mode_t type) {
        const auto bytes = [](mode_t mode) {
            return std::string{static_cast<char>(mode & 0xFF), static_cast<char>(mode >> 8)};
        };
        alter(bytes(AE_IFREG | 0612), bytes(type | 0612));
    }

    static std::string read(const std::filesystem::path& path) {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    /// @return why it was refused; empty if it was not
    std::string refusal() {
        std::string why;
        try {
            extractArchive(file, destination, limits);
        } catch (const ExtractionError& error) {
            why = error.what();
            EXPECT_FALSE(why.empty());
            EXPECT_EQ(why.find('\n'), why.npos);
        }
        // Whatever happens, nothing lies beside the destination.
        for (const auto& each : std::filesystem::directory_iterator(temporary.path))
            EXPECT_TRUE(each.path() == file || each.path() == destination) << each.path();
        return why;
    }

    std::string refusalOf(const std::vector<Entry>& entries) {
        std::filesystem::remove_all(destination);
        std::filesystem::create_directory(destination);
        write(entries);
        return refusal();
    }

    TemporaryFolder temporary;
    std::filesystem::path file = temporary.path / "update.zip";
    std::filesystem::path destination = temporary.path / "extracted";
    ExtractionLimits limits;
};

TEST_F(ArchiveExtractorTest, FilesLinksAndPermissionsAreKept) {
    EXPECT_EQ(refusalOf({{"A.app/", "", folder},
                         {"A.app/Contents/Linux/Vimble", "program", AE_IFREG | 0755},
                         {"A.app/Contents/data", std::string("a\0b", 3), AE_IFREG | 0640},
                         {"A.app/Contents/libx.so", "libx.so.1", link},
                         {"A.app/Contents/up", "../Contents/Linux/Vimble", link},
                         {"A.app/Contents/nothing", "not/there", link},
                         {"A.app/Contents/Gr\u00FC\u00DFe \U0001F600", "", AE_IFREG | 0600},
                         {"A.app/private/", "", AE_IFDIR | 0500}}),
              "");
    const auto tree = treeOf(destination);
    const auto expected = [](mode_t mode, const std::string& contents) {
        return std::to_string(mode) + " " + contents;
    };
    EXPECT_EQ(tree.size(), 10U);
    EXPECT_EQ(tree.at("A.app/Contents/Linux/Vimble"), expected(S_IFREG | 0755, "program"));
    EXPECT_EQ(tree.at("A.app/Contents/data"), expected(S_IFREG | 0640, std::string("a\0b", 3)));
    EXPECT_EQ(tree.at("A.app/Contents/libx.so"), expected(S_IFLNK | 0777, "libx.so.1"));
    EXPECT_EQ(tree.at("A.app/Contents/Gr\u00FC\u00DFe \U0001F600"), expected(S_IFREG | 0600, ""));
    EXPECT_EQ(tree.at("A.app/private"), expected(S_IFDIR | 0700, ""));
}

TEST_F(ArchiveExtractorTest, AllOfItIsOnTheDiskAtTheEnd) {
    FlushedFiles::forget();
    EXPECT_EQ(refusalOf({{"A.app/Contents/Linux/Vimble", "program", AE_IFREG | 0755},
                         {"A.app/Contents/data", "data", AE_IFREG | 0444},
                         {"A.app/Contents/up", "../Contents/data", link},
                         {"A.app/empty/", "", folder}}),
              "");
    for (const char* each : {"", "A.app", "A.app/Contents", "A.app/Contents/Linux", "A.app/Contents/Linux/Vimble",
                             "A.app/Contents/data", "A.app/empty"})
        EXPECT_TRUE(FlushedFiles::contain(destination / each)) << each;
}

TEST_F(ArchiveExtractorTest, AMaskOfTheProcessTakesNoPermissionsAway) {
    const mode_t before = ::umask(077);
    EXPECT_EQ(refusalOf({{"a/x", "1", AE_IFREG | 0755}, {"a/", "", folder}}), "");
    ::umask(before);
    EXPECT_EQ(treeOf(destination).at("a/x"), std::to_string(S_IFREG | 0755) + " 1");
    EXPECT_EQ(treeOf(destination).at("a"), std::to_string(S_IFDIR | 0755) + " ");
}

TEST_F(ArchiveExtractorTest, SpecialBitsAreTakenOff) {
    EXPECT_EQ(refusalOf({{"x", "1", AE_IFREG | 06755}, {"d/", "", AE_IFDIR | 07777}}), "");
    EXPECT_EQ(treeOf(destination).at("x"), std::to_string(S_IFREG | 0755) + " 1");
    EXPECT_EQ(treeOf(destination).at("d"), std::to_string(S_IFDIR | 0777) + " ");
}

TEST_F(ArchiveExtractorTest, PathsThatLeadOutsideAreRefused) {
    EXPECT_EQ(refusalOf({{"ok", "1"}, {"../evil", "2"}}), "\"../evil\" leads upwards");
    EXPECT_EQ(refusalOf({{"a/../../evil", "2"}}), "\"a/../../evil\" leads upwards");
    EXPECT_EQ(refusalOf({{"a/../b", "2"}}), "\"a/../b\" leads upwards");
    EXPECT_EQ(refusalOf({{"a/..", "", folder}}), "\"a/../\" leads upwards");
    write({{"Xabsolute/evil", "2"}});
    alter("Xabsolute/evil", "/absolute/evil");
    EXPECT_EQ(refusal(), "\"/absolute/evil\" is an absolute path");
}

TEST_F(ArchiveExtractorTest, LinksThatLeadOutsideAreRefused) {
    EXPECT_EQ(refusalOf({{"l", "/etc", link}}), "\"l\" is a link to an absolute path");
    for (const char* target : {"..", "../x", "a/../../x", "../extracted/a", "./.././x", "../../../../../../etc/passwd"})
        EXPECT_EQ(refusalOf({{"a/f", "1"}, {"l", target, link}}), "\"l\" is a link that leads outside") << target;
    EXPECT_EQ(refusalOf({{"a/l", "../../x", link}}), "\"a/l\" is a link that leads outside");
    EXPECT_EQ(refusalOf({{"a/l", "../x", link}}), "");
    EXPECT_EQ(refusalOf({{"a/l", "..", link}}), "");
}

TEST_F(ArchiveExtractorTest, LinksThatLeadOutsideTogetherAreRefused) {
    // Each looks harmless as a text: "d/../.." goes up from where "d" leads, not from where it lies.
    EXPECT_EQ(refusalOf({{"a/b/c/f", "1"}, {"a/b/c/d", "../../..", link}, {"a/b/l", "c/d/../x", link}}),
              "\"a/b/l\" is a link that leads outside");
    EXPECT_EQ(refusalOf({{"f", "1"}, {"one", ".", link}, {"two", "one/..", link}}),
              "\"two\" is a link that leads outside");
    EXPECT_EQ(refusalOf({{"a", "b", link}, {"b", "a", link}}), "\"a\" is a link that leads in a circle");
}

TEST_F(ArchiveExtractorTest, NothingIsWrittenThroughALink) {
    EXPECT_EQ(refusalOf({{"l", "..", link}, {"l/evil", "2"}}), "\"l/evil\" lies below what is no folder");
    EXPECT_EQ(refusalOf({{"d/f", "1"}, {"l", "d", link}, {"l/x", "2"}}), "\"l/x\" lies below what is no folder");
    EXPECT_EQ(refusalOf({{"l/x", "2"}, {"l", "..", link}}), "\"l\" is there twice");
    EXPECT_EQ(refusalOf({{"l", "d", link}, {"l", "2"}}), "\"l\" is there twice");
    EXPECT_EQ(refusalOf({{"l", "d", link}, {"l/", "", folder}}), "\"l/\" is there twice");
    EXPECT_EQ(refusalOf({{"f", "1"}, {"f/x", "2"}}), "\"f/x\" lies below what is no folder");
}

TEST_F(ArchiveExtractorTest, NamesThatDifferOnlyInCaseAreRefused) {
    EXPECT_EQ(refusalOf({{"A.app/x", "1"}, {"A.app/X", "2"}}), "\"A.app/X\" differs from \"A.app/x\" only in case");
    EXPECT_EQ(refusalOf({{"A.app/x", "1"}, {"a.APP/y", "2"}}), "\"a.APP/y\" differs from \"A.app\" only in case");
    EXPECT_NE(refusalOf({{"\u00C4", "1"}, {"\u00E4", "2"}}), "");
    EXPECT_NE(refusalOf({{"\u00E4", "1"}, {"a\u0308", "2"}}), "");
    EXPECT_EQ(refusalOf({{"x", "1"}, {"x", "2"}}), "\"x\" is there twice");
    EXPECT_EQ(refusalOf({{"d/", "", folder}, {"d/x", "1"}, {"d/", "", folder}}), "");
}

TEST_F(ArchiveExtractorTest, DevicesAndSocketsAreRefused) {
    for (const mode_t type : {AE_IFCHR, AE_IFBLK, AE_IFSOCK}) {
        write({{"odd", "", AE_IFREG | 0612}});
        alterKind(type);
        EXPECT_EQ(refusal(), "\"odd\" is neither a file nor a folder nor a link") << type;
    }
}

TEST_F(ArchiveExtractorTest, APipeBecomesAFile) {
    // Some tools mark what they have read from a pipe like this, and the library takes it for a file.
    write({{"odd", "", AE_IFREG | 0612}});
    alterKind(AE_IFIFO);
    EXPECT_EQ(refusal(), "");
    EXPECT_EQ(treeOf(destination).at("odd"), std::to_string(S_IFREG | 0612) + " ");
}

TEST_F(ArchiveExtractorTest, ABombIsStoppedOnTheWay) {
    const auto bomb = refusalOf({{"zeros", std::string(10'000'000, '\0')}});
    EXPECT_EQ(bomb, "\"zeros\" makes the archive too large unpacked");
    EXPECT_LE(std::filesystem::file_size(destination / "zeros"), 20 * std::filesystem::file_size(file));
    // Many small files count together.
    std::vector<Entry> many;
    for (int i = 0; i < 200; ++i) many.push_back({"f" + std::to_string(i), std::string(100'000, '\0')});
    EXPECT_NE(refusalOf(many).find("makes the archive too large unpacked"), std::string::npos);
}

TEST_F(ArchiveExtractorTest, WhatIsCalledOffEndsAtTheNextPiece) {
    write({{"a", std::string(1'000'000, 'x')}, {"b", "1"}});
    limits.maxRatio = 1'000'000;
    std::stop_source stop;
    stop.request_stop();
    EXPECT_THROW(extractArchive(file, destination, limits, stop.get_token()), ExtractionError);
    EXPECT_TRUE(std::filesystem::is_empty(destination));

    // Then call it off in the midst: as soon as something lies there, far from the end.
    std::vector<Entry> many;
    for (int i = 0; i < 50'000; ++i) many.push_back({"f" + std::to_string(i), "1"});
    write(many);
    std::stop_source later;
    std::thread watcher([&] {
        while (std::filesystem::is_empty(destination)) std::this_thread::yield();
        later.request_stop();
    });
    EXPECT_THROW(extractArchive(file, destination, limits, later.get_token()), ExtractionError);
    watcher.join();
    EXPECT_FALSE(std::filesystem::exists(destination / "f49999"));
}

TEST_F(ArchiveExtractorTest, TheLimitsHoldToTheByte) {
    const std::vector<Entry> entries{{"a", "12345"}, {"b", "67890"}};
    limits.maxBytes = 10;
    EXPECT_EQ(refusalOf(entries), "");
    limits.maxBytes = 9;
    EXPECT_EQ(refusalOf(entries), "\"b\" makes the archive too large unpacked");
    limits = {};
    limits.maxEntries = 2;
    EXPECT_EQ(refusalOf(entries), "");
    limits.maxEntries = 1;
    EXPECT_EQ(refusalOf(entries), "the archive has too many files");
    limits = {};
    limits.maxDepth = 3;
    EXPECT_EQ(refusalOf({{"a/b/c", "1"}}), "");
    EXPECT_EQ(refusalOf({{"a/b/c/d", "1"}}), "\"a/b/c/d\" lies too deep");
}

TEST_F(ArchiveExtractorTest, NamesAreShownWithoutControlCharacters) {
    EXPECT_EQ(refusalOf({{"a\n\u202Eb/../c", "1"}}), "\"a\\n\\u{202e}b/../c\" leads upwards");
}

TEST_F(ArchiveExtractorTest, ADamagedArchiveIsRefused) {
    const std::string contents(5000, 'x');
    write({{"a/b", contents}, {"c", "1"}});
    const std::string whole = read(file);
    for (std::size_t length = 0; length < whole.size(); length += 7) {
        std::ofstream(file, std::ios::binary) << whole.substr(0, length);
        std::filesystem::remove_all(destination);
        std::filesystem::create_directory(destination);
        EXPECT_NE(refusal(), "") << length;
    }
    std::ofstream(file, std::ios::binary) << "<html>Not found</html>";
    EXPECT_NE(refusal(), "");
    std::filesystem::remove(file);
    EXPECT_NE(refusal(), "");
}

TEST_F(ArchiveExtractorTest, ContentsThatDoNotMatchTheirChecksumAreRefused) {
    std::string text;
    for (int i = 0; i < 100; ++i) text += static_cast<char>('!' + i % 90);
    write({{"a", text}});
    std::string bytes = read(file);
    const std::size_t data = 30 + 1 + 40;  // inside the contents, behind the local header
    bytes[data] = static_cast<char>(bytes[data] ^ 0x20);
    std::ofstream(file, std::ios::binary) << bytes;
    EXPECT_NE(refusal(), "");
}

TEST_F(ArchiveExtractorTest, OtherKindsOfArchivesAreRefused) {
    struct archive* writer = archive_write_new();
    archive_write_set_format_pax(writer);
    archive_write_open_filename(writer, file.c_str());
    archive_entry* entry = archive_entry_new();
    archive_entry_set_pathname(entry, "a");
    archive_entry_set_mode(entry, AE_IFREG | 0644);
    archive_entry_set_hardlink(entry, "/etc/passwd");
    archive_write_header(writer, entry);
    archive_entry_free(entry);
    archive_write_close(writer);
    archive_write_free(writer);
    EXPECT_NE(refusal(), "");
    EXPECT_TRUE(std::filesystem::is_empty(destination));
}

}  // namespace
