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

/// A relay and the users of it, each a program of its own, in a folder that goes with the test.
class ChatWorld {
public:
    ChatWorld();

    /// Somebody's own folder of data and sealed file. The first call makes their identity.
    /// @return their public key
    std::string key(const std::string& name);

    std::filesystem::path dataFolder(const std::string& name) const { return folder.path / name / "data"; }
    std::filesystem::path secretFile(const std::string& name) const { return folder.path / name / "secret.sealed"; }

    /// Starts the relay, again on the port of the first time.
    void startRelay();
    void admit(const std::string& name, bool isAdmin = false);
    void admitKey(const std::string& key, bool isAdmin = false);
    /// What the relay counts under that name.
    std::optional<long> counted(std::string_view name);
    /// Asks until the count is as wanted.
    bool waitForCount(std::string_view name, long wanted);

    /// A client, with --server unless told otherwise.
    Process::Start clientStart(const std::string& name, std::vector<std::string> arguments = {}) const;
    std::unique_ptr<Process> client(const std::string& name, std::vector<std::string> arguments = {});

    std::string server() const { return "http://127.0.0.1:" + std::to_string(port); }

    /// Runs something to its end. @return its exit status
    int run(const Process::Start& start, std::string* output = nullptr, std::string* errors = nullptr);

    /// Every file below the folder of somebody, with its contents and its time. While their program runs, one that
    /// is just being replaced may be missing.
    std::map<std::string, std::string> snapshot(const std::string& name) const;

    /// Whether a text stands in any file of somebody's.
    bool isSaved(const std::string& name, const std::string& text) const;

    TemporaryFolder folder;
    std::map<std::string, std::string> environment;
    std::unique_ptr<Process> relay;
    int port = 0;
};

/// Waits until the condition holds, asking again and again. @return whether it ever did
bool eventually(const std::function<bool()>& condition);
