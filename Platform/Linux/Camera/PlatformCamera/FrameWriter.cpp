#include "PlatformCamera/FrameWriter.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

FrameWriter::FrameWriter(int file, std::function<void()> isOver)
    : file(file), isOver(std::move(isOver)), notifier(file, QSocketNotifier::Write) {
    ::fcntl(file, F_SETFL, ::fcntl(file, F_GETFL) | O_NONBLOCK);
    notifier.setEnabled(false);
    connect(&notifier, &QSocketNotifier::activated, this, &FrameWriter::write);
}

FrameWriter::~FrameWriter() = default;

void FrameWriter::put(SharedFrame frame) {
    if (!frame) return;
    {
        const std::lock_guard lock(mutex);
        newest.swap(frame);  // the older frame is destroyed after the lock is released
        if (std::exchange(isCalled, true)) return;
    }
    QMetaObject::invokeMethod(this, &FrameWriter::write, Qt::QueuedConnection);
}

void FrameWriter::say(CameraMessage::Kind newWord) {
    if (newWord == CameraMessage::Kind::alive && (current || word)) return;
    word = newWord;
    write();
}

bool FrameWriter::next() {
    if (current) return true;
    if (word) {
        current = CameraMessage{*std::exchange(word, std::nullopt), nullptr};
    } else {
        const std::lock_guard lock(mutex);
        isCalled = false;
        if (!newest) return false;
        current = CameraMessage{CameraMessage::Kind::frame, std::exchange(newest, nullptr)};
    }
    header = CameraStream::headerOf(*current);
    written = 0;
    return true;
}

void FrameWriter::write() {
    while (isOver && next()) {
        const ByteView pixels = current->frame ? current->frame->pixels() : ByteView();
        const std::size_t ofHeader = std::min(written, header.size());
        const ByteView rest = pixels.subspan(written - ofHeader);
        std::array<iovec, 2> parts{{{header.data() + ofHeader, header.size() - ofHeader},
                                    {const_cast<std::uint8_t*>(rest.data()), rest.size()}}};
        const ssize_t count = ::writev(file, parts.data(), static_cast<int>(parts.size()));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return notifier.setEnabled(true);
        if (count < 0) {
            notifier.setEnabled(false);
            return std::exchange(isOver, nullptr)();
        }
        written += static_cast<std::size_t>(count);
        if (written == header.size() + pixels.size()) current.reset();
    }
    notifier.setEnabled(false);
}
