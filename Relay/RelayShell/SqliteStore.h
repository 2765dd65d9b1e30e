#pragma once

#include "RelayCore/RelayStore.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

/// Members and mail in one SQLite file.
///
/// Several processes may have it open: the relay that serves it, and the command line that changes the
/// members. Every commit is on the disk when the operation returns (write-ahead log, synchronised).
/// Every operation may throw `StoreError` with one line that names the file.
class SqliteStore : public RelayStore {
public:
    /// The file's form, kept in its `user_version`.
    static constexpr int formatVersion = 1;

    enum class Open { existing, orCreate };
    /// Opens the file, readable by its owner only, and brings an empty one into form.
    /// @throws StoreError  also for a file of a newer version, and for one that is no relay's database;
    ///         neither is changed
    SqliteStore(const std::filesystem::path& file, Open how);
    ~SqliteStore() override;

    std::vector<StoredMember> members() override;
    void putMember(const StoredMember& member) override;
    bool removeMember(const PublicKey& key) override;
    void changeMail(std::span<const MailItem> kept, std::span<const std::int64_t> forgotten) override;
    std::vector<StoredPack> mail(const PublicKey& target, std::int64_t after, std::size_t maxPacks,
                                 std::size_t maxBytes) override;
    MailUsage usage(const PublicKey& target) override;
    std::uint64_t expireMail(Date limit) override;
    std::int64_t lastMailId() override;

    /// Admits all of these, or none. Somebody who is a member already is not changed, except that `isAdmin` makes
    /// an admin of them. @return how many are new
    std::size_t admit(std::span<const StoredMember> newMembers);

    /// How long an operation waits for another process that holds the file, before it fails. 2 seconds at
    /// first.
    void setPatience(std::chrono::milliseconds time);

    /// Where the relay's own time stood when it was saved last; nothing in a new database.
    std::optional<Date> time();
    void saveTime(Date now);

    /// Changes whenever another process has changed the file. Cheap enough to ask many times a second.
    std::int64_t dataVersion();

    /// Writes a complete copy into one file, while the relay runs. @param file  must not exist
    void backUp(const std::filesystem::path& file);

private:
    class Statement;
    class Transaction;
    void run(const char* sql);
    std::int64_t number(const char* sql);
    void bringIntoForm();
    StoreError error(std::string_view what) const;
    [[noreturn]] void fail(std::string_view what) const;

    std::filesystem::path file;
    sqlite3* database = nullptr;
    std::vector<std::unique_ptr<Statement>> statements;  // made once, used again
    Statement& prepared(std::size_t which);
};
