#include "StateKit/Disk.h"
#include "TestSupport/LogLines.h"
#include "TestSupport/TemporaryFolder.h"
#include "VimbleKit/State.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>

namespace {

namespace fs = std::filesystem;

const Endpoint server("https://chat.example.org/base");

std::string contents(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write(const fs::path& path, std::string_view text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

State sample() {
    State state;
    state.publicKey = "own";
    state.endpoint = server;
    state.connection = Connection::offline;
    state.people = {{"a", {"a", "Ada", "🦊", true, false}}, {"b", {"b", "", "", false, false}}};
    state.room = {{{"a", "to all", {1.5}}, {"own", "yes", {2.5}}}, 1};
    state.conversations = {{"a", {{{"a", "to you", {3.25}}}, 0}}};
    return state;
}

class StateTest : public testing::Test {
protected:
    fs::path file(const std::string& name) const { return folder.path / "https…chat.example.org" / "base" / name; }

    /// What was loaded, with the key that isn't stored.
    State loaded(const std::optional<Endpoint>& endpoint = {}) const {
        State state = State::load(folder.path, endpoint);
        EXPECT_EQ(state.publicKey, "");
        state.publicKey = "own";
        return state;
    }

    TemporaryFolder folder;
    LogLines log;
};

TEST_F(StateTest, WithNothingOnDiskAFreshStateComesUp) {
    EXPECT_EQ(State::load(folder.path, {}), State());
    State fresh;
    fresh.endpoint = server;
    EXPECT_EQ(State::load(folder.path, server), fresh);
    EXPECT_EQ(fresh.connection, Connection::setup);
    EXPECT_TRUE(log.take().empty());
    EXPECT_TRUE(fs::is_empty(folder.path));
}

TEST_F(StateTest, WhatWasSavedIsLoaded) {
    sample().save(folder.path);
    EXPECT_EQ(loaded(), sample());
    EXPECT_EQ(loaded(server), sample());
}

TEST_F(StateTest, EveryFieldHasAFileOfItsOwn) {
    sample().save(folder.path);
    EXPECT_TRUE(fs::exists(folder.path / "app" / "Endpoint.json"));
    for (const char* name : {"Connection.json", "People.json", "Room.json", "Conversations.json"})
        EXPECT_TRUE(fs::exists(file(name))) << name;
}

TEST_F(StateTest, BeingOnlineIsStoredOfNobody) {
    State state = sample();
    state.people.update("a", [](Person& person) { person.isOnline = true; });
    EXPECT_NE(state, sample());
    state.save(folder.path);
    EXPECT_EQ(contents(file("People.json")).find("isOnline"), std::string::npos);
    EXPECT_EQ(loaded(), sample());
}

TEST_F(StateTest, NoLinkSurvivesButTheWishDoes) {
    State state = sample();
    state.connection = Connection::online;
    state.save(folder.path);
    EXPECT_EQ(loaded().connection, Connection::offline);
    state.connection = Connection::setup;
    state.save(folder.path);
    EXPECT_EQ(loaded().connection, Connection::setup);
}

TEST_F(StateTest, WithoutAServerOnlyThatIsWritten) {
    sample().save(folder.path);
    State none = sample();
    none.endpoint.reset();
    none.room = {};
    none.save(folder.path);
    EXPECT_FALSE(fs::exists(folder.path / "app" / "Endpoint.json"));
    EXPECT_EQ(State::load(folder.path, {}), State());
    EXPECT_EQ(loaded(server), sample());
}

TEST_F(StateTest, EachServerHasItsOwn) {
    sample().save(folder.path);
    State other;
    other.publicKey = "own";
    other.endpoint = Endpoint("http://localhost:8080");
    other.room.messages.push_back({"x", "elsewhere", {9}});
    other.save(folder.path);
    EXPECT_EQ(loaded(), other);
    EXPECT_EQ(loaded(server), sample());
}

TEST_F(StateTest, ADamagedFileLosesOnlyItsOwnPartAndIsKept) {
    const struct {
        const char* name;
        void (*forget)(State&);
    } rows[] = {{"Connection", [](State& s) { s.connection = Connection::setup; }},
                {"People", [](State& s) { s.people = {}; }},
                {"Room", [](State& s) { s.room = {}; }},
                {"Conversations", [](State& s) { s.conversations = {}; }}};
    for (const auto& row : rows) {
        const std::string name = std::string(row.name) + ".json";
        sample().save(folder.path);
        const std::string whole = contents(file(name));
        const std::string cut = whole.substr(0, whole.size() / 2);
        write(file(name), cut);

        State expected = sample();
        row.forget(expected);
        EXPECT_EQ(loaded(), expected) << row.name;
        EXPECT_EQ(contents(file(name + ".damaged")), cut);
        EXPECT_FALSE(fs::exists(file(name)));
        const auto lines = log.take();
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_THAT(lines[0], testing::HasSubstr("error zorvane.VimbleKit/Kit: Could not decode value"));
        EXPECT_THAT(lines[1], testing::HasSubstr(name + ".damaged"));

        // The next save does not touch what was kept.
        expected.save(folder.path);
        EXPECT_EQ(loaded(), expected);
        EXPECT_EQ(contents(file(name + ".damaged")), cut);
    }
}

TEST_F(StateTest, ASecondDamagedFileDoesNotReplaceTheFirst) {
    for (const char* text : {"first", "second", "third"}) {
        sample().save(folder.path);
        write(file("Room.json"), text);
        loaded();
    }
    EXPECT_EQ(contents(file("Room.json.damaged")), "first");
    EXPECT_EQ(contents(file("Room.json.damaged.2")), "second");
    EXPECT_EQ(contents(file("Room.json.damaged.3")), "third");
}

TEST_F(StateTest, ADamagedServerLeavesNoneAndIsKept) {
    sample().save(folder.path);
    write(folder.path / "app" / "Endpoint.json", R"({"url":"not a url"})");
    EXPECT_EQ(State::load(folder.path, {}), State());
    EXPECT_TRUE(fs::exists(folder.path / "app" / "Endpoint.json.damaged"));
    EXPECT_EQ(loaded(server), sample());
}

TEST_F(StateTest, ARecordWithoutItsRequiredKeysIsDamaged) {
    sample().save(folder.path);
    write(file("Room.json"), R"({"messages":[]})");
    State expected = sample();
    expected.room = {};
    EXPECT_EQ(loaded(), expected);
    EXPECT_TRUE(fs::exists(file("Room.json.damaged")));
}

TEST_F(StateTest, TheFirstFailureOfASaveIsThrownAndLaterFilesStay) {
    sample().save(folder.path);
    fs::remove(file("People.json"));
    fs::create_directory(file("People.json"));  // can't be replaced by a file
    State changed = sample();
    changed.connection = Connection::setup;
    changed.room.readCount = 2;
    EXPECT_THROW(changed.save(folder.path), DiskError);
    State now = loaded();
    EXPECT_EQ(now.connection, Connection::setup);
    EXPECT_EQ(now.room, sample().room);
    EXPECT_EQ(now.conversations, sample().conversations);
}

TEST_F(StateTest, StatesThatDifferInOneFieldDiffer) {
    const State base = sample();
    const std::function<void(State&)> changes[] = {
        [](State& s) { s.publicKey = "x"; },
        [](State& s) { s.endpoint.reset(); },
        [](State& s) { s.connection = Connection::online; },
        [](State& s) { s.people.update("a", [](Person& p) { p.isOnline = true; }); },
        [](State& s) { s.room.readCount = 7; },
        [](State& s) { s.conversations.update("a", [](Chat& c) {
                           c.messages.push_back({"a", "", {0}});
                       }); },
    };
    for (const auto& change : changes) {
        State other = base;
        EXPECT_EQ(other, base);
        change(other);
        EXPECT_NE(other, base);
    }
}

TEST_F(StateTest, MeIsTheEntryUnderTheOwnKey) {
    State state = sample();
    EXPECT_EQ(state.me(), nullptr);
    state.publicKey = "a";
    ASSERT_NE(state.me(), nullptr);
    EXPECT_EQ(state.me()->name, "Ada");
    EXPECT_EQ(State().me(), nullptr);
}

TEST_F(StateTest, LookingUpTakesWhatThereIs) {
    const State state = sample();
    EXPECT_EQ(State::lookup(state.people, std::optional<std::string>()), nullptr);
    EXPECT_EQ(State::lookup(state.people, std::optional<std::string>("zz")), nullptr);
    EXPECT_EQ(State::lookup(state.people, std::optional<std::string>("a"))->name, "Ada");
    EXPECT_TRUE(State::lookup(state.people, std::optional<std::vector<std::string>>()).empty());
    const auto found = State::lookup(state.people, std::optional(std::vector<std::string>{"b", "zz", "a", "b"}));
    ASSERT_EQ(found.size(), 3u);
    EXPECT_EQ(found[0].publicKey + found[1].publicKey + found[2].publicKey, "bab");
}

// ---- the roster

std::vector<std::string> rosterKeys(const std::vector<Person>& people) {
    State state;
    for (const Person& person : people) state.people.set(person.publicKey, person);
    std::vector<std::string> keys;
    for (const Person& person : state.roster()) keys.push_back(person.publicKey);
    return keys;
}

TEST(RosterTest, NobodyMakesAnEmptyRoster) { EXPECT_TRUE(rosterKeys({}).empty()); }

TEST(RosterTest, WhoIsOnlineStandsFirst) {
    EXPECT_EQ(rosterKeys({{"1", "A", "", false, false}, {"2", "Z", "", false, true}}),
              (std::vector<std::string>{"2", "1"}));
    EXPECT_EQ(rosterKeys({{"1", "A", "", false, false}, {"2", "A", "", false, true}}),
              (std::vector<std::string>{"2", "1"}));
}

TEST(RosterTest, NamesStandInPlainOrderCapitalsFirst) {
    EXPECT_EQ(rosterKeys({{"1", "a", "", false, true}, {"2", "Z", "", false, true}, {"3", "é", "", false, true}}),
              (std::vector<std::string>{"2", "1", "3"}));
}

TEST(RosterTest, EqualNamesStandByKey) {
    EXPECT_EQ(rosterKeys({{"2", "A", "", false, false}, {"1", "A", "", false, false}}),
              (std::vector<std::string>{"1", "2"}));
}

TEST(RosterTest, TheAnonymousStandAmongTheNames) {
    EXPECT_EQ(rosterKeys({{"cccccccc", "", "", false, true},
                          {"1", "anonymous", "", false, true},
                          {"2", "anonymousd", "", false, true},
                          {"3", "b", "", false, true},
                          {"4", "Ann", "", false, true}}),
              (std::vector<std::string>{"4", "1", "cccccccc", "2", "3"}));
}

bool standsBefore(const Person& a, const Person& b) {
    if (a.isOnline != b.isOnline) return a.isOnline;
    if (a.displayName() != b.displayName()) return a.displayName() < b.displayName();
    return a.publicKey < b.publicKey;
}

TEST(RosterTest, TheOrderIsTotal) {
    const unsigned seed = 20260801;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::vector<std::string> names{"", "", "A", "a", "Ä", "anonymous00", "B"};
    for (int round = 0; round < 50; ++round) {
        State state;
        const std::size_t count = random() % 40;
        for (std::size_t i = 0; i < count; ++i) {
            const std::string key = "00000" + std::to_string(random() % 1000);
            state.people.set(key, {key, names[random() % names.size()], "", random() % 2 == 0, random() % 2 == 0});
        }
        const auto roster = state.roster();
        ASSERT_EQ(roster.size(), state.people.size());
        for (std::size_t i = 0; i < roster.size(); ++i) {
            EXPECT_EQ(*state.people.find(roster[i].publicKey), roster[i]);
            for (std::size_t j = 0; j < roster.size(); ++j)
                EXPECT_EQ(standsBefore(roster[i], roster[j]), i < j)
                    << roster[i].publicKey << " " << roster[j].publicKey;
        }
    }
}

// ---- copies

TEST(StateCopyTest, ACommitToALongConversationCopiesNoneOfIt) {
    State state;
    Chat chat;
    for (int i = 0; i < 100000; ++i) chat.messages.push_back({"a", std::to_string(i), {double(i)}});
    state.conversations.set("a", chat);
    state.conversations.set("b", chat);
    state.room = chat;
    state.people.set("a", {"a", "Ada", "", false, false});
    chat = {};

    const State before = state;
    State after = before;
    after.conversations.update("a", [](Chat& changed) { changed.messages.push_back({"a", "new", {0}}); });

    const auto& old = before.conversations.find("a")->messages;
    const auto& now = after.conversations.find("a")->messages;
    EXPECT_EQ(old.size(), 100000u);
    EXPECT_EQ(now.size(), 100001u);
    EXPECT_EQ(now.sharedBeginning(old), 100000u);
    EXPECT_EQ(&now[0], &old[0]);
    EXPECT_EQ(&now[99999], &old[99999]);
    EXPECT_EQ(before.conversations.find("b"), after.conversations.find("b"));
    EXPECT_EQ(before.people.find("a"), after.people.find("a"));
    EXPECT_EQ(&before.room.messages[5], &after.room.messages[5]);
}

TEST(StateCopyTest, RandomOperationsAgreeWithAPlainModel) {
    struct Model {
        std::map<std::string, Person> people;
        std::map<std::string, std::pair<std::vector<Message>, std::int64_t>> conversations;
        std::pair<std::vector<Message>, std::int64_t> room;
    };
    const auto agrees = [](const State& state, const Model& model) {
        const auto isSame = [](const Chat& chat, const std::pair<std::vector<Message>, std::int64_t>& plain) {
            return chat.readCount == plain.second &&
                   std::equal(chat.messages.begin(), chat.messages.end(), plain.first.begin(), plain.first.end());
        };
        if (state.people.size() != model.people.size() || state.conversations.size() != model.conversations.size() ||
            !isSame(state.room, model.room))
            return false;
        for (const auto& [key, person] : model.people)
            if (!state.people.find(key) || *state.people.find(key) != person) return false;
        for (const auto& [key, plain] : model.conversations)
            if (!state.conversations.find(key) || !isSame(*state.conversations.find(key), plain)) return false;
        return true;
    };

    const unsigned seed = 4711;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto someKey = [&] { return "k" + std::to_string(random() % 60); };
    // A few branches: each was copied from another at some time, and has been changed by itself since.
    std::vector<std::pair<State, Model>> branches(1);
    for (int step = 0; step < 4000; ++step) {
        auto& [state, model] = branches[random() % branches.size()];
        const std::string key = someKey();
        const Message message{key, std::to_string(step), {double(step)}};
        switch (random() % 8) {
            case 0: {
                const Person person{key, std::to_string(step), "", step % 2 == 0, step % 3 == 0};
                state.people.set(key, person);
                model.people[key] = person;
                break;
            }
            case 1: EXPECT_EQ(state.people.erase(key), model.people.erase(key) == 1); break;
            case 2:
                EXPECT_EQ(state.people.updateExisting(key, [&](Person& person) { person.name = "n"; }),
                          model.people.contains(key));
                if (model.people.contains(key)) model.people[key].name = "n";
                break;
            case 3:
            case 4:
                state.conversations.update(key, [&](Chat& chat) { chat.messages.push_back(message); });
                model.conversations[key].first.push_back(message);
                break;
            case 5:
                state.room.messages.push_back(message);
                model.room.first.push_back(message);
                break;
            case 6:
                state.room.readCount = static_cast<std::int64_t>(state.room.messages.size());
                model.room.second = static_cast<std::int64_t>(model.room.first.size());
                break;
            case 7:
                if (branches.size() < 5) {
                    branches.push_back(std::pair(branches[random() % branches.size()]));
                } else if (random() % 4 == 0) {
                    const auto from = branches[random() % branches.size()];
                    branches[random() % branches.size()] = from;
                }
                break;
        }
        if (step % 50 != 0) continue;
        for (const auto& [branch, plain] : branches) ASSERT_TRUE(agrees(branch, plain)) << "step " << step;
    }
    for (const auto& [branch, plain] : branches) {
        ASSERT_TRUE(agrees(branch, plain));
        for (const auto& [other, otherPlain] : branches)
            EXPECT_EQ(branch == other, plain.people == otherPlain.people && plain.room == otherPlain.room &&
                                           plain.conversations == otherPlain.conversations);
    }
}

}  // namespace
