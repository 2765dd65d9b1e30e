#pragma once

#include "Process.h"
#include "TestSupport/TemporaryFolder.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// A relay and its users, each a program of its own, in a folder that is removed with this object.
class ChatWorld {
public:
    ChatWorld();

    /// Asks the terminal client for a user's key. The first call for a name makes that user's identity.
    /// @return the public key
    std::string key(const std::string& name);

    std::filesystem::path dataFolder(const std::string& name) const { return folder.path / name / "data"; }
    std::filesystem::path secretFile(const std::string& name) const { return folder.path / name / "secret.sealed"; }

    /// Starts the relay. Every later start uses the port of the first.
    void startRelay();
    void admit(const std::string& name, bool isAdmin = false);
    void admitKey(const std::string& key, bool isAdmin = false);
    /// The value of the relay's metric `vimble_relay_NAME`; nothing if the relay does not answer with one.
    std::optional<long> counted(std::string_view name);
    /// Asks until the metric is at least `wanted`. @return whether it ever was
    bool waitForCount(std::string_view name, long wanted);

    /// How a terminal client is started. `client` starts one, and adds --server.
    Process::Start clientStart(const std::string& name, std::vector<std::string> arguments = {}) const;
    std::unique_ptr<Process> client(const std::string& name, std::vector<std::string> arguments = {});

    std::string server() const { return "http://127.0.0.1:" + std::to_string(port); }

    /// Runs something to its end. @return its exit status
    int run(const Process::Start& start, std::string* output = nullptr, std::string* errors = nullptr);

    /// Every file below a user's folder, with its contents and its time. While the user's program runs, a file that
    /// is just being replaced may be missing.
    std::map<std::string, std::string> snapshot(const std::string& name) const;

    /// Whether any file below a user's folder holds a text.
    bool isSaved(const std::string& name, const std::string& text) const;

    TemporaryFolder folder;
    std::map<std::string, std::string> environment;
    std::unique_ptr<Process> relay;
    int port = 0;
};

/// Asks again and again until the condition holds, for `Process::patience`. @return whether it ever did
bool eventually(const std::function<bool()>& condition);
