#include "PlatformDesktop/CameraProcess.h"

#include "Base/FileDescriptor.h"
#include "PlatformBundle/LiveInstallerEnvironment.h"
#include "PlatformBundle/Spawn.h"
#include "StateKit/Log.h"

#include <QCoreApplication>
#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <utility>

namespace {

const Log cameraLog("zorvane.Vimble", "Camera");

constexpr int lookIntervalMs = 50;
/// The most bytes to read before other events of this thread have their turn.
constexpr std::size_t mostAtOnce = std::size_t(1) << 20;

/// Kills a child and collects it without waiting: the kernel may take a while to end it.
class EndedChild : public QObject {
public:
    static void collect(pid_t process) {
        ::kill(process, SIGKILL);
        if (!isCollected(process)) new EndedChild(process);
    }

private:
    explicit EndedChild(pid_t process) : QObject(QCoreApplication::instance()), process(process) {
        connect(&timer, &QTimer::timeout, this, [this] {
            if (isCollected(this->process)) deleteLater();
        });
        timer.start(lookIntervalMs);
    }

    static bool isCollected(pid_t process) { return ::waitpid(process, nullptr, WNOHANG) != 0; }

    pid_t process;
    QTimer timer;
};

}  // namespace

/// The time from a start to a stop. Steps are queued to this object, so that none runs after it is destroyed.
class CameraProcess::Session : public QObject {
public:
    Session(const CameraProcess& owner, Handlers handlers) : owner(owner), handlers(std::move(handlers)) {
        later(&Session::open);
    }
    ~Session() override { close(); }

private:
    void later(void (Session::*step)()) { QMetaObject::invokeMethod(this, step, Qt::QueuedConnection); }

    void open() {
        std::array<int, 2> ends;
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
            return fail(std::system_category().message(errno));
        socket = FileDescriptor(ends[0]);
        const FileDescriptor theirs(ends[1]);
        SpawnRequest request;
        request.executable = owner.executable;
        request.arguments = owner.arguments;
        request.input = theirs.get();
        request.output = theirs.get();
        request.keepsErrors = true;
        // Leave the child our environment: the multimedia libraries find the camera through it.
        try {
            process = spawn(request);
        } catch (const std::system_error& error) {
            return fail(error.what());
        }
        notifier = std::make_unique<QSocketNotifier>(socket.get(), QSocketNotifier::Read);
        // Read in a later turn: a handler may destroy the notifier, which must not happen within its signal.
        connect(notifier.get(), &QSocketNotifier::activated, this, [this] {
            notifier->setEnabled(false);
            later(&Session::read);
        });
    }

    void read() {
        try {
            std::size_t left = mostAtOnce;
            while (left > 0) {
                const auto room = stream.room();
                const ssize_t count = ::recv(socket.get(), room.data(), std::min(room.size(), left), MSG_DONTWAIT);
                if (count == 0) return fail("the camera program has ended");
                if (count < 0 && errno == EINTR) continue;
                if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
                if (count < 0) return fail(std::system_category().message(errno));
                left -= static_cast<std::size_t>(count);
                if (auto message = stream.advance(static_cast<std::size_t>(count))) {
                    notifier->setEnabled(true);
                    const auto tellMessage = handlers.didSend;  // a copy, since the handler may destroy this session
                    return tellMessage(std::move(*message));
                }
            }
        } catch (const CameraStreamError& error) {
            return fail(error.what());
        }
        notifier->setEnabled(true);
    }

    void fail(const std::string& why) {
        cameraLog.error(why);
        close();
        const auto tellEnd = handlers.didEnd;  // a copy, since the handler may destroy this session
        tellEnd();
    }

    void close() {
        notifier.reset();
        socket.reset();
        if (process > 0) EndedChild::collect(std::exchange(process, -1));
    }

    const CameraProcess& owner;
    Handlers handlers;
    FileDescriptor socket;
    pid_t process = -1;
    std::unique_ptr<QSocketNotifier> notifier;
    CameraStream stream;
};

CameraProcess::CameraProcess(std::filesystem::path executable, std::vector<std::string> arguments)
    : executable(std::move(executable)), arguments(std::move(arguments)) {}

CameraProcess::~CameraProcess() = default;

void CameraProcess::start(Handlers handlers) {
    session.reset();
    session = std::make_unique<Session>(*this, std::move(handlers));
}

void CameraProcess::stop() { session.reset(); }

std::filesystem::path CameraProcess::installed() { return toolBesideThisProgram("vimble-camera"); }
