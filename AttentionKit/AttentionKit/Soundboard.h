#pragma once

#include "AttentionKit/SoundPlayer.h"
#include "StateKit/MainLoop.h"

#include <optional>
#include <string_view>

/// The application's three sounds.
///
/// Each sound is started at most once within `interval`: after a reconnection a whole list of people may come
/// online at once, and a hundred sounds on top of each other are a noise.
///
/// Main thread only. Loop and player must outlive it.
class Soundboard {
public:
    static constexpr Seconds interval = 0.5;

    Soundboard(const MainLoop& loop, SoundPlayer& player) : loop(loop), player(player) {}

    /// For a message.
    void playChat() { play(chat); }
    /// For somebody who came online.
    void playJoin() { play(join); }
    /// For a message that contains the user's name.
    void playMention() { play(mention); }

private:
    struct Sound {
        std::string_view name;
        std::optional<Date> begun = {};
    };

    void play(Sound& sound);

    const MainLoop& loop;
    SoundPlayer& player;
    Sound chat{"chat"};
    Sound join{"join"};
    Sound mention{"mention"};
};
