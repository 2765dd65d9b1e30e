#include "PlatformDesktop/PulseSoundPlayer.h"

#include "QtText/QtText.h"
#include "StateKit/Log.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QFile>
#include <QtEndian>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include <pulse/pulseaudio.h>

namespace {

const Log soundLog("zorvane.Vimble", "PulseSoundPlayer");

constexpr char applicationName[] = "Vimble";
constexpr char applicationId[] = "zorvane.Vimble";
constexpr int turn = 100;       // milliseconds; a call to the server looks this often whether it must end
constexpr int latencyMs = 100;  // the server's buffer; a short one lets the sound start soon

/// Silence before the sound, in milliseconds: a device that wakes up drops the beginning (16 ms, measured with a null
/// sink of PulseAudio 16).
constexpr int leadMs = 40;

struct Sound {
    pa_sample_spec format{};
    QByteArray samples;
};

/// Reads a RIFF file with 16-bit samples. @return nothing for any other file
std::optional<Sound> parsed(const QByteArray& file) {
    constexpr qsizetype headerSize = 12;
    constexpr qsizetype chunkHeaderSize = 8;
    constexpr qsizetype formatSize = 16;
    constexpr int plainSamples = 1;
    constexpr int bits = 16;
    if (!file.startsWith("RIFF") || file.mid(8, 4) != "WAVE") return {};
    const auto number = [&]<class T>(T, qsizetype at) { return qFromLittleEndian<T>(file.constData() + at); };
    Sound sound;
    for (qsizetype at = headerSize; at + chunkHeaderSize <= file.size();) {
        const QByteArray kind = file.mid(at, 4);
        const qsizetype size = number(std::uint32_t{}, at + 4);
        at += chunkHeaderSize;
        if (size > file.size() - at) return {};
        if (kind == "fmt ") {
            if (size < formatSize || number(std::uint16_t{}, at) != plainSamples ||
                number(std::uint16_t{}, at + 14) != bits)
                return {};
            sound.format.format = PA_SAMPLE_S16LE;
            sound.format.channels = static_cast<std::uint8_t>(number(std::uint16_t{}, at + 2));
            sound.format.rate = number(std::uint32_t{}, at + 4);
        } else if (kind == "data") {
            sound.samples = file.mid(at, size);
        }
        at += size + size % 2;
    }
    if (pa_sample_spec_valid(&sound.format) == 0 || sound.samples.isEmpty()) return {};
    sound.samples.truncate(sound.samples.size() -
                           sound.samples.size() % static_cast<qsizetype>(pa_frame_size(&sound.format)));
    return sound;
}

std::optional<Sound> load(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return {};
    return parsed(file.readAll());
}

/// One connection to the sound server, for one sound. Use it on one thread.
class ServerCall {
public:
    /// @param isToEnd  set it to end the call; it is looked at some times a second
    explicit ServerCall(const std::atomic<bool>& isToEnd) : isToEnd(isToEnd), loop(pa_mainloop_new()) {}

    ~ServerCall() {
        if (stream != nullptr) {
            pa_stream_disconnect(stream);
            pa_stream_unref(stream);
        }
        if (context != nullptr) {
            pa_context_disconnect(context);
            pa_context_unref(context);
        }
        pa_mainloop_free(loop);
    }

    ServerCall(const ServerCall&) = delete;
    ServerCall& operator=(const ServerCall&) = delete;

    /// @param begin  the sound is not played if it could not begin by then
    /// @return nothing, or the reason why the sound was not played to its end
    std::optional<std::string> play(const Sound& sound, const QDeadlineTimer& begin) {
        const QDeadlineTimer end(PulseSoundPlayer::patience);
        pa_proplist* properties = pa_proplist_new();
        pa_proplist_sets(properties, PA_PROP_APPLICATION_ID, applicationId);
        pa_proplist_sets(properties, PA_PROP_APPLICATION_ICON_NAME, applicationId);
        pa_proplist_sets(properties, PA_PROP_MEDIA_ROLE, "event");
        std::optional<std::string> trouble = play(sound, *properties, begin, end);
        pa_proplist_free(properties);
        return trouble;
    }

private:
    std::optional<std::string> play(const Sound& sound, pa_proplist& properties, const QDeadlineTimer& begin,
                                    const QDeadlineTimer& end) {
        context = pa_context_new_with_proplist(pa_mainloop_get_api(loop), applicationName, &properties);
        if (context == nullptr) return "there is no memory for a call";
        if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) return error();
        if (!turnUntil([&] { return pa_context_get_state(context) == PA_CONTEXT_READY; }, begin)) return error();

        stream = pa_stream_new_with_proplist(context, applicationName, &sound.format, nullptr, &properties);
        if (stream == nullptr) return error();
        constexpr auto serverDecides = static_cast<std::uint32_t>(-1);
        const auto length = static_cast<std::uint32_t>(pa_usec_to_bytes(latencyMs * PA_USEC_PER_MSEC, &sound.format));
        const pa_buffer_attr buffer{serverDecides, length, serverDecides, serverDecides, serverDecides};
        if (pa_stream_connect_playback(stream, nullptr, &buffer, PA_STREAM_ADJUST_LATENCY, nullptr, nullptr) < 0)
            return error();
        if (!turnUntil([&] { return pa_stream_get_state(stream) == PA_STREAM_READY; }, begin)) return error();

        const QByteArray samples =
            QByteArray(static_cast<qsizetype>(pa_usec_to_bytes(leadMs * PA_USEC_PER_MSEC, &sound.format)), '\0') +
            sound.samples;
        // Write everything at once: our sounds are shorter than what a server buffers for a stream.
        if (pa_stream_write(stream, samples.constData(), static_cast<std::size_t>(samples.size()), nullptr, 0,
                            PA_SEEK_RELATIVE) < 0)
            return error();
        pa_operation* played = pa_stream_drain(stream, nullptr, nullptr);
        if (played == nullptr) return error();
        const bool isPlayed = turnUntil([&] { return pa_operation_get_state(played) != PA_OPERATION_RUNNING; }, end);
        pa_operation_unref(played);
        if (!isPlayed) return error();
        return {};
    }

    /// Turns the loop until the condition holds.
    /// @return false if the connection has failed, `isToEnd` was set, or the deadline has expired
    template <class Condition>
    bool turnUntil(Condition condition, const QDeadlineTimer& deadline) {
        while (!condition()) {
            if (isToEnd || deadline.hasExpired()) return false;
            if (!PA_CONTEXT_IS_GOOD(pa_context_get_state(context))) return false;
            if (stream != nullptr && !PA_STREAM_IS_GOOD(pa_stream_get_state(stream)) &&
                pa_stream_get_state(stream) != PA_STREAM_UNCONNECTED)
                return false;
            const auto wait = std::clamp<qint64>(deadline.remainingTime(), 1, turn);
            if (pa_mainloop_prepare(loop, static_cast<int>(wait * static_cast<qint64>(PA_USEC_PER_MSEC))) < 0 ||
                pa_mainloop_poll(loop) < 0 || pa_mainloop_dispatch(loop) < 0)
                return false;
        }
        return true;
    }

    std::string error() const {
        const int number = pa_context_errno(context);
        return number == PA_OK ? "the sound server does not answer" : pa_strerror(number);
    }

    const std::atomic<bool>& isToEnd;
    pa_mainloop* loop;
    pa_context* context = nullptr;
    pa_stream* stream = nullptr;
};

}  // namespace

/// The thread, and the sounds that wait for it.
class PulseSoundPlayer::Worker {
public:
    Worker() : thread([this] { run(); }) {}

    ~Worker() {
        {
            const std::lock_guard lock(mutex);
            isToEnd = true;
        }
        changed.notify_one();
        thread.join();
    }

    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void play(const QString& path) {
        {
            const std::lock_guard lock(mutex);
            if (waiting.size() >= mostWaiting) return;
            waiting.emplace_back(path, QDeadlineTimer(latest));
        }
        changed.notify_one();
    }

private:
    void run() {
        for (std::unique_lock lock(mutex);;) {
            changed.wait(lock, [this] { return isToEnd || !waiting.empty(); });
            if (isToEnd) return;
            const auto [path, begin] = std::move(waiting.front());
            waiting.pop_front();
            if (begin.hasExpired()) continue;
            lock.unlock();
            if (const std::optional<Sound> sound = load(path)) {
                const auto trouble = ServerCall(isToEnd).play(*sound, begin);
                if (trouble) soundLog.debug("No sound: " + *trouble);
            }
            lock.lock();
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::pair<QString, QDeadlineTimer>> waiting;
    std::atomic<bool> isToEnd = false;
    std::thread thread;  // the last member, since the thread uses all the others
};

PulseSoundPlayer::PulseSoundPlayer(QString folder) : folder(std::move(folder)) {}

PulseSoundPlayer::~PulseSoundPlayer() = default;

void PulseSoundPlayer::play(std::string_view name) {
    const QString path = folder + u'/' + toQt(name) + QStringLiteral(".wav");
    if (!QFile::exists(path)) return;
    if (!worker) worker = std::make_unique<Worker>();
    worker->play(path);
}
