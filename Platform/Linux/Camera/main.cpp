#include "PlatformCamera/DefaultCamera.h"
#include "PlatformCamera/FrameWriter.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr int wordIntervalMs = 1000;

/// Ends without destroying anything: the multimedia libraries could crash or hang. The kernel wipes the memory before
/// another process gets it.
[[noreturn]] void end() { std::_Exit(0); }

/// Makes sure that no core file is written: the frames may show a secret key.
void keepFromDisk() {
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    // The limit alone is not enough: it does not apply if the kernel pipes core files to a program.
    ::prctl(PR_SET_DUMPABLE, 0);
}

void endWhenNobodyListens(int input) {
    auto* notifier = new QSocketNotifier(input, QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, [input] {
        char byte;
        if (::read(input, &byte, 1) <= 0 && errno != EAGAIN && errno != EINTR) end();
    });
}

}  // namespace

// Writes what the default camera sees to standard output, as grey frames in the form of `CameraStream`, until
// standard input ends. It is a program of its own because unplugging a camera may crash it.
int main(int argc, char** argv) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    keepFromDisk();
    std::signal(SIGPIPE, SIG_IGN);
    if (argc > 1 || ::isatty(STDOUT_FILENO) == 1) {
        std::fputs("vimble-camera writes the camera's pictures for vimble, which starts it.\n", stderr);
        return 2;
    }
    // Keep what libraries print from getting between the frames: send it to standard error.
    const int output = ::dup(STDOUT_FILENO);
    if (output < 0 || ::dup2(STDERR_FILENO, STDOUT_FILENO) < 0) return 1;

    QCoreApplication application(argc, argv);
    endWhenNobodyListens(STDIN_FILENO);
    FrameWriter writer(output, end);
    writer.say(CameraMessage::Kind::alive);
    QTimer clock;
    QObject::connect(&clock, &QTimer::timeout, [&writer] { writer.say(CameraMessage::Kind::alive); });
    clock.start(wordIntervalMs);
    // Never destroy the camera; DefaultCamera.h says why.
    new DefaultCamera({.didCapture = [&writer](SharedFrame frame) { writer.put(std::move(frame)); },
                       .didFail =
                           [&writer](CameraTrouble trouble) {
                               switch (trouble) {
                                   case CameraTrouble::noCamera: return writer.say(CameraMessage::Kind::noCamera);
                                   case CameraTrouble::notOpened: return writer.say(CameraMessage::Kind::notOpened);
                               }
                           },
                       .isOver = end});
    QCoreApplication::exec();
    end();
}
