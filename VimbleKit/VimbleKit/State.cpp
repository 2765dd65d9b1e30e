#include "VimbleKit/State.h"

#include "StateKit/Disk.h"
#include "StateKit/Log.h"
#include "VimbleKit/DomainJson.h"

#include <algorithm>
#include <utility>

namespace {

const std::string sharedStore = "app";
const Log kitLog("zorvane.VimbleKit", "Kit");

/// Loads one value into its variable, which is unchanged if that fails. A file that is there but can't be
/// read is set aside, since the next save would replace it.
template <class Type>
void loadField(const Disk& disk, Type& variable, const std::string& key) {
    try {
        disk.load(variable, key);
    } catch (const DiskError& error) {
        if (error.isMissing) return;
        kitLog.error(error.what());
        if (const auto kept = disk.setAside<Type>(key)) kitLog.error("The file is kept as " + kept->string());
    }
}

}  // namespace

State State::load(const std::filesystem::path& folder, const std::optional<Endpoint>& endpoint) {
    State state;
    state.endpoint = endpoint;
    if (!endpoint) loadField(Disk(folder, sharedStore), state.endpoint, "Endpoint");
    if (state.endpoint) {
        const Disk disk(folder, state.endpoint->url());
        loadField(disk, state.connection, "Connection");
        loadField(disk, state.people, "People");
        loadField(disk, state.room, "Room");
        loadField(disk, state.conversations, "Conversations");
    }
    if (state.connection == Connection::online) state.connection = Connection::offline;
    return state;
}

void State::save(const std::filesystem::path& folder) const {
    Disk(folder, sharedStore).save(endpoint, "Endpoint");
    if (!endpoint) return;
    const Disk disk(folder, endpoint->url());
    disk.save(connection, "Connection");
    disk.save(people, "People");
    disk.save(room, "Room");
    disk.save(conversations, "Conversations");
}

const Person* State::me() const { return people.find(publicKey); }

std::vector<Person> State::roster() const {
    struct Row {
        std::string displayName;
        const Person* person;
    };
    std::vector<Row> rows;
    rows.reserve(people.size());
    for (const auto& [key, person] : people) rows.push_back({person.displayName(), &person});
    // Comparing bytes of UTF-8 compares code points: without a locale, and without case folding.
    std::sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) {
        if (a.person->isOnline != b.person->isOnline) return a.person->isOnline;
        if (a.displayName != b.displayName) return a.displayName < b.displayName;
        return a.person->publicKey < b.person->publicKey;
    });
    std::vector<Person> people;
    people.reserve(rows.size());
    for (const Row& row : rows) people.push_back(*row.person);
    return people;
}
