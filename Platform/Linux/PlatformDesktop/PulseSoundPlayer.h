#pragma once

#include "AttentionKit/SoundPlayer.h"

#include <QString>

#include <memory>

/// Plays the application's sounds on the desktop's sound server, PulseAudio or one that speaks its language, as
/// PipeWire does.
///
/// Each sound calls the server anew, on a thread that is made for the first sound: so one that comes later, or comes
/// again, is used, and the window waits for nobody. A sound that could not begin within `latest` is dropped, since it
/// would tell of something long past; so is what a server is doing nothing about within `patience`. Sounds do not
/// overlap: one that comes meanwhile follows. Without a server nothing is played and nothing is said, and none is
/// started.
///
/// To the desktop they are events, whose loudness the user may set.
///
/// Qt Multimedia was tried first. Its sink (6.4) loses the last 0.13 seconds of what it is given, it never finds a
/// server that was not there at its first use, and one that hangs holds it, and the end of the program, for ever.
///
/// Main thread. Destroying it cuts off what plays, and waits for the thread: a tenth of a second, or until the name of
/// a server on another machine has been looked up.
class PulseSoundPlayer : public SoundPlayer {
public:
    static constexpr int latest = 1000;            // milliseconds
    static constexpr int patience = 5000;          // milliseconds for one sound, from the call to its end
    static constexpr std::size_t mostWaiting = 8;  // sounds that have not begun; one more is dropped

    /// @param folder  where NAME.wav lies, mono or stereo, 16 bit
    explicit PulseSoundPlayer(QString folder = QStringLiteral(":/vimble/sounds"));
    ~PulseSoundPlayer() override;

    void play(std::string_view name) override;

private:
    class Worker;

    const QString folder;
    std::unique_ptr<Worker> worker;
};
