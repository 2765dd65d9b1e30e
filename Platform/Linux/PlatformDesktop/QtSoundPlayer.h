#pragma once

#include "AttentionKit/SoundPlayer.h"

#include <QString>

#include <memory>

/// Plays the application's sounds through Qt Multimedia, on the device that is the default one at that moment.
///
/// A sound server that hangs holds whoever looks for a device, without an end. So all of it happens on a thread that
/// is made for the first sound; nothing of Qt Multimedia is touched before. A sound that could not begin within
/// `latest` is not played: it would tell of something long past. Where there is no device nothing is played, and one
/// that comes later is used.
///
/// Main thread, with a QCoreApplication. Destroying it cuts off what plays, and waits for the thread half a second; a
/// thread that hangs is left behind, and the process ends without it (see `play` for how many sounds it holds).
class QtSoundPlayer : public SoundPlayer {
public:
    static constexpr int latest = 1000;    // milliseconds
    static constexpr int mostWaiting = 8;  // sounds that have not begun; one more is dropped
    static constexpr int mostPlaying = 8;  // at the same time; one more is dropped

    /// @param folder  where NAME.wav lies, mono or stereo, 16 bit
    explicit QtSoundPlayer(QString folder = QStringLiteral(":/vimble/sounds"));
    ~QtSoundPlayer() override;

    void play(std::string_view name) override;

private:
    class Worker;

    const QString folder;
    std::unique_ptr<Worker> worker;
};
