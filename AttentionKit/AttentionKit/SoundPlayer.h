#pragma once

#include <string_view>

/// Plays the application's sounds. Main thread only.
class SoundPlayer {
public:
    virtual ~SoundPlayer() = default;

    /// Starts playing the sound of that name, and returns at once. Does nothing if there is no such sound, or no
    /// device to play it.
    virtual void play(std::string_view name) = 0;
};
