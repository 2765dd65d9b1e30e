#pragma once

#include "Base/Bytes.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// Why the Secret Service did not do what it was asked.
struct SecretServiceFailure {
    enum class Kind {
        dismissed,     // a prompt was dismissed, or none could be shown
        locked,        // the service refuses, since it is locked
        notAvailable,  // no bus, nobody provides the service, or no answer in time
        refused,
        unreadable,  // an answer that makes no sense
        internal
    };

    Kind kind;
    std::string why;  // one line
};

/// One look at the Secret Service through libsecret. This header names no type of libsecret, since some,
/// such as `SecretItem`, have the names of our own.
///
/// libsecret refreshes what it remembers of the service (collections, locks, attributes) only in an event
/// loop, which our calls do not run, so a client is made for each operation, and a new one after an unlock.
/// All calls block, and throw `SecretServiceFailure`. A client, and what it gave out, must stay on the
/// thread that made it, and must not outlive a `Scope` on that thread.
class LibsecretClient {
public:
    /// Gives this thread a context of its own in which libsecret delivers the service's reports of changes.
    /// Without it they would be delivered on the main thread, with objects that another thread is using or has
    /// just released. The reports are thrown away. Scopes of one thread must end in the opposite order of
    /// their beginning.
    class Scope {
    public:
        Scope();
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        void* context;  // a GMainContext
    };

    struct Item {
        std::shared_ptr<void> object;  // libsecret's object; shared only by copies of this record
        std::map<std::string, std::string> attributes;
        std::string label;
        std::uint64_t created = 0;  // seconds since 1970
        bool isLocked = false;      // if so, attributes and label may be missing
        std::string path;           // of its object on the bus
    };

    LibsecretClient();
    ~LibsecretClient();
    LibsecretClient(const LibsecretClient&) = delete;
    LibsecretClient& operator=(const LibsecretClient&) = delete;

    /// The items of our schema that have these attributes, locked ones too, the oldest first.
    std::vector<Item> search(const std::map<std::string, std::string>& attributes);

    /// All items of all collections that are not locked, the oldest first, also those of other programs.
    std::vector<Item> list();

    /// libsecret's objects of the locked collections, the default one first.
    std::vector<std::shared_ptr<void>> lockedCollections();

    /// Asks the service to unlock a collection or an item, which may show a prompt.
    /// @param object  of `lockedCollections`, or of an item
    void unlock(const std::shared_ptr<void>& object);

    /// The secret of an unlocked item; the caller must wipe it.
    Bytes load(const Item& item);
    void setData(const Item& item, ByteView data);
    void remove(const Item& item);

    /// Stores a new item in the default collection, which is made if there is none. @return its path
    std::string create(const std::map<std::string, std::string>& attributes, const std::string& label, ByteView data);

private:
    struct Connection;
    std::unique_ptr<Connection> connection;
};
