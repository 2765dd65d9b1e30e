#include "ChatWorld.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

/// The whole answer of an HTTP server on this machine, with its headers; empty if there is none.
std::string httpGet(int port, const std::string& path) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string answer;
    if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        const std::string request = "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
        static_cast<void>(!write(socket, request.data(), request.size()));
        char bytes[4096];
        for (ssize_t count = 0; (count = read(socket, bytes, sizeof bytes)) > 0;)
            answer.append(bytes, static_cast<std::size_t>(count));
    }
    close(socket);
    return answer;
}

}  // namespace

bool eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() +
                     std::chrono::duration_cast<std::chrono::steady_clock::duration>(Process::patience);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        poll(nullptr, 0, 20);
    }
    return true;
}

ChatWorld::ChatWorld() {
    // Writing to a program that has ended must not end the test.
    std::signal(SIGPIPE, SIG_IGN);
    const auto at = [&](const char* name) {
        fs::create_directories(folder.path / name);
        return (folder.path / name).string();
    };
    environment = {{"HOME", at("home")},
                   {"XDG_DATA_HOME", at("xdg-data")},
                   {"XDG_CACHE_HOME", at("xdg-cache")},
                   {"XDG_STATE_HOME", at("xdg-state")},
                   {"LC_ALL", "C.UTF-8"},
                   {"PATH", "/usr/bin:/bin"},
                   {"VIMBLE_SECRET_PASSPHRASE", "open sesame"}};
    for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"})
        if (const char* value = std::getenv(name)) environment[name] = value;
}

Process::Start ChatWorld::clientStart(const std::string& name, std::vector<std::string> arguments) const {
    fs::create_directories(folder.path / name);
    Process::Start start;
    start.command = {TERMINAL_PROGRAM, "--data-dir", dataFolder(name).string(), "--secret-file",
                     secretFile(name).string()};
    start.command.insert(start.command.end(), arguments.begin(), arguments.end());
    start.environment = environment;
    return start;
}

std::unique_ptr<Process> ChatWorld::client(const std::string& name, std::vector<std::string> arguments) {
    arguments.push_back("--server");
    arguments.push_back(server());
    return std::make_unique<Process>(clientStart(name, std::move(arguments)));
}

int ChatWorld::run(const Process::Start& start, std::string* output, std::string* errors) {
    Process process(start);
    process.closeInput();
    const int status = process.wait().value_or(-1);
    if (output) *output = process.output();
    if (errors) *errors = process.errors();
    return status;
}

std::string ChatWorld::key(const std::string& name) {
    std::string text, errors;
    EXPECT_EQ(run(clientStart(name, {"--public-key"}), &text, &errors), 0) << errors;
    EXPECT_EQ(text.size(), 65u) << text;
    if (!text.empty()) text.pop_back();
    return text;
}

void ChatWorld::startRelay() {
    Process::Start start;
    start.command = {RELAY_PROGRAM, "serve",
                     "--listen",    "127.0.0.1:" + std::to_string(port),
                     "--database",  (folder.path / "relay.db").string()};
    start.environment = environment;
    relay = std::make_unique<Process>(start);
    const auto line = relay->lineThatBegins("vimble-relay listening on ");
    ASSERT_TRUE(line);
    port = std::stoi(line->substr(line->rfind(':') + 1));
}

void ChatWorld::admit(const std::string& name, bool isAdmin) { admitKey(key(name), isAdmin); }

void ChatWorld::admitKey(const std::string& key, bool isAdmin) {
    Process::Start start;
    start.command = {RELAY_PROGRAM, "add", key, "--database", (folder.path / "relay.db").string()};
    if (isAdmin) start.command.emplace_back("--admin");
    start.environment = environment;
    std::string errors;
    ASSERT_EQ(run(start, nullptr, &errors), 0) << errors;
}

std::optional<long> ChatWorld::counted(std::string_view name) {
    const std::string text = httpGet(port, "/metrics");
    const std::string beginning = "\nvimble_relay_" + std::string(name) + " ";
    const std::size_t at = text.find(beginning);
    if (at == std::string::npos) return std::nullopt;
    return std::stol(text.substr(at + beginning.size()));
}

bool ChatWorld::waitForCount(std::string_view name, long wanted) {
    return eventually([&] { return counted(name) >= wanted; });
}

std::map<std::string, std::string> ChatWorld::snapshot(const std::string& name) const {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder.path / name)) {
        // A running program may rename or remove a file that was just listed.
        std::error_code gone;
        const auto time = fs::last_write_time(entry.path(), gone);
        if (gone) continue;
        std::string contents;
        if (entry.is_regular_file(gone)) {
            std::ifstream file(entry.path());
            contents.assign(std::istreambuf_iterator<char>(file), {});
        }
        contents += " @ " + std::to_string(time.time_since_epoch().count());
        files[entry.path().string()] = contents;
    }
    return files;
}

bool ChatWorld::isSaved(const std::string& name, const std::string& text) const {
    for (const auto& [path, contents] : snapshot(name))
        if (contents.find(text) != std::string::npos) return true;
    return false;
}
