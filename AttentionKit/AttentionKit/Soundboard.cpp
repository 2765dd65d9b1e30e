#include "AttentionKit/Soundboard.h"

void Soundboard::play(Sound& sound) {
    const Date now = loop.now();
    if (sound.begun) {
        const Seconds since = now - *sound.begun;
        // Play if `since` is negative: after the clock was set back, sounds must not be silent until it catches up.
        if (since >= 0 && since < interval) return;
    }
    sound.begun = now;
    player.play(sound.name);
}
