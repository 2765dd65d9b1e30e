#include "RelayShell/SqliteStore.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <string>

namespace {

// "Vimb", so that another program's database is never taken for ours.
constexpr std::int64_t applicationId = 0x56696d62;

constexpr std::chrono::milliseconds firstPatience{2000};

constexpr const char* createTables =
    // AUTOINCREMENT: an id is never used again, so that mail left for a removed member can't reach a member who
    // was added later.
    "CREATE TABLE member(id INTEGER PRIMARY KEY AUTOINCREMENT,"
    " key BLOB NOT NULL UNIQUE CHECK(length(key) = 32), isAdmin INTEGER NOT NULL);"
    "CREATE TABLE mail(id INTEGER PRIMARY KEY, member INTEGER NOT NULL, arrived REAL NOT NULL, pack BLOB NOT NULL);"
    "CREATE INDEX mailOfMember ON mail(member, id);"
    "CREATE INDEX mailByAge ON mail(arrived);";

enum Sql : std::size_t {
    begin,
    commit,
    rollback,
    selectMembers,
    upsertMember,
    admitMember,
    promoteMember,
    deleteMailOfMember,
    deleteMember,
    insertMail,
    deleteMail,
    selectMail,
    selectUsage,
    expire,
    lastId,
    dataVersionSql,
    backUpSql,
    sqlCount
};

constexpr std::array<const char*, sqlCount> sqlTexts{
    "BEGIN IMMEDIATE",
    "COMMIT",
    "ROLLBACK",
    "SELECT key, isAdmin FROM member ORDER BY id",
    "INSERT INTO member(key, isAdmin) VALUES(?1, ?2) ON CONFLICT(key) DO UPDATE SET isAdmin = ?2",
    "INSERT INTO member(key, isAdmin) VALUES(?1, ?2) ON CONFLICT(key) DO NOTHING",
    "UPDATE member SET isAdmin = 1 WHERE key = ?1 AND isAdmin = 0",
    "DELETE FROM mail WHERE member = (SELECT id FROM member WHERE key = ?1)",
    "DELETE FROM member WHERE key = ?1",
    "INSERT OR IGNORE INTO mail(id, member, arrived, pack) SELECT ?1, id, ?3, ?4 FROM member WHERE key = ?2",
    "DELETE FROM mail WHERE id = ?1",
    "SELECT id, arrived, pack FROM mail WHERE member = (SELECT id FROM member WHERE key = ?1) AND id > ?2"
    " ORDER BY id LIMIT ?3",
    "SELECT count(*), coalesce(sum(length(pack)), 0) FROM mail"
    " WHERE member = (SELECT id FROM member WHERE key = ?1)",
    "DELETE FROM mail WHERE arrived < ?1",
    "SELECT coalesce(max(id), 0) FROM mail",
    "PRAGMA data_version",
    "VACUUM INTO ?1",
};

}  // namespace

/// A prepared statement, reset when its use ends.
class SqliteStore::Statement {
public:
    Statement(SqliteStore& store, const char* sql) : store(store) {
        if (sqlite3_prepare_v2(store.database, sql, -1, &statement, nullptr) != SQLITE_OK) {
            sqlite3_finalize(statement);
            store.fail("can't be used");
        }
    }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    ~Statement() { sqlite3_finalize(statement); }

    Statement& bind(int index, std::int64_t value) {
        sqlite3_bind_int64(statement, index, value);
        return *this;
    }
    Statement& bind(int index, double value) {
        sqlite3_bind_double(statement, index, value);
        return *this;
    }
    /// Borrowed until the statement has run.
    Statement& bind(int index, ByteView bytes) {
        sqlite3_bind_blob64(statement, index, bytes.data(), bytes.size(), SQLITE_STATIC);
        return *this;
    }
    Statement& bind(int index, std::string_view text) {
        sqlite3_bind_text64(statement, index, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
        return *this;
    }

    /// The next row. @return false behind the last
    bool step() {
        const int status = sqlite3_step(statement);
        if (status == SQLITE_ROW) return true;
        if (status != SQLITE_DONE) {
            const StoreError error = store.error("fails");
            reset();
            throw error;
        }
        reset();
        return false;
    }
    void run() {
        while (step()) {
        }
    }
    void reset() {
        sqlite3_reset(statement);
        sqlite3_clear_bindings(statement);
    }

    std::int64_t integer(int column) { return sqlite3_column_int64(statement, column); }
    double real(int column) { return sqlite3_column_double(statement, column); }
    ByteView blob(int column) {
        const auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(statement, column));
        return {data, static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
    }

private:
    SqliteStore& store;
    sqlite3_stmt* statement = nullptr;
};

/// Rolls back unless it was committed.
class SqliteStore::Transaction {
public:
    explicit Transaction(SqliteStore& store) : store(store) { store.prepared(begin).run(); }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    ~Transaction() {
        // Some failures, a full disk among them, have ended the transaction already.
        if (sqlite3_get_autocommit(store.database) != 0) return;
        try {
            store.prepared(rollback).run();
        } catch (const StoreError&) {
            // The next transaction will fail to begin, and its error says why.
        }
    }
    void commit() { store.prepared(::commit).run(); }

private:
    SqliteStore& store;
};

SqliteStore::SqliteStore(const std::filesystem::path& file, Open how) : file(file) {
    std::error_code code;
    if (how == Open::existing && !std::filesystem::exists(file, code))
        throw StoreError("there is no database " + file.string());
    if (how == Open::orCreate && file.has_parent_path()) std::filesystem::create_directories(file.parent_path(), code);
    try {
        const int flags = SQLITE_OPEN_READWRITE | (how == Open::orCreate ? SQLITE_OPEN_CREATE : 0);
        if (sqlite3_open_v2(file.c_str(), &database, flags, nullptr) != SQLITE_OK) fail("can't be opened");
        setPatience(firstPatience);
        bringIntoForm();
        statements.resize(sqlCount);
    } catch (...) {
        statements.clear();
        sqlite3_close_v2(database);
        throw;
    }
}

void SqliteStore::setPatience(std::chrono::milliseconds time) {
    sqlite3_busy_timeout(database, static_cast<int>(time.count()));
}

SqliteStore::~SqliteStore() {
    statements.clear();
    sqlite3_close_v2(database);
}

void SqliteStore::bringIntoForm() {
    // Find out what the file is before writing to it: a file that is not ours must stay as it is.
    const std::int64_t version = number("PRAGMA user_version");
    const std::int64_t application = number("PRAGMA application_id");
    const bool isEmpty = number("SELECT count(*) FROM sqlite_schema") == 0;
    if (application != applicationId && !(isEmpty && application == 0 && version == 0))
        throw StoreError("the file " + file.string() + " is no database of vimble-relay");
    if (version > formatVersion)
        throw StoreError("the database " + file.string() + " is of a newer version of vimble-relay (form " +
                         std::to_string(version) + ", and this one knows up to " + std::to_string(formatVersion) + ")");
    run("PRAGMA journal_mode = WAL");
    run("PRAGMA synchronous = FULL");
    run("PRAGMA journal_size_limit = 16777216");
    if (version == formatVersion) return;
    run("BEGIN IMMEDIATE");
    // Another process may have created the tables since the version was read.
    if (number("PRAGMA user_version") == 0) {
        run(createTables);
        run(("PRAGMA application_id = " + std::to_string(applicationId)).c_str());
        run(("PRAGMA user_version = " + std::to_string(formatVersion)).c_str());
    }
    run("COMMIT");
}

std::vector<StoredMember> SqliteStore::members() {
    std::vector<StoredMember> result;
    Statement& statement = prepared(selectMembers);
    while (statement.step()) {
        StoredMember member;
        const ByteView key = statement.blob(0);
        if (key.size() != member.key.size()) {
            statement.reset();
            throw StoreError("the database " + file.string() + " holds a key that is none");
        }
        std::copy(key.begin(), key.end(), member.key.begin());
        member.isAdmin = statement.integer(1) != 0;
        result.push_back(member);
    }
    return result;
}

void SqliteStore::putMember(const StoredMember& member) {
    prepared(upsertMember).bind(1, ByteView(member.key)).bind(2, std::int64_t{member.isAdmin}).run();
}

std::size_t SqliteStore::admit(std::span<const StoredMember> newMembers) {
    Transaction transaction(*this);
    std::size_t count = 0;
    for (const StoredMember& member : newMembers) {
        prepared(admitMember).bind(1, ByteView(member.key)).bind(2, std::int64_t{member.isAdmin}).run();
        count += static_cast<std::size_t>(sqlite3_changes(database));
        if (member.isAdmin) prepared(promoteMember).bind(1, ByteView(member.key)).run();
    }
    transaction.commit();
    return count;
}

bool SqliteStore::removeMember(const PublicKey& key) {
    Transaction transaction(*this);
    prepared(deleteMailOfMember).bind(1, ByteView(key)).run();
    prepared(deleteMember).bind(1, ByteView(key)).run();
    const bool wasMember = sqlite3_changes(database) > 0;
    transaction.commit();
    return wasMember;
}

void SqliteStore::changeMail(std::span<const MailItem> kept, std::span<const std::int64_t> forgotten) {
    Transaction transaction(*this);
    for (const std::int64_t id : forgotten) prepared(deleteMail).bind(1, id).run();
    for (const MailItem& item : kept)
        prepared(insertMail)
            .bind(1, item.id)
            .bind(2, ByteView(item.target))
            .bind(3, item.arrived.sinceReference)
            .bind(4, item.frame)
            .run();
    transaction.commit();
}

std::vector<StoredPack> SqliteStore::mail(const PublicKey& target, std::int64_t after, std::size_t maxPacks,
                                          std::size_t maxBytes) {
    std::vector<StoredPack> result;
    std::size_t bytes = 0;
    Statement& statement = prepared(selectMail);
    statement.bind(1, ByteView(target)).bind(2, after).bind(3, static_cast<std::int64_t>(maxPacks));
    while (statement.step()) {
        const ByteView frame = statement.blob(2);
        bytes += frame.size();
        result.push_back({statement.integer(0), {statement.real(1)}, Bytes(frame.begin(), frame.end())});
        if (bytes < maxBytes) continue;
        statement.reset();
        break;
    }
    return result;
}

MailUsage SqliteStore::usage(const PublicKey& target) {
    Statement& statement = prepared(selectUsage);
    statement.bind(1, ByteView(target));
    MailUsage result;
    while (statement.step())
        result = {static_cast<std::uint64_t>(statement.integer(0)), static_cast<std::uint64_t>(statement.integer(1))};
    return result;
}

std::uint64_t SqliteStore::expireMail(Date limit) {
    prepared(expire).bind(1, limit.sinceReference).run();
    return static_cast<std::uint64_t>(sqlite3_changes(database));
}

std::int64_t SqliteStore::lastMailId() {
    std::int64_t result = 0;
    for (Statement& statement = prepared(lastId); statement.step();) result = statement.integer(0);
    return result;
}

std::optional<Date> SqliteStore::time() {
    if (number("SELECT count(*) FROM sqlite_schema WHERE name = 'time'") == 0) return std::nullopt;
    std::optional<Date> result;
    for (Statement statement(*this, "SELECT now FROM time"); statement.step();) result = Date{statement.real(0)};
    return result;
}

void SqliteStore::saveTime(Date now) {
    // Created here, because databases of form 1 exist without this table. The form stays the same, because a
    // program that does not know the table ignores it.
    run("CREATE TABLE IF NOT EXISTS time(id INTEGER PRIMARY KEY CHECK(id = 1), now REAL NOT NULL)");
    Statement(*this, "INSERT OR REPLACE INTO time(id, now) VALUES(1, ?1)").bind(1, now.sinceReference).run();
}

std::int64_t SqliteStore::dataVersion() {
    std::int64_t result = 0;
    for (Statement& statement = prepared(dataVersionSql); statement.step();) result = statement.integer(0);
    return result;
}

void SqliteStore::backUp(const std::filesystem::path& copy) {
    std::error_code code;
    if (std::filesystem::exists(copy, code)) throw StoreError("the file " + copy.string() + " exists already");
    const std::string name = copy.string();
    prepared(backUpSql).bind(1, std::string_view(name)).run();
}

SqliteStore::Statement& SqliteStore::prepared(std::size_t which) {
    auto& statement = statements[which];
    if (!statement) statement = std::make_unique<Statement>(*this, sqlTexts[which]);
    return *statement;
}

void SqliteStore::run(const char* sql) {
    if (sqlite3_exec(database, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail("can't be used");
}

std::int64_t SqliteStore::number(const char* sql) {
    Statement statement(*this, sql);
    std::int64_t result = 0;
    while (statement.step()) result = statement.integer(0);
    return result;
}

StoreError SqliteStore::error(std::string_view what) const {
    return StoreError("the database " + file.string() + " " + std::string(what) + ": " + sqlite3_errmsg(database));
}

void SqliteStore::fail(std::string_view what) const { throw error(what); }
