#include "TerminalShell/StandardStreams.h"

#include "PlatformCore/SignalWatch.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::size_t readSize = 64 * 1024;

/// Waits for a slow reader, until a signal asks the program to end.
/// @return whether all bytes were written
bool writeAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = write(file, bytes.data(), bytes.size());
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
            continue;
        }
        if (written < 0 && errno == EAGAIN) {
            // Another program that shares the terminal has made it non-blocking.
            struct pollfd wanted {
                file, POLLOUT, 0
            };
            if (poll(&wanted, 1, -1) >= 0) continue;
        }
        if (written < 0 && errno == EINTR && !SignalWatch::hasCome()) continue;
        return false;
    }
    return true;
}

}  // namespace

void claimStandardStreams() {
    for (int file = STDIN_FILENO; file <= STDERR_FILENO; ++file) {
        // `open` takes the lowest free number, which is `file`.
        if (fcntl(file, F_GETFD) < 0 && errno == EBADF) static_cast<void>(open("/dev/null", O_RDWR));
    }
}

void complain(std::string_view text) {
    // Write the line at once, so that it is not mixed with those of other programs on the terminal.
    std::string line = "vimble-terminal: ";
    line.append(text).append("\n");
    writeAll(STDERR_FILENO, line);
}

StandardInput::StandardInput(Handlers handlers)
    : handlers(std::move(handlers)), notifier(std::make_unique<QSocketNotifier>(STDIN_FILENO, QSocketNotifier::Read)) {
    QObject::connect(notifier.get(), &QSocketNotifier::activated, [this] { canRead(); });
}

void StandardInput::setReading(bool isReading) {
    if (notifier) notifier->setEnabled(isReading);
}

void StandardInput::canRead() {
    std::array<char, readSize> bytes;
    const ssize_t count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
    if (count > 0) {
        handlers.read({bytes.data(), static_cast<std::size_t>(count)});
        return;
    }
    // EIO means that the terminal was hung up, which is an ordinary end.
    if (count < 0 && errno != EIO) complain(std::string("standard input can't be read: ") + std::strerror(errno));
    notifier->setEnabled(false);
    // Destroy the notifier later: this is called by its own signal.
    notifier.release()->deleteLater();
    handlers.ended();
}

void StandardOutput::line(std::string_view text) {
    if (isClosed) return;
    std::string line(text);
    line += '\n';
    if (writeAll(STDOUT_FILENO, line)) return;
    isClosed = true;
    loop.post([self = Weak<StandardOutput>(this)] {
        if (self && self->handlers.closed) self->handlers.closed();
    });
}

void StandardOutput::setReading(bool isReading) {
    if (handlers.setReading) handlers.setReading(isReading);
}

void StandardOutput::end(int exitStatus) {
    loop.post([self = Weak<StandardOutput>(this), exitStatus] {
        if (self && self->handlers.ended) self->handlers.ended(exitStatus);
    });
}
