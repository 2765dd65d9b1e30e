#include "PlatformDesktop/QtSoundPlayer.h"

#include "PlatformCore/Text.h"

#include <QAudioDevice>
#include <QAudioFormat>
#include <QAudioSink>
#include <QBuffer>
#include <QByteArray>
#include <QDeadlineTimer>
#include <QFile>
#include <QMediaDevices>
#include <QThread>
#include <QTimer>
#include <QtEndian>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>

#include <unistd.h>

namespace {

constexpr int endPatience = 500;           // milliseconds
constexpr int longestSilenceAfter = 3000;  // milliseconds that a device may take longer than the sound

struct Sound {
    QAudioFormat format;
    QByteArray samples;
};

/// A RIFF file with 16-bit samples. @return nothing for any other
std::optional<Sound> parsed(const QByteArray& file) {
    constexpr int headerSize = 12;
    constexpr int chunkHeaderSize = 8;
    constexpr int formatSize = 16;
    constexpr int plainSamples = 1;
    constexpr int bits = 16;
    if (!file.startsWith("RIFF") || file.mid(8, 4) != "WAVE") return {};
    const auto number = [&]<class T>(T, qsizetype at) { return qFromLittleEndian<T>(file.constData() + at); };
    Sound sound;
    for (qsizetype at = headerSize; at + chunkHeaderSize <= file.size();) {
        const QByteArray kind = file.mid(at, 4);
        const qsizetype size = number(quint32(), at + 4);
        at += chunkHeaderSize;
        if (size > file.size() - at) return {};
        if (kind == "fmt ") {
            if (size < formatSize || number(quint16(), at) != plainSamples || number(quint16(), at + 14) != bits)
                return {};
            sound.format.setSampleFormat(QAudioFormat::Int16);
            sound.format.setChannelCount(number(quint16(), at + 2));
            sound.format.setSampleRate(static_cast<int>(number(quint32(), at + 4)));
        } else if (kind == "data") {
            sound.samples = file.mid(at, size);
        }
        at += size + size % 2;
    }
    if (!sound.format.isValid() || sound.samples.isEmpty()) return {};
    return sound;
}

std::optional<Sound> load(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return {};
    return parsed(file.readAll());
}

/// One sound on its way to the device; destroys itself when it is over. Lives on the worker's thread.
class Playback : public QObject {
public:
    Playback(const Sound& sound, const QAudioDevice& device, QObject* parent)
        : QObject(parent), sink(device, sound.format) {
        samples.setData(sound.samples);
        samples.open(QIODevice::ReadOnly);
        connect(&sink, &QAudioSink::stateChanged, this, [this](QAudio::State state) {
            if (state == QAudio::IdleState || state == QAudio::StoppedState) deleteLater();
        });
        // A device that hangs never says that it is done.
        const auto length = static_cast<int>(sound.format.durationForBytes(sound.samples.size()) / 1000);
        QTimer::singleShot(length + longestSilenceAfter, this, &QObject::deleteLater);
        sink.start(&samples);
        if (sink.state() == QAudio::StoppedState) deleteLater();
    }
    ~Playback() override { sink.disconnect(this); }

private:
    QBuffer samples;  // outlives the sink, which reads it
    QAudioSink sink;
};

}  // namespace

/// The thread, and what happens on it.
class QtSoundPlayer::Worker {
public:
    Worker() {
        stage->moveToThread(thread);
        QObject::connect(thread, &QThread::finished, stage, &QObject::deleteLater);
        thread->setObjectName(QStringLiteral("sounds"));
        thread->start();
    }

    ~Worker() {
        thread->quit();
        if (thread->wait(endPatience)) {
            delete thread;
            return;
        }
        // It hangs in the sound server, in the middle of Qt Multimedia, which waits for it in a destructor of its own
        // behind the end of main. Everything of ours has been done by then.
        on_exit(
            [](int status, void*) {
                std::fflush(nullptr);
                _exit(status);
            },
            nullptr);
    }

    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void play(const QString& path) {
        if (*waiting >= mostWaiting) return;
        ++*waiting;
        const QDeadlineTimer deadline(latest);
        // The counter is shared with work that a hanging thread does not come to.
        QMetaObject::invokeMethod(
            stage,
            [path, deadline, counter = waiting, place = stage] {
                begin(path, deadline, *place);
                --*counter;
            },
            Qt::QueuedConnection);
    }

private:
    static void begin(const QString& path, const QDeadlineTimer& deadline, QObject& stage) {
        if (deadline.hasExpired() || stage.children().size() >= mostPlaying) return;
        const std::optional<Sound> sound = load(path);
        if (!sound) return;
        const QAudioDevice device = QMediaDevices::defaultAudioOutput();
        // Finding the device may have taken long.
        if (device.isNull() || deadline.hasExpired()) return;
        new Playback(*sound, device, &stage);
    }

    QThread* thread = new QThread;  // owned, unless it hangs
    QObject* stage = new QObject;   // of the thread: parent of what plays
    std::shared_ptr<std::atomic<int>> waiting = std::make_shared<std::atomic<int>>(0);
};

QtSoundPlayer::QtSoundPlayer(QString folder) : folder(std::move(folder)) {}

QtSoundPlayer::~QtSoundPlayer() = default;

void QtSoundPlayer::play(std::string_view name) {
    const QString path = folder + u'/' + toQt(name) + QStringLiteral(".wav");
    if (!QFile::exists(path)) return;
    if (!worker) worker = std::make_unique<Worker>();
    worker->play(path);
}
