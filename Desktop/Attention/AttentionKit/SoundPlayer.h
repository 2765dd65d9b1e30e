#pragma once

#include <string_view>

/// Plays the application's sounds. Main thread only.
class SoundPlayer {
public:
    virtual ~SoundPlayer() = default;

    /// Begins to play the sound of that name, and returns at once. Without an effect if there is no such sound,
    /// or nothing to play it on.
    virtual void play(std::string_view name) = 0;
};
