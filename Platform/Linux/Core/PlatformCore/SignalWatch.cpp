#include "PlatformCore/SignalWatch.h"

#include "Base/Check.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::array watched{SIGINT, SIGTERM, SIGHUP};

// A signal handler may touch nothing but these.
std::atomic<int> writeEnd{-1};
std::atomic<bool> signalCame{false};

std::array<struct sigaction, watched.size()> before;

void handle(int) {
    const int error = errno;
    signalCame = true;
    const char byte = 0;
    // A failed write does no harm: if the pipe is full, the loop will be woken anyway.
    static_cast<void>(!write(writeEnd, &byte, 1));
    errno = error;
}

}  // namespace

SignalWatch::SignalWatch(std::function<void()> came) : came(std::move(came)) {
    int ends[2];
    check(pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0, "no pipe for the signals could be made");
    readEnd = FileDescriptor(ends[0]);
    writeEnd = ends[1];
    notifier = std::make_unique<QSocketNotifier>(readEnd.get(), QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, [this] {
        char bytes[64];
        while (::read(readEnd.get(), bytes, sizeof bytes) > 0) {
        }
        this->came();
    });
    for (std::size_t i = 0; i < watched.size(); ++i) {
        sigaction(watched[i], nullptr, &before[i]);
        if (before[i].sa_handler == SIG_IGN) continue;
        struct sigaction action {};
        action.sa_handler = handle;
        sigemptyset(&action.sa_mask);
        // Leave SA_RESTART out, so that a signal interrupts a write whose reader has stopped.
        sigaction(watched[i], &action, nullptr);
    }
}

SignalWatch::~SignalWatch() {
    for (std::size_t i = 0; i < watched.size(); ++i) sigaction(watched[i], &before[i], nullptr);
    notifier.reset();
    const FileDescriptor ended(writeEnd.exchange(-1));
}

bool SignalWatch::hasCome() { return signalCame; }
