#pragma once

#include "StateKit/Date.h"
#include "VimbleKit/State.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

/// What a machine's history must be, worked out from what its client was told, and from when it saves.
///
/// The client writes two seconds after the last change of a burst, or at the first change that finds an
/// unwritten one more than 30 seconds old. When the process is killed, the changes since are lost, and
/// nothing else is.
class ExpectedHistory {
public:
    struct Text {
        std::string author;
        std::string text;
        bool operator==(const Text&) const = default;
    };
    using Texts = std::vector<Text>;

    /// A text that the client is about to take in, or to send.
    void room(Text text) { present.room.push_back(std::move(text)); }
    void conversation(const std::string& key, Text text) { present.conversations[key].push_back(std::move(text)); }

    /// The state has been published.
    void changed(const State& state, Date now);
    /// The state was saved on demand.
    void saved(const State& state, Date now);
    /// The client goes to another server, and loads what is on the disk for that one.
    void serverChanged(const std::string& server);
    /// The process was killed: what was not written is gone.
    void killed(Date now);
    /// Whether a client that starts now wishes to be connected.
    bool wishesLink() const { return present.wishesLink; }

    /// In what the client's state differs from this; nothing if it does not.
    std::optional<std::string> difference(const State& state) const;

private:
    struct History {
        Texts room;
        std::map<std::string, Texts> conversations;
        bool wishesLink = false;
    };
    void settle(Date now);
    void write(const State& state);

    History present;
    std::string server;  // empty: none chosen
    std::map<std::string, History> disk;
    std::string serverOnDisk;

    std::optional<Date> firstUnwritten;
    Date lastChange;
    State lastState;
};
