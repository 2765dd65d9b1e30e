#include "PlatformCore/SealedFileStore.h"

#include "FileFaults/FileFaults.h"
#include "SecretStoreSuite.h"
#include "TestSupport/TemporaryFolder.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

namespace fs = std::filesystem;
using ::testing::HasSubstr;

namespace {

/// As cheap as it may be: what a guess costs is not what is tested.
constexpr Nacl::PassphraseCost cheap{1, 8192};

SealedFileStore::AskPassphrase answering(std::string passphrase) {
    return [passphrase](SealedFileStore::Reason) { return Passphrase(std::string(passphrase)); };
}

struct SealedFileMaker {
    std::unique_ptr<SecretStore> fresh() { return again(); }
    std::unique_ptr<SecretStore> again() {
        return std::make_unique<SealedFileStore>(folder.path / "secrets", answering("correct horse"), cheap);
    }
    TemporaryFolder folder;
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(SealedFile, SecretStoreSuite, SealedFileMaker);

namespace {

class SealedFileStoreTest : public ::testing::Test {
protected:
    static SecretItem item(std::string account = "a") {
        SecretItem made;
        made.service = "s";
        made.account = std::move(account);
        made.data = Bytes{'x', 'y'};
        return made;
    }
    static SecretQuery query(std::string account = "a") { return {"s", std::move(account), {}, {}, false}; }

    std::unique_ptr<SealedFileStore> open(std::string passphrase = "correct horse") {
        return std::make_unique<SealedFileStore>(
            file,
            [this, passphrase](SealedFileStore::Reason reason) {
                asked.push_back(reason);
                return Passphrase(std::string(passphrase));
            },
            cheap);
    }

    Bytes contents() const {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    void write(const Bytes& bytes) const {
        std::ofstream stream(file, std::ios::binary | std::ios::trunc);
        stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }

    TemporaryFolder folder;
    fs::path file = folder.path / "secrets";
    std::vector<SealedFileStore::Reason> asked;
};

using Reason = SealedFileStore::Reason;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(SealedFileStoreTest, TheFileComesIntoBeingWithTheFirstItemAndThePassphraseIsAskedForOnce) {
    auto store = open();
    EXPECT_EQ(store->copyMatching(query()).status, SecretStatuses::itemNotFound);
    EXPECT_EQ(store->remove(query()), SecretStatuses::itemNotFound);
    EXPECT_FALSE(fs::exists(file));
    EXPECT_THAT(asked, IsEmpty());
    ASSERT_EQ(store->add(item()), SecretStatuses::ok);
    EXPECT_EQ(store->copyMatching(query()).status, SecretStatuses::ok);
    EXPECT_EQ(store->add(item("b")), SecretStatuses::ok);
    EXPECT_THAT(asked, ElementsAre(Reason::newFile));

    store = open();
    EXPECT_EQ(store->copyMatching(query()).item, item());
    EXPECT_EQ(store->copyMatching(query("b")).item, item("b"));
    EXPECT_THAT(asked, ElementsAre(Reason::newFile, Reason::existingFile));
}

TEST_F(SealedFileStoreTest, OnlyItsOwnerCanReadTheFileAndNothingInItIsInTheClear) {
    umask(0);
    auto kept = item("an account in the clear");
    kept.data = Bytes(64, 'k');
    ASSERT_EQ(open()->add(kept), SecretStatuses::ok);
    umask(022);
    struct stat status {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    const Bytes bytes = contents();
    const std::string text(bytes.begin(), bytes.end());
    EXPECT_EQ(text.find("in the clear"), std::string::npos);
    EXPECT_EQ(text.find("kkkk"), std::string::npos);
}

TEST_F(SealedFileStoreTest, TheSameItemsAreNeverSealedIntoTheSameBytes) {
    auto store = open();
    ASSERT_EQ(store->add(item()), SecretStatuses::ok);
    const Bytes first = contents();
    ASSERT_EQ(store->update(query(), *item().data), SecretStatuses::ok);
    const Bytes second = contents();
    ASSERT_EQ(first.size(), second.size());
    EXPECT_FALSE(std::equal(first.end() - 16, first.end(), second.end() - 16));
}

TEST_F(SealedFileStoreTest, AWrongPassphraseIsRefusedChangesNothingAndIsAskedForAgain) {
    ASSERT_EQ(open()->add(item()), SecretStatuses::ok);
    const Bytes before = contents();
    asked.clear();
    auto store = open("wrong");
    EXPECT_EQ(store->copyMatching(query()).status, SecretStatuses::authFailed);
    EXPECT_THAT(store->errorMessage(SecretStatuses::authFailed), HasSubstr("wrong passphrase for " + file.string()));
    EXPECT_EQ(store->add(item("b")), SecretStatuses::authFailed);
    EXPECT_EQ(store->update(query(), {}), SecretStatuses::authFailed);
    EXPECT_EQ(store->remove(query()), SecretStatuses::authFailed);
    EXPECT_EQ(contents(), before);
    EXPECT_EQ(asked.size(), 4u);
}

TEST_F(SealedFileStoreTest, NoPassphraseIsCancelledAndAnEmptyOneIsRefused) {
    SealedFileStore silent(
        file, [](Reason) { return std::nullopt; }, cheap);
    EXPECT_EQ(silent.add(item()), SecretStatuses::userCanceled);
    EXPECT_EQ(open("")->add(item()), SecretStatuses::authFailed);
    EXPECT_FALSE(fs::exists(file));
    ASSERT_EQ(open()->add(item()), SecretStatuses::ok);
    EXPECT_EQ(silent.copyMatching(query()).status, SecretStatuses::userCanceled);
    SealedFileStore mute(file, {}, cheap);
    EXPECT_EQ(mute.copyMatching(query()).status, SecretStatuses::userCanceled);
}

TEST_F(SealedFileStoreTest, AFileCutShortAnywhereIsNeverTakenForAMissingItem) {
    ASSERT_EQ(open()->add(item()), SecretStatuses::ok);
    const Bytes whole = contents();
    for (std::size_t length = 0; length < whole.size(); ++length) {
        write(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
        auto store = open();
        EXPECT_EQ(store->copyMatching(query()).status, SecretStatuses::decode) << length;
        EXPECT_EQ(store->add(item("b")), SecretStatuses::decode) << length;
    }
}

TEST_F(SealedFileStoreTest, AnAlteredByteAnywhereIsNoticed) {
    ASSERT_EQ(open()->add(item()), SecretStatuses::ok);
    const Bytes whole = contents();
    // What follows the check tells damage from a wrong passphrase; the costs have limits of their own.
    constexpr std::size_t bodyStart = 8 + 4 + 8 + 8 + 16 + 24 + 16 + 64;
    for (std::size_t at = 0; at < whole.size(); ++at) {
        Bytes altered = whole;
        altered[at] ^= 1;
        write(altered);
        const SecretStatus status = open()->copyMatching(query()).status;
        if (at < 12 || at >= bodyStart)
            EXPECT_EQ(status, SecretStatuses::decode) << at;
        else
            EXPECT_THAT(status, ::testing::AnyOf(SecretStatuses::authFailed, SecretStatuses::decode,
                                                 SecretStatuses::internalError))
                << at;
    }
    write(whole);
    EXPECT_EQ(open()->copyMatching(query()).status, SecretStatuses::ok);
}

TEST_F(SealedFileStoreTest, AFileThatAsksForTooMuchIsRefusedBeforeAnythingIsSpent) {
    ASSERT_EQ(open()->add(item()), SecretStatuses::ok);
    const Bytes whole = contents();
    asked.clear();
    for (const std::size_t at : {12 + 1, 12 + 7, 20 + 4, 20 + 7}) {  // passes, memory
        Bytes altered = whole;
        altered[at] = 0x7f;
        write(altered);
        EXPECT_EQ(open()->copyMatching(query()).status, SecretStatuses::decode);
    }
    Bytes large = whole;
    large.resize((1 << 20) + 1);
    write(large);
    EXPECT_EQ(open()->copyMatching(query()).status, SecretStatuses::decode);
    EXPECT_THAT(asked, IsEmpty()) << "the passphrase was asked for";
}

TEST_F(SealedFileStoreTest, MoreThanTheLimitsIsNotStored) {
    auto store = open();
    auto large = item();
    large.data = Bytes((64 << 10) + 1);
    EXPECT_EQ(store->add(large), SecretStatuses::internalError);
    large = item();
    large.label = std::string((64 << 10) + 1, 'x');
    EXPECT_EQ(store->add(large), SecretStatuses::internalError);
    ASSERT_EQ(store->add(item()), SecretStatuses::ok);
    EXPECT_EQ(store->update(query(), Bytes((64 << 10) + 1)), SecretStatuses::internalError);
    // More than the file may hold.
    SecretStatus status = SecretStatuses::ok;
    int stored = 0;
    for (; stored < 30 && status == SecretStatuses::ok; ++stored) {
        large = item("many " + std::to_string(stored));
        large.data = Bytes(64 << 10);
        status = store->add(large);
    }
    EXPECT_EQ(status, SecretStatuses::internalError);
    EXPECT_GT(stored, 10);
    EXPECT_EQ(open()->copyMatching(query()).item, item());
}

TEST_F(SealedFileStoreTest, AMissingFolderIsNotAnEmptyStore) {
    SealedFileStore store(folder.path / "not" / "there", answering("p"), cheap);
    EXPECT_EQ(store.copyMatching(query()).status, SecretStatuses::notAvailable);
    EXPECT_EQ(store.add(item()), SecretStatuses::notAvailable);
}

TEST_F(SealedFileStoreTest, WhatIsNoFileIsNotAvailable) {
    fs::create_directory(file);
    EXPECT_EQ(open()->copyMatching(query()).status, SecretStatuses::notAvailable);
    fs::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(open()->copyMatching(query()).status, SecretStatuses::notAvailable);
}

TEST_F(SealedFileStoreTest, ALinkStaysAndItsTargetIsReplaced) {
    fs::create_directory(folder.path / "real");
    fs::create_symlink("real/secrets", file);
    EXPECT_EQ(open()->copyMatching(query()).status, SecretStatuses::itemNotFound);
    ASSERT_EQ(open()->add(item()), SecretStatuses::ok);
    ASSERT_EQ(open()->add(item("b")), SecretStatuses::ok);
    EXPECT_TRUE(fs::is_symlink(file));
    EXPECT_FALSE(fs::is_symlink(folder.path / "real" / "secrets"));
    EXPECT_TRUE(fs::is_regular_file(folder.path / "real" / "secrets"));
    EXPECT_EQ(open()->copyMatching(query("b")).item, item("b"));
}

TEST_F(SealedFileStoreTest, LinksInACircleOrIntoNothingAreNotAnEmptyStore) {
    fs::create_symlink("secrets", file);
    EXPECT_EQ(open()->copyMatching(query()).status, SecretStatuses::notAvailable);
    fs::remove(file);
    fs::create_symlink("unmounted/secrets", file);
    EXPECT_EQ(open()->copyMatching(query()).status, SecretStatuses::notAvailable);
}

TEST_F(SealedFileStoreTest, NothingIsLeftBesideTheFileButItsLock) {
    auto store = open();
    for (int i = 0; i < 5; ++i) ASSERT_EQ(store->add(item(std::to_string(i))), SecretStatuses::ok);
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder.path)) names.push_back(entry.path().filename());
    EXPECT_THAT(names, ::testing::UnorderedElementsAre("secrets", "secrets.lock"));
}

/// Runs in another process under another user, for whom permissions count. @return its exit status
template <class Work>
int asNobody(Work work) {
    const pid_t child = fork();
    if (child == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0) _exit(99);
        _exit(work());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(SealedFileStoreTest, AnUnreadableFileAndAnUnwritableFolderAreNotAvailable) {
    if (geteuid() != 0) GTEST_SKIP() << "needs to become another user";
    ASSERT_EQ(open()->add(item()), SecretStatuses::ok);
    chmod(folder.path.c_str(), 0755);
    EXPECT_EQ(asNobody([&] { return open()->copyMatching(query()).status == SecretStatuses::notAvailable ? 0 : 1; }), 0)
        << "the file of mode 0600 could be read, or was taken for none";
    chmod(file.c_str(), 0644);
    EXPECT_EQ(asNobody([&] { return open()->copyMatching(query()).status == SecretStatuses::ok ? 0 : 1; }), 0);
    const Bytes before = contents();
    EXPECT_EQ(asNobody([&] { return open()->add(item("b")) == SecretStatuses::notAvailable ? 0 : 1; }), 0);
    EXPECT_EQ(contents(), before);
}

TEST_F(SealedFileStoreTest, AFullDiskLeavesTheFileAsItWas) {
    ASSERT_EQ(open()->add(item()), SecretStatuses::ok);
    const Bytes before = contents();
    const pid_t child = fork();
    if (child == 0) {
        // A limit on the size of files stands for the disk that is full.
        signal(SIGXFSZ, SIG_IGN);
        const rlimit small{100, 100};
        setrlimit(RLIMIT_FSIZE, &small);
        _exit(open()->add(item("b")) == SecretStatuses::notAvailable ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(contents(), before);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path), fs::directory_iterator()), 2);
}

TEST_F(SealedFileStoreTest, WhicheverCallFailsTheOldSecretOrTheNewOneIsThereAndNothingBesides) {
    const Bytes old = *item().data;
    const Bytes fresh{'n', 'e', 'w'};
    ASSERT_EQ(open()->add(item()), SecretStatuses::ok);
    const Bytes before = contents();
    std::optional<std::string> failed = "";
    int failing = 1;
    for (; failed; ++failing) {
        write(before);
        auto store = open();
        SecretStatus status = SecretStatuses::ok;
        bool hasRenamed = false;
        {
            const FileFaults faults(failing, EIO);
            status = store->update(query(), fresh);
            failed = faults.failedCall();
            hasRenamed = faults.hasRenamed();
        }
        SCOPED_TRACE(failed.value_or("none"));
        EXPECT_EQ(status, hasRenamed ? SecretStatuses::ok : SecretStatuses::notAvailable);
        if (!hasRenamed) {
            EXPECT_EQ(contents(), before);
            EXPECT_THAT(store->errorMessage(status), HasSubstr(": Input/output error"));
        }
        EXPECT_EQ(open()->copyMatching(query()).item.data, hasRenamed ? fresh : old);
        EXPECT_EQ(std::distance(fs::directory_iterator(folder.path), fs::directory_iterator()), 2);
        ASSERT_LT(failing, 40);
    }
    EXPECT_GT(failing, 16) << "two readings, the lock, and the writing";
}

TEST_F(SealedFileStoreTest, AReadingThatFailsIsNeverTakenForAMissingItem) {
    ASSERT_EQ(open()->add(item()), SecretStatuses::ok);
    for (const int error : {EIO, ENOENT, EACCES, ENOMEM}) {
        std::optional<std::string> failed = "";
        for (int failing = 1; failed; ++failing) {
            auto store = open();
            const FileFaults faults(failing, error);
            const SecretStatus status = store->copyMatching(query()).status;
            failed = faults.failedCall();
            const bool isRead = !failed || failed == "close";
            // A file that can't be opened since it is not there is no failure but an empty store.
            const bool isMissing = failed == "open" && error == ENOENT;
            EXPECT_EQ(status, isRead      ? SecretStatuses::ok
                              : isMissing ? SecretStatuses::itemNotFound
                                          : SecretStatuses::notAvailable)
                << failed.value_or("none") << " " << error;
            ASSERT_LT(failing, 20);
        }
    }
}

TEST_F(SealedFileStoreTest, OfManyProcessesThatAddOneItemExactlyOneSucceeds) {
    constexpr int processes = 6;
    std::vector<pid_t> children;
    for (int i = 0; i < processes; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            auto mine = item("same");
            mine.data = Bytes{static_cast<std::uint8_t>(i)};
            auto store = open();
            const SecretStatus same = store->add(mine);
            const SecretStatus own = store->add(item("own " + std::to_string(i)));
            _exit(own != SecretStatuses::ok               ? 9
                  : same == SecretStatuses::ok            ? 1
                  : same == SecretStatuses::duplicateItem ? 2
                                                          : 8);
        }
        children.push_back(child);
    }
    int added = 0;
    int duplicates = 0;
    for (const pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFEXITED(status));
        added += WEXITSTATUS(status) == 1;
        duplicates += WEXITSTATUS(status) == 2;
    }
    EXPECT_EQ(added, 1);
    EXPECT_EQ(duplicates, processes - 1);
    for (int i = 0; i < processes; ++i)
        EXPECT_EQ(open()->copyMatching(query("own " + std::to_string(i))).status, SecretStatuses::ok);
}

TEST_F(SealedFileStoreTest, AFileMadeByAnotherProgramMeanwhileIsNotOverwritten) {
    // While this store asks for the passphrase of a new file, another program makes one.
    SealedFileStore store(
        file,
        [this](Reason) {
            EXPECT_EQ(open("of the other")->add(item("theirs")), SecretStatuses::ok);
            return Passphrase("mine");
        },
        cheap);
    EXPECT_EQ(store.add(item()), SecretStatuses::authFailed);
    EXPECT_EQ(open("of the other")->copyMatching(query("theirs")).item, item("theirs"));
}

TEST_F(SealedFileStoreTest, WhatAnotherStoreChangesIsSeen) {
    auto one = open();
    auto other = open();
    ASSERT_EQ(one->add(item()), SecretStatuses::ok);
    ASSERT_EQ(other->update(query(), Bytes{'n'}), SecretStatuses::ok);
    EXPECT_EQ(one->copyMatching(query()).item.data, (Bytes{'n'}));
    fs::remove(file);
    ASSERT_EQ(other->add(item("b")), SecretStatuses::ok);
    EXPECT_EQ(one->copyMatching(query()).status, SecretStatuses::itemNotFound);
    EXPECT_EQ(one->copyMatching(query("b")).status, SecretStatuses::ok);
}

}  // namespace
