#include "PlatformBundle/PosixProcessLauncher.h"

#include "PlatformBundle/FileDescriptor.h"
#include "PlatformBundle/Spawn.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

/// Waits for the end of a child that is about to end, or is killed when its holder goes first.
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
            if (errno != EINTR) return -1;  // somebody else has taken it
        id = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

private:
    pid_t id;
};

/// Waits until there is something to read, or the other end is closed.
void waitForInput(int file, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd poll{file, POLLIN, 0};
        const int ready = left > 0 ? ::poll(&poll, 1, static_cast<int>(left)) : 0;
        if (ready > 0) return;
        if (ready == 0) throw std::system_error(std::make_error_code(std::errc::timed_out), "run a tool");
        if (errno != EINTR) throw std::system_error(errno, std::system_category(), "poll");
    }
}

std::string readAll(int file, Clock::time_point deadline) {
    std::string result;
    std::array<char, 16 * 1024> buffer;
    for (;;) {
        waitForInput(file, deadline);
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

    const auto deadline = Clock::now() + timeout;
    SpawnRequest request;
    request.executable = executable;
    request.arguments = arguments;
    request.output = writeEnd.get();
    Child child(spawn(request));
    writeEnd.reset();
    ProcessResult result;
    result.output = readAll(readEnd.get(), deadline);
    result.status = child.wait();
    return result;
}
