#include "PlatformBundle/PosixProcessLauncher.h"

#include "Base/FileDescriptor.h"
#include "PlatformBundle/Spawn.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

/// A child process. It is killed when its holder dies before it was waited for.
class Child {
public:
    explicit Child(pid_t id) : id(id) {}
    ~Child() {
        if (id <= 0) return;
        ::kill(id, SIGKILL);
        wait();
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    int wait() {
        int status = 0;
        while (::waitpid(id, &status, 0) < 0)
            if (errno != EINTR) return -1;  // somebody else has waited for it
        id = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    pid_t id;
};

/// A file that can be read once a stop is asked for, so that `poll` can wait for it beside others.
class StopFile {
public:
    explicit StopFile(const std::stop_token& stop)
        : file(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), callback(stop, [this] { (void)::eventfd_write(get(), 1); }) {
        if (!file) throw std::system_error(errno, std::system_category(), "eventfd");
    }
    int get() const { return file.get(); }

private:
    const FileDescriptor file;
    const std::stop_callback<std::function<void()>> callback;
};

/// Waits until there is something to read, or the other end is closed.
void waitForInput(int file, const StopFile& stop, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        std::array<pollfd, 2> files{{{file, POLLIN, 0}, {stop.get(), POLLIN, 0}}};
        const int ready = left > 0 ? ::poll(files.data(), files.size(), static_cast<int>(left)) : 0;
        if (ready > 0 && files[1].revents != 0)
            throw std::system_error(std::make_error_code(std::errc::operation_canceled), "run a tool");
        if (ready > 0) return;
        if (ready == 0) throw std::system_error(std::make_error_code(std::errc::timed_out), "run a tool");
        if (errno != EINTR) throw std::system_error(errno, std::system_category(), "poll");
    }
}

std::string readAll(int file, const StopFile& stop, Clock::time_point deadline) {
    std::string result;
    std::array<char, 16 * 1024> buffer;
    for (;;) {
        waitForInput(file, stop, deadline);
        const ssize_t count = ::read(file, buffer.data(), buffer.size());
        if (count == 0) return result;
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw std::system_error(errno, std::system_category(), "read what a tool prints");
        result.append(buffer.data(), static_cast<std::size_t>(count));
        if (result.size() > PosixProcessLauncher::maxOutput)
            throw std::system_error(std::make_error_code(std::errc::message_size), "read what a tool prints");
    }
}

}  // namespace

ProcessResult PosixProcessLauncher::launch(const std::filesystem::path& executable,
                                           const std::vector<std::string>& arguments) {
    std::array<int, 2> ends;
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::system_category(), "pipe");
    const FileDescriptor readEnd(ends[0]);
    FileDescriptor writeEnd(ends[1]);

    const StopFile stopFile(stop);
    const auto deadline = Clock::now() + timeout;
    SpawnRequest request;
    request.executable = executable;
    request.arguments = arguments;
    request.output = writeEnd.get();
    Child child(spawn(request));
    writeEnd.reset();
    ProcessResult result;
    result.output = readAll(readEnd.get(), stopFile, deadline);
    result.status = child.wait();
    return result;
}
