#pragma once

#include <QDBusConnection>

#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// A session bus for one test, which starts services on demand. It ends with this object.
class PrivateBus {
public:
    /// @param folder  takes the bus's files; `data` in it is the bus's $XDG_DATA_HOME, `log` gets what the bus and its
    ///        services write
    /// @param user  the user whose bus it is; absent: the test's
    explicit PrivateBus(const std::filesystem::path& folder, std::optional<uid_t> user = {});
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& address() const { return _address; }
    std::filesystem::path dataHome() const { return folder / "data"; }
    /// A connection for the test itself.
    QDBusConnection connection();

    /// The process behind a name. Starts no service.
    std::optional<pid_t> processOf(const std::string& name);

    /// What was written to the log until now.
    std::string log() const;
    std::vector<std::string> logLines(const std::string& word) const;

    /// Ends the bus at once.
    void kill();

private:
    const std::filesystem::path folder;
    pid_t process = -1;
    std::string _address;
    QString connectionName;
};
