#pragma once

#include "StateKit/Date.h"
#include "VimbleKit/State.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

/// What a machine's history must be: worked out from what its client was told, and from when it saves.
///
/// The client writes two seconds after the last change of a burst, or with the first change that finds
/// one more than 30 seconds old unwritten; what came since is lost when the process is killed, and
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
    /// It was saved on demand.
    void saved(const State& state, Date now);
    /// The client goes to another server: what is on the disk for that one is what it has now.
    void serverChanged(const std::string& server);
    /// The process has ended without a word: what was not written is gone.
    void killed(Date now);
    /// Whether a client that starts now wishes to be connected.
    bool wishesLink() const { return present.wishesLink; }

    /// In what the client's state differs; nothing if it does not.
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
    std::string server;  // no text: none chosen
    std::map<std::string, History> disk;
    std::string serverOnDisk;

    std::optional<Date> firstUnwritten;
    Date lastChange;
    State lastState;
};
