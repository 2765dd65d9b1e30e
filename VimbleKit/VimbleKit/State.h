#pragma once

#include "StateKit/SharedMap.h"
#include "VimbleKit/Chat.h"
#include "VimbleKit/Connection.h"
#include "VimbleKit/Endpoint.h"
#include "VimbleKit/Person.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// All that the engine remembers: a value whose copies share their large parts.
struct State {
    std::string publicKey;             // the user's own, in text form; never stored
    std::optional<Endpoint> endpoint;  // absent until the user has chosen a server
    Connection connection = Connection::setup;
    SharedMap<std::string, Person> people;       // everybody whom the server lists, by public key
    Chat room;                                   // the one that all share
    SharedMap<std::string, Chat> conversations;  // direct ones, by the other's key; never removed

    /// What lies on disk for the given server, or for the last one in use. What can't be read leaves
    /// its field as it is in a fresh state, and its file is set aside if it is damaged; the user's key
    /// is the caller's to fill in. No link survives a restart, and the wish to be connected does.
    /// @param folder  the application's folder
    static State load(const std::filesystem::path& folder, const std::optional<Endpoint>& endpoint);

    /// Writes everything but the key; without a server, only that there is none.
    /// @throws DiskError, std::filesystem::filesystem_error  the first failure; later files stay as they were
    void save(const std::filesystem::path& folder) const;

    /// The user's own entry in `people`; null until the server's list has included them. Holds until
    /// `people` changes.
    const Person* me() const;

    /// Everybody, those who are online first, then by display name and key.
    std::vector<Person> roster() const;

    /// A value by a key that may be absent.
    template <class Value>
    static const Value* lookup(const SharedMap<std::string, Value>& map, const std::optional<std::string>& key) {
        return key ? map.find(*key) : nullptr;
    }

    /// The values that there are for some keys, in the keys' order.
    template <class Value>
    static std::vector<Value> lookup(const SharedMap<std::string, Value>& map,
                                     const std::optional<std::vector<std::string>>& keys) {
        std::vector<Value> values;
        if (!keys) return values;
        for (const std::string& key : *keys)
            if (const Value* value = map.find(key)) values.push_back(*value);
        return values;
    }

    bool operator==(const State&) const = default;
};
