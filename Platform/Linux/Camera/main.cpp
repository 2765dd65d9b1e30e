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

/// Without taking anything down: the multimedia libraries may crash or hang on the way. The kernel wipes the memory
/// before somebody else gets it.
[[noreturn]] void end() { std::_Exit(0); }

/// The frames may show a secret key, which is to be in no file.
void keepFromDisk() {
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    // The limit alone does not hold where the kernel hands crashes to another program.
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

// Shows what the default camera sees: grey frames on standard output, as `CameraStream` describes them, until
// standard input ends. A process of its own, so that a camera which is unplugged takes nobody else along.
int main(int argc, char** argv) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    keepFromDisk();
    std::signal(SIGPIPE, SIG_IGN);
    if (argc > 1 || ::isatty(STDOUT_FILENO) == 1) {
        std::fputs("vimble-camera writes the camera's pictures for vimble, which starts it.\n", stderr);
        return 2;
    }
    // What libraries print is not to get between the frames.
    const int output = ::dup(STDOUT_FILENO);
    if (output < 0 || ::dup2(STDERR_FILENO, STDOUT_FILENO) < 0) return 1;

    QCoreApplication application(argc, argv);
    endWhenNobodyListens(STDIN_FILENO);
    FrameWriter writer(output, end);
    writer.say(CameraMessage::Kind::alive);
    QTimer clock;
    QObject::connect(&clock, &QTimer::timeout, [&writer] { writer.say(CameraMessage::Kind::alive); });
    clock.start(wordIntervalMs);
    // Given up, and not destroyed: see there.
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
