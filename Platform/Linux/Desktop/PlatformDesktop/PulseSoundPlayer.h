#pragma once

#include "AttentionKit/SoundPlayer.h"

#include <QString>

#include <memory>

/// Plays the application's sounds on the desktop's sound server: PulseAudio, or one with the same protocol, such as
/// PipeWire.
///
/// Each sound makes a new connection to the server, so that a server that is started later, or restarted, is found.
/// This is done on a thread that is made for the first sound, so that windows never wait. A sound that could not begin
/// within `latest` is dropped, since it would tell of something long past; one that has not ended within `patience` is
/// cut off. Sounds do not overlap: one follows the other. Without a server nothing is played, no error is shown, and
/// no server is started.
///
/// The desktop sees the sounds as events, whose volume the user may set.
///
/// Qt Multimedia was tried first. Its sink (6.4) loses the last 0.13 seconds of a sound, it never finds a server that
/// was not there at its first use, and a server that hangs blocks it, and the end of the program, for ever.
///
/// Main thread. Destroying this object cuts off the sound that plays, and waits for the thread: a tenth of a second, or
/// until the name of a server on another machine has been looked up.
class PulseSoundPlayer : public SoundPlayer {
public:
    static constexpr int latest = 1000;            // milliseconds
    static constexpr int patience = 5000;          // milliseconds for one sound, from connecting to its end
    static constexpr std::size_t mostWaiting = 8;  // sounds that have not begun; one more is dropped

    /// @param folder  holds the files NAME.wav, mono or stereo, 16 bit
    explicit PulseSoundPlayer(QString folder = QStringLiteral(":/vimble/sounds"));
    ~PulseSoundPlayer() override;

    void play(std::string_view name) override;

private:
    class Worker;

    const QString folder;
    std::unique_ptr<Worker> worker;
};
