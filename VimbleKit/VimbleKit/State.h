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
    Chat room;                                   // the chat that everybody shares
    SharedMap<std::string, Chat> conversations;  // direct chats, by the other's key; never removed

    /// Reads what is on disk for the given server, or else for the last one in use. A field that can't be
    /// read is as in a fresh state, and its file is set aside if it is damaged. The caller must fill in
    /// the user's key. `online` is read as `offline`: the user still wants the link, but it is gone.
    /// @param folder  the application's folder
    [[nodiscard]] static State load(const std::filesystem::path& folder, const std::optional<Endpoint>& endpoint);

    /// Writes everything but the key; without an endpoint, only the fact that there is none.
    /// @throws DiskError, std::filesystem::filesystem_error  the first failure; later files stay as they were
    void save(const std::filesystem::path& folder) const;

    /// The user's own entry in `people`; null until the server's list has included them. Valid until
    /// `people` changes.
    const Person* me() const;

    /// Everybody, those who are online first, then by display name and key.
    std::vector<Person> roster() const;

    /// A value by a key that may be absent.
    template <class Value>
    static const Value* lookup(const SharedMap<std::string, Value>& map, const std::optional<std::string>& key) {
        return key ? map.find(*key) : nullptr;
    }

    /// The values of those keys that the map has, in the order of the keys.
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
