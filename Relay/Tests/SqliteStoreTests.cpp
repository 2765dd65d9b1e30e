#include "RelayShell/SqliteStore.h"

#include "TestSupport/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

PublicKey keyOf(std::uint8_t number) {
    PublicKey key;
    key.fill(number);
    return key;
}

class SqliteStoreTest : public testing::Test {
protected:
    std::unique_ptr<SqliteStore> open(SqliteStore::Open how = SqliteStore::Open::orCreate) {
        return std::make_unique<SqliteStore>(file, how);
    }
    void execute(const char* sql) {
        sqlite3* handle = nullptr;
        ASSERT_EQ(sqlite3_open(file.c_str(), &handle), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(handle, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(handle);
        sqlite3_close(handle);
    }
    static void keep(SqliteStore& store, std::int64_t id, std::uint8_t target, double arrived,
                     const std::string& text) {
        const MailItem item{id, keyOf(target), {arrived}, bytesOf(text)};
        store.changeMail(std::span(&item, 1), {});
    }
    static std::vector<std::string> texts(const std::vector<StoredPack>& packs) {
        std::vector<std::string> result;
        for (const StoredPack& pack : packs) result.emplace_back(textOf(pack.frame));
        return result;
    }

    TemporaryFolder folder;
    std::filesystem::path file = folder.path / "deep" / "down" / "relay.db";
    StoredMember ada{keyOf(1), true};
    StoredMember bob{keyOf(2), false};
};

TEST_F(SqliteStoreTest, MembersAreKeptInTheOrderOfTheirAdmission) {
    open()->putMember(bob);
    open()->putMember(ada);
    EXPECT_THAT(open()->members(), ElementsAre(bob, ada));
    open()->putMember({bob.key, true});
    EXPECT_TRUE(open()->members()[0].isAdmin);
    EXPECT_TRUE(open()->removeMember(bob.key));
    EXPECT_FALSE(open()->removeMember(bob.key));
    EXPECT_THAT(open()->members(), ElementsAre(ada));
}

TEST_F(SqliteStoreTest, AdmittingLeavesAdminsWhatTheyAre) {
    const auto store = open();
    store->putMember(ada);
    const std::vector<StoredMember> all{{ada.key, false}, bob};
    EXPECT_EQ(store->admit(all), 1u);
    EXPECT_THAT(store->members(), ElementsAre(ada, bob));
    const std::vector<StoredMember> admins{{bob.key, true}};
    EXPECT_EQ(store->admit(admins), 0u);
    EXPECT_TRUE(store->members()[1].isAdmin);
}

TEST_F(SqliteStoreTest, MailComesInOrderOfItsIdsWithinItsBounds) {
    const auto store = open();
    store->putMember(ada);
    store->putMember(bob);
    keep(*store, 3, 1, 30, "three");
    keep(*store, 1, 1, 10, "one");
    keep(*store, 2, 2, 20, "two");
    EXPECT_THAT(texts(store->mail(ada.key, 0, 100, 1000)), ElementsAre("one", "three"));
    EXPECT_THAT(texts(store->mail(ada.key, 1, 100, 1000)), ElementsAre("three"));
    EXPECT_THAT(texts(store->mail(ada.key, 0, 1, 1000)), ElementsAre("one"));
    EXPECT_THAT(texts(store->mail(ada.key, 0, 100, 2)), ElementsAre("one"));
    EXPECT_EQ(store->mail(bob.key, 0, 100, 1000)[0].arrived, Date{20});
    EXPECT_EQ(store->usage(ada.key), (MailUsage{2, 8}));
    EXPECT_EQ(store->lastMailId(), 3);
}

TEST_F(SqliteStoreTest, MailForNobodyIsLeftOut) {
    const auto store = open();
    keep(*store, 1, 1, 0, "for whom?");
    EXPECT_EQ(store->lastMailId(), 0);
}

TEST_F(SqliteStoreTest, RemovingAMemberDeletesTheirMailForGood) {
    const auto store = open();
    store->putMember(ada);
    keep(*store, 1, 1, 0, "old");
    store->removeMember(ada.key);
    store->putMember(ada);
    EXPECT_THAT(store->mail(ada.key, 0, 100, 1000), IsEmpty());
}

TEST_F(SqliteStoreTest, KeepingAndForgettingIsOneTransaction) {
    const auto store = open();
    store->putMember(ada);
    keep(*store, 1, 1, 0, "one");
    const std::vector<MailItem> items{{2, ada.key, {0}, bytesOf("two")}, {3, ada.key, {0}, bytesOf("three")}};
    const std::vector<std::int64_t> forgotten{1, 77};
    store->changeMail(items, forgotten);
    EXPECT_THAT(texts(open()->mail(ada.key, 0, 100, 1000)), ElementsAre("two", "three"));
}

TEST_F(SqliteStoreTest, TheTimeIsWhatWasSavedLast) {
    const auto store = open();
    EXPECT_FALSE(store->time());
    store->saveTime(Date{50});
    store->saveTime(Date{100.5});
    EXPECT_EQ(open()->time(), Date{100.5});
}

TEST_F(SqliteStoreTest, OldMailExpires) {
    const auto store = open();
    store->putMember(ada);
    keep(*store, 1, 1, 10, "old");
    keep(*store, 2, 1, 20, "new");
    EXPECT_EQ(store->expireMail(Date{20}), 1u);
    EXPECT_THAT(texts(store->mail(ada.key, 0, 100, 1000)), ElementsAre("new"));
}

TEST_F(SqliteStoreTest, AFailureWithinATransactionLeavesEverythingAsItWas) {
    const auto store = open();
    store->putMember(ada);
    keep(*store, 1, 1, 0, "one");
    // Let the second insertion fail, after the first has succeeded.
    execute("CREATE TRIGGER full BEFORE INSERT ON mail WHEN new.id = 3 BEGIN SELECT RAISE(FAIL, 'disk full'); END");
    const std::vector<MailItem> items{{2, ada.key, {0}, bytesOf("two")}, {3, ada.key, {0}, bytesOf("three")}};
    const std::vector<std::int64_t> forgotten{1};
    EXPECT_THROW(store->changeMail(items, forgotten), StoreError);
    EXPECT_THAT(texts(store->mail(ada.key, 0, 100, 1000)), ElementsAre("one"));
    execute("DROP TRIGGER full");
    store->changeMail(items, forgotten);
    EXPECT_THAT(texts(store->mail(ada.key, 0, 100, 1000)), ElementsAre("two", "three"));
}

TEST_F(SqliteStoreTest, ADatabaseThatSomebodyElseHoldsFailsAndWorksAgain) {
    const auto store = open();
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    try {
        store->removeMember(ada.key);
        ADD_FAILURE() << "a locked database was written to";
    } catch (const StoreError& error) {
        EXPECT_THAT(error.what(), HasSubstr("database is locked"));
        EXPECT_THAT(error.what(), HasSubstr(file.string()));
    }
    EXPECT_THAT(store->members(), IsEmpty());
    sqlite3_close(other);
    store->putMember(ada);
    EXPECT_THAT(store->members(), ElementsAre(ada));
}

TEST_F(SqliteStoreTest, ChangesOfOthersShowAndOnesOwnDoNot) {
    const auto store = open();
    const auto before = store->dataVersion();
    store->putMember(ada);
    EXPECT_EQ(store->dataVersion(), before);
    open()->putMember(bob);
    EXPECT_NE(store->dataVersion(), before);
}

TEST_F(SqliteStoreTest, ANewerFormIsRefused) {
    open()->putMember(ada);
    execute("PRAGMA user_version = 2");
    EXPECT_THROW(open(), StoreError);
    execute("PRAGMA user_version = 1");
    EXPECT_THAT(open()->members(), ElementsAre(ada));
}

TEST_F(SqliteStoreTest, AnotherProgramsDatabaseIsRefused) {
    std::filesystem::create_directories(file.parent_path());
    execute("CREATE TABLE cookies(value)");
    EXPECT_THROW(open(), StoreError);
}

TEST_F(SqliteStoreTest, AMissingFileIsMadeOnlyIfAskedFor) {
    EXPECT_THROW(open(SqliteStore::Open::existing), StoreError);
    EXPECT_FALSE(std::filesystem::exists(file));
    open();
    open(SqliteStore::Open::existing);
}

TEST_F(SqliteStoreTest, AFolderThatCannotBeMadeIsAnError) {
    std::ofstream(folder.path / "deep") << "a file in the way";
    EXPECT_THROW(open(), StoreError);
}

TEST_F(SqliteStoreTest, ABackupIsADatabaseOfItsOwn) {
    const auto store = open();
    store->putMember(ada);
    keep(*store, 1, 1, 0, "one");
    const auto copy = folder.path / "copy.db";
    store->backUp(copy);
    EXPECT_THROW(store->backUp(copy), StoreError);
    SqliteStore other(copy, SqliteStore::Open::existing);
    EXPECT_THAT(other.members(), ElementsAre(ada));
    EXPECT_THAT(texts(other.mail(ada.key, 0, 100, 1000)), ElementsAre("one"));
}

}  // namespace
