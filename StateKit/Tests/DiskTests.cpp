#include "StateKit/Disk.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "FileFaults/FileFaults.h"
#include "TestSupport/TemporaryFolder.h"

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

namespace {

struct Book {
    std::string title;
    std::optional<double> price;

    static constexpr auto fields = std::tuple{Field{"title", &Book::title}, Field{"price", &Book::price}};
    bool operator==(const Book&) const = default;
};

struct Shelf {
    std::vector<Book> books;

    static constexpr auto fields = std::tuple{Field{"books", &Shelf::books}};
    bool operator==(const Shelf&) const = default;
};

struct DiskTest : testing::Test {
    TemporaryFolder temporary;
    fs::path root = temporary.path / "zorvane.Vimble";
    Disk disk{root, "app"};

    std::string contents(const fs::path& path) {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }
    void write(const fs::path& path, std::string_view text) {
        fs::create_directories(path.parent_path());
        std::ofstream(path) << text;
    }
    std::vector<std::string> namesIn(const fs::path& folder) {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename());
        return names;
    }
    template <class Action>
    std::optional<DiskError> errorOf(Action action) {
        try {
            action();
            return std::nullopt;
        } catch (const DiskError& error) {
            return error;
        }
    }
};

TEST_F(DiskTest, WhatWasSavedIsLoadedAgain) {
    const Book book{"A \"title\" 漢", 0.1};
    disk.save(book);
    EXPECT_EQ(disk.load<Book>(), book);
    disk.save(book, "key");
    EXPECT_EQ(disk.load<Book>("key"), book);
    disk.save(Book{"other", {}}, "key");
    EXPECT_EQ(disk.load<Book>("key"), (Book{"other", {}}));
    EXPECT_EQ(disk.load<Book>(), book);
}

TEST_F(DiskTest, AFileIsPrettyJson) {
    disk.save(Book{"A", 1.5}, "key");
    EXPECT_EQ(contents(root / "app" / "key.json"), "{\n  \"title\": \"A\",\n  \"price\": 1.5\n}");
}

TEST_F(DiskTest, WithoutAKeyTheTypesLieSideBySideUnderTheirNames) {
    disk.save(Book{"A", {}});
    disk.save(Shelf{{{"B", {}}}});
    EXPECT_THAT(namesIn(root / "app"), UnorderedElementsAre("Book.json", "Shelf.json"));
    EXPECT_EQ(disk.load<Book>().title, "A");
    EXPECT_EQ(disk.load<Shelf>().books.size(), 1u);
}

TEST_F(DiskTest, TheRootLiesInTheApplicationsFolder) {
    EXPECT_EQ(Disk::folderFor("/support", "zorvane.Vimble"), "/support/zorvane.Vimble");
    EXPECT_EQ(Disk::folderFor("/support", {}), "/support/plomb.Unknown");
}

TEST_F(DiskTest, ANamespaceThatIsAUrlGivesSubfolders) {
    EXPECT_EQ(Disk(root, "https://chat.example:8443/some/path").folder(),
              root / "https…chat.example:8443" / "some" / "path");
    EXPECT_EQ(Disk(root, "a://b://c").folder(), root / "a…b…c");
    const Disk server(root, "https://chat.example/path");
    server.save(Book{"A", {}});
    EXPECT_TRUE(fs::exists(root / "https…chat.example" / "path" / "Book.json"));
    EXPECT_EQ(server.load<Book>().title, "A");
}

TEST_F(DiskTest, NoNamespaceLeadsOutOfTheRoot) {
    EXPECT_EQ(Disk(root, "..").folder(), root / "%2E%2E");
    EXPECT_EQ(Disk(root, "../../etc").folder(), root / "%2E%2E" / "%2E%2E" / "etc");
    EXPECT_EQ(Disk(root, "https://a/../../b").folder(), root / "https…a" / "%2E%2E" / "%2E%2E" / "b");
    EXPECT_EQ(Disk(root, "./a/.").folder(), root / "%2E" / "a" / "%2E");
    EXPECT_EQ(Disk(root, "/etc").folder(), root / "etc");
    EXPECT_EQ(Disk(root, "a//b/").folder(), root / "a" / "b");
    EXPECT_EQ(Disk(root, "...").folder(), root / "...");
    EXPECT_EQ(Disk(root, "").folder(), root);
    EXPECT_EQ(Disk(root, std::string("a\0b", 3)).folder(), root / "a%00b");
    const Disk sly(root, "../sly");
    sly.save(Book{"A", {}});
    EXPECT_THAT(namesIn(temporary.path), UnorderedElementsAre("zorvane.Vimble"));
}

TEST_F(DiskTest, AKeyIsOneFilesName) {
    EXPECT_EQ(disk.file<Book>("../key"), root / "app" / "..%2Fkey.json");
    EXPECT_EQ(disk.file<Book>(".."), root / "app" / "...json");
    EXPECT_EQ(disk.file<Book>(std::string("a\0b", 3)), root / "app" / "a%00b.json");
    EXPECT_EQ(disk.file<Book>(), root / "app" / "Book.json");
    EXPECT_EQ(disk.file<std::optional<Book>>(), root / "app" / "Book.json");
}

TEST_F(DiskTest, ANameThatIsTooLongIsAnErrorOfTheOperation) {
    const Disk longNamed(root, std::string(300, 'a'));
    const auto saving = errorOf([&] { longNamed.save(Book{}); });
    ASSERT_TRUE(saving);
    EXPECT_EQ(saving->code, DiskError::Code::encode);
    EXPECT_THAT(saving->what(), EndsWith(": File name too long"));
    const auto loading = errorOf([&] { longNamed.load<Book>(); });
    ASSERT_TRUE(loading);
    EXPECT_EQ(loading->code, DiskError::Code::decode);
    EXPECT_FALSE(loading->isMissing);
    EXPECT_THROW(longNamed.remove<Book>(), fs::filesystem_error);
    EXPECT_EQ(longNamed.setAside<Book>(), std::nullopt);
}

TEST_F(DiskTest, AMissingFileIsADecodeErrorWithTheSystemsText) {
    const auto error = errorOf([&] { disk.load<Book>("key"); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, DiskError::Code::decode);
    EXPECT_TRUE(error->isMissing);
    EXPECT_STREQ(error->what(), "Could not decode value Book from key.json: No such file or directory");
}

TEST_F(DiskTest, ABrokenFileIsADecodeError) {
    for (const char* text : {"", "{", "{\"title\":1}", "{\"price\":1}", "{\"title\":\"a\"} x", "null", "[]", "\xFF"}) {
        write(root / "app" / "Book.json", text);
        const auto error = errorOf([&] { disk.load<Book>(); });
        ASSERT_TRUE(error) << text;
        EXPECT_EQ(error->code, DiskError::Code::decode);
        EXPECT_FALSE(error->isMissing);
        EXPECT_THAT(error->what(), testing::StartsWith("Could not decode value Book from Book.json: "));
    }
}

TEST_F(DiskTest, AFileCutAnywhereIsADecodeError) {
    disk.save(Shelf{{{"A", 1.5}, {"B", {}}}});
    const std::string whole = contents(root / "app" / "Shelf.json");
    for (std::size_t length = 0; length < whole.size(); ++length) {
        write(root / "app" / "Shelf.json", whole.substr(0, length));
        EXPECT_TRUE(errorOf([&] { disk.load<Shelf>(); })) << length;
    }
}

TEST_F(DiskTest, WhatIsNoFileIsADecodeError) {
    fs::create_directories(root / "app" / "Book.json");
    auto error = errorOf([&] { disk.load<Book>(); });
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), EndsWith(": Is a directory"));
    fs::remove(root / "app" / "Book.json");
    ASSERT_EQ(::mkfifo((root / "app" / "Book.json").c_str(), 0600), 0);
    error = errorOf([&] { disk.load<Book>(); });
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), EndsWith(": Invalid argument"));
}

TEST_F(DiskTest, AFileLongerThanTheLimitIsNotRead) {
    write(root / "app" / "Book.json", "");
    fs::resize_file(root / "app" / "Book.json", Disk::maxFileSize + 1);  // a hole, which takes no room
    const auto error = errorOf([&] { disk.load<Book>(); });
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), EndsWith(": File too large"));
}

TEST_F(DiskTest, LoadingIntoAVariableReplacesWhatItHolds) {
    disk.save(Book{"A", {}});
    Book book{"old", 5};
    disk.load(book);
    EXPECT_EQ(book, (Book{"A", {}}));
    std::optional<Book> maybe;
    disk.load(maybe);
    EXPECT_EQ(maybe, (Book{"A", {}}));
}

TEST_F(DiskTest, AFailedLoadLeavesTheVariableAlone) {
    Book book{"old", 5};
    std::optional<Book> maybe = book;
    EXPECT_THROW(disk.load(book), DiskError);
    EXPECT_THROW(disk.load(maybe), DiskError);
    write(root / "app" / "Book.json", R"({"title":"new","price":"x"})");
    EXPECT_THROW(disk.load(book), DiskError);
    EXPECT_THROW(disk.load(maybe), DiskError);
    EXPECT_EQ(book, (Book{"old", 5}));
    EXPECT_EQ(maybe, book);
}

TEST_F(DiskTest, SavingAnAbsentValueRemovesTheFileAndTwiceIsNoError) {
    disk.save(std::optional(Book{"A", {}}), "key");
    EXPECT_EQ(disk.load<Book>("key").title, "A");
    disk.save(std::optional<Book>(), "key");
    EXPECT_FALSE(fs::exists(root / "app" / "key.json"));
    disk.save(std::optional<Book>(), "key");
}

TEST_F(DiskTest, RemovingTouchesOnlyThatFile) {
    disk.save(Book{"A", {}});
    disk.save(Book{"B", {}}, "key");
    disk.remove<Book>();
    disk.remove<Book>();
    EXPECT_THAT(namesIn(root / "app"), UnorderedElementsAre("key.json"));
}

TEST_F(DiskTest, AFailedRemovalComesAsTheFileSystemHasIt) {
    fs::create_directories(root / "app" / "Book.json");
    EXPECT_THROW(disk.remove<Book>(), fs::filesystem_error);
    EXPECT_THROW(disk.save(std::optional<Book>()), fs::filesystem_error);
}

TEST_F(DiskTest, SavingWhereNoFolderCanBeMadeIsAnEncodeError) {
    write(root, "a file in the way");
    const auto error = errorOf([&] { disk.save(Book{"A", 1.5}); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, DiskError::Code::encode);
    EXPECT_STREQ(error->what(), R"(Could not encode Book(title: "A", price: 1.5) to Book.json: Not a directory)");
}

TEST_F(DiskTest, SavingOntoAFolderIsAnEncodeErrorAndLeavesNothingBehind) {
    fs::create_directories(root / "app" / "Book.json");
    const auto error = errorOf([&] { disk.save(Book{"A", {}}); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, DiskError::Code::encode);
    EXPECT_THAT(namesIn(root / "app"), UnorderedElementsAre("Book.json"));
}

TEST_F(DiskTest, SavingIntoAFolderThatCanNotBeWrittenToIsAnEncodeError) {
    // The superuser writes anywhere, so the piece runs as somebody else.
    disk.save(Book{"old", {}});
    fs::permissions(temporary.path, fs::perms(0755));
    fs::permissions(root, fs::perms(0755));
    fs::permissions(root / "app", fs::perms(0555));
    fs::permissions(root / "app" / "Book.json", fs::perms(0644));
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) ::_exit(2);
        const auto error = errorOf([&] { disk.save(Book{"new", {}}); });
        const bool isRight = error && error->code == DiskError::Code::encode &&
                             std::string_view(error->what()).ends_with(": Permission denied") &&
                             disk.load<Book>().title == "old";
        ::_exit(isRight ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(disk.load<Book>().title, "old");
}

TEST_F(DiskTest, AValueWithoutAJsonFormIsAnEncodeErrorAndLeavesTheOldFile) {
    disk.save(Book{"old", {}});
    for (const Book& book : {Book{"\xFF", {}}, Book{"", std::numeric_limits<double>::infinity()}}) {
        const auto error = errorOf([&] { disk.save(book); });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code, DiskError::Code::encode);
    }
    EXPECT_EQ(disk.load<Book>().title, "old");
    EXPECT_THAT(namesIn(root / "app"), UnorderedElementsAre("Book.json"));
}

TEST_F(DiskTest, AnEncodeErrorDescribesNoMoreThanTheBeginningOfALongValue) {
    write(root, "a file in the way");
    std::string title;
    for (int i = 0; i < 1'000'000; ++i) title += "é";
    const auto error = errorOf([&] { disk.save(Book{title, {}}); });
    ASSERT_TRUE(error);
    EXPECT_LT(std::string_view(error->what()).size(), 500u);
    EXPECT_THAT(error->what(), testing::StartsWith("Could not encode Book(title: \"éé"));
    EXPECT_THAT(error->what(), HasSubstr("é… to Book.json: "));
    EXPECT_TRUE(JsonReader::isUtf8(error->what()));
}

TEST_F(DiskTest, FilesAndFoldersAreForTheirOwnerAlone) {
    const mode_t before = ::umask(0);
    const Disk server(root, "https://chat.example/path");
    server.save(Book{"A", {}});
    server.save(Book{"B", {}});
    ::umask(before);
    const auto mode = [](const fs::path& path) { return static_cast<int>(fs::status(path).permissions()); };
    EXPECT_EQ(mode(root), 0700);
    EXPECT_EQ(mode(root / "https…chat.example"), 0700);
    EXPECT_EQ(mode(root / "https…chat.example" / "path"), 0700);
    EXPECT_EQ(mode(root / "https…chat.example" / "path" / "Book.json"), 0600);
}

TEST_F(DiskTest, NothingButTheFileIsLeftInTheFolder) {
    disk.save(Book{"A", {}});
    disk.save(Book{"B", {}});
    EXPECT_THAT(namesIn(root / "app"), UnorderedElementsAre("Book.json"));
}

TEST_F(DiskTest, AReaderNeverSeesAPartOfAWrite) {
    // The file is replaced and not written over: who has it open keeps the old contents.
    disk.save(Book{"old", {}});
    std::ifstream open(root / "app" / "Book.json");
    disk.save(Book{"new", {}});
    std::ostringstream text;
    text << open.rdbuf();
    EXPECT_THAT(text.str(), HasSubstr("old"));
    EXPECT_EQ(disk.load<Book>().title, "new");
}

TEST_F(DiskTest, WhatADeadProcessLeftIsRemovedAtTheNextSave) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) ::_exit(0);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);

    const fs::path folder = root / "app";
    write(folder / (".Book.json." + std::to_string(child) + ".tmp"), "a part");
    write(folder / (".Book.json." + std::to_string(::getppid()) + ".tmp"), "of a living process");
    write(folder / (".Shelf.json." + std::to_string(child) + ".tmp"), "of another file");
    write(folder / ".Book.json.x.tmp", "somebody else's");
    write(folder / (".Book.json." + std::to_string(::getpid()) + ".tmp"), "our own, from before");
    disk.save(Book{"A", {}});
    EXPECT_THAT(namesIn(folder),
                UnorderedElementsAre("Book.json", ".Book.json." + std::to_string(::getppid()) + ".tmp",
                                     ".Shelf.json." + std::to_string(child) + ".tmp", ".Book.json.x.tmp"));
    EXPECT_EQ(disk.load<Book>().title, "A");
}

TEST_F(DiskTest, WhicheverCallFailsASaveLeavesTheOldFileAndNothingBesides) {
    disk.save(Book{"old", {}});
    std::optional<std::string> failed = "";
    int failing = 1;
    for (; failed; ++failing) {
        std::optional<DiskError> error;
        {
            const FileFaults faults(failing, ENOSPC);
            error = errorOf([&] { disk.save(Book{"new", {}}); });
            failed = faults.failedCall();
        }
        SCOPED_TRACE(failed.value_or("none"));
        EXPECT_EQ(error.has_value(), failed.has_value());
        if (error) EXPECT_THAT(error->what(), EndsWith("to Book.json: No space left on device"));
        EXPECT_EQ(disk.load<Book>().title, failed ? "old" : "new");
        EXPECT_THAT(namesIn(root / "app"), UnorderedElementsAre("Book.json"));
        ASSERT_LT(failing, 20);
    }
    EXPECT_GT(failing, 5) << "making, writing, closing, renaming, and once without a failure";
}

TEST_F(DiskTest, WhicheverCallFailsALoadIsADecodeError) {
    disk.save(Book{"A", {}});
    std::optional<std::string> failed = "";
    int failing = 1;
    for (; failed; ++failing) {
        const FileFaults faults(failing, EIO);
        const auto error = errorOf([&] { EXPECT_EQ(disk.load<Book>().title, "A"); });
        failed = faults.failedCall();
        EXPECT_EQ(error.has_value(), failed && failed != "close") << failed.value_or("none");
        ASSERT_LT(failing, 20);
    }
    EXPECT_GT(failing, 4) << "opening, its status, reading, and once without a failure";
}

TEST_F(DiskTest, ASaveDoesNotWaitForTheMedium) {
    const FileFaults faults;
    disk.save(Book{"A", {}});
    EXPECT_THAT(faults.calls(), testing::Not(testing::Contains("fsync")));
}

TEST_F(DiskTest, ADamagedFileIsSetAsideUnderTheFirstFreeName) {
    for (const char* expected : {"Book.json.damaged", "Book.json.damaged.2", "Book.json.damaged.3"}) {
        write(root / "app" / "Book.json", expected);
        const auto name = disk.setAside<Book>();
        ASSERT_TRUE(name);
        EXPECT_EQ(*name, root / "app" / expected);
        EXPECT_EQ(contents(*name), expected);
        EXPECT_FALSE(fs::exists(root / "app" / "Book.json"));
    }
    EXPECT_EQ(contents(root / "app" / "Book.json.damaged"), "Book.json.damaged");
}

TEST_F(DiskTest, SettingAsideWhatIsNotThereGivesNothing) {
    EXPECT_EQ(disk.setAside<Book>(), std::nullopt);
    disk.save(Book{});
    disk.remove<Book>();
    EXPECT_EQ(disk.setAside<Book>("key"), std::nullopt);
}

TEST_F(DiskTest, ALongFileComesBack) {
    Shelf shelf;
    for (int i = 0; i < 40'000; ++i) shelf.books.push_back({"title " + std::to_string(i), i / 3.0});
    disk.save(shelf);
    EXPECT_GT(fs::file_size(root / "app" / "Shelf.json"), 1'000'000u);
    EXPECT_TRUE(disk.load<Shelf>() == shelf);
}

}  // namespace
