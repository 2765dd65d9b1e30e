#include "StateKit/Disk.h"
#include "TestSupport/TemporaryFolder.h"
#include "VimbleKit/DomainJson.h"
#include "VimbleKit/State.h"

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <simdjson.h>

namespace {

constexpr std::size_t messageCount = 100000;
const std::string url = "https://chat.example.org";

/// A state with one conversation that has all the messages, each of 100 characters.
State longState() {
    const std::string partner(64, 'a');
    const std::string own(64, 'b');
    const std::string text =
        "Shall we meet at the lake at seven, or is that too late for you and the children? Tell me before six";
    State state;
    state.publicKey = own;
    state.endpoint = Endpoint(url);
    state.connection = Connection::offline;
    state.people.set(partner, {partner, "Ann", "🦊", false, false});
    state.conversations.update(partner, [&](Chat& chat) {
        for (std::size_t i = 0; i < messageCount; ++i)
            chat.messages.push_back({i % 2 ? own : partner, text, {816000000.123 + static_cast<double>(i) * 17.371}});
    });
    return state;
}

/// The folder of a saved state, and the file in it that holds nearly all of it.
struct SavedState {
    SavedState() { longState().save(folder.path); }

    std::filesystem::path conversations() const {
        return Disk(folder.path, url).file<SharedMap<std::string, Chat>>("Conversations");
    }

    TemporaryFolder folder;
};

void loadState(benchmark::State& state) {
    const SavedState saved;
    for (auto _ : state) {
        const State loaded = State::load(saved.folder.path, Endpoint(url));
        if (loaded.conversations.begin()->second.messages.size() != messageCount)
            state.SkipWithError("not all came back");
    }
}

/// The same records, read by the library alone.
struct PlainChat {
    std::vector<Message> messages;
    std::int64_t readCount = 0;
};

void loadPlain(benchmark::State& state) {
    const SavedState saved;
    const std::string path = saved.conversations().string();
    for (auto _ : state) {
        std::FILE* file = std::fopen(path.c_str(), "rb");
        std::fseek(file, 0, SEEK_END);
        const auto size = static_cast<std::size_t>(std::ftell(file));
        std::rewind(file);
        simdjson::padded_string text(size);
        if (std::fread(text.data(), 1, size, file) != size) state.SkipWithError("the file is short");
        std::fclose(file);
        simdjson::ondemand::parser parser;
        simdjson::ondemand::document document = parser.iterate(text);
        std::vector<std::pair<std::string, PlainChat>> chats;
        for (auto conversation : document.get_object()) {
            auto& [key, chat] = chats.emplace_back();
            key = std::string_view(conversation.unescaped_key());
            simdjson::ondemand::object object = conversation.value().get_object();
            for (auto element : object["messages"].get_array()) {
                simdjson::ondemand::object record = element.get_object();
                Message& message = chat.messages.emplace_back();
                message.author = std::string_view(record["author"]);
                message.text = std::string_view(record["text"]);
                message.timestamp.sinceReference = record["timestamp"];
            }
            chat.readCount = object["readCount"];
        }
        if (chats.front().second.messages.size() != messageCount) state.SkipWithError("not all came back");
    }
}

void saveState(benchmark::State& state) {
    const TemporaryFolder folder;
    const State wanted = longState();
    for (auto _ : state) wanted.save(folder.path);
}

void savePlain(benchmark::State& state) {
    const TemporaryFolder folder;
    const State wanted = longState();
    const std::string path = (folder.path / "plain.json").string();
    for (auto _ : state) {
        rapidjson::StringBuffer buffer;
        rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
        writer.SetIndent(' ', 2);
        writer.StartObject();
        for (const auto& [key, chat] : wanted.conversations) {
            writer.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
            writer.StartObject();
            writer.Key("messages");
            writer.StartArray();
            for (const Message& message : chat.messages) {
                writer.StartObject();
                writer.Key("author");
                writer.String(message.author.data(), static_cast<rapidjson::SizeType>(message.author.size()));
                writer.Key("text");
                writer.String(message.text.data(), static_cast<rapidjson::SizeType>(message.text.size()));
                writer.Key("timestamp");
                writer.Double(message.timestamp.sinceReference);
                writer.EndObject();
            }
            writer.EndArray();
            writer.Key("readCount");
            writer.Int64(chat.readCount);
            writer.EndObject();
        }
        writer.EndObject();
        std::FILE* file = std::fopen(path.c_str(), "wb");
        if (std::fwrite(buffer.GetString(), 1, buffer.GetSize(), file) != buffer.GetSize())
            state.SkipWithError("the file was not written");
        std::fclose(file);
    }
}

BENCHMARK(loadState)->Unit(benchmark::kMillisecond);
BENCHMARK(loadPlain)->Unit(benchmark::kMillisecond);
BENCHMARK(saveState)->Unit(benchmark::kMillisecond);
BENCHMARK(savePlain)->Unit(benchmark::kMillisecond);

}  // namespace
