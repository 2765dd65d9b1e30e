#include "AttentionKit/Soundboard.h"

void Soundboard::play(Sound& sound) {
    const Date now = loop.now();
    if (sound.begun) {
        const Seconds since = now - *sound.begun;
        // A clock that was set back must not silence anything until it has caught up.
        if (since >= 0 && since < interval) return;
    }
    sound.begun = now;
    player.play(sound.name);
}
