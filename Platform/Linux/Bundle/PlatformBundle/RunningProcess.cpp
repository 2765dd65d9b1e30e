#include "PlatformBundle/RunningProcess.h"

#include "Base/Bytes.h"
#include "Base/File.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr std::size_t maxProcFile = std::size_t(8) << 20;

std::string procPath(pid_t number, const char* name) { return "/proc/" + std::to_string(number) + "/" + name; }

[[noreturn]] void fail(int error, const std::string& what) {
    throw std::system_error(error, std::system_category(), what);
}

std::string readProcFile(const std::string& path) { return std::string(textOf(File::read(path, maxProcFile))); }

std::vector<std::string> splitAtNul(const std::string& text) {
    std::vector<std::string> pieces;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\0', begin), text.size());
        pieces.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return pieces;
}

}  // namespace

std::optional<RunningProcess> RunningProcess::open(pid_t number) {
    FileDescriptor handle(static_cast<int>(::syscall(SYS_pidfd_open, number, 0)));
    if (!handle && errno == ESRCH) return std::nullopt;
    if (!handle) fail(errno, "process " + std::to_string(number));
    RunningProcess process(number, std::move(handle));
    if (!process.isRunning()) return std::nullopt;
    return process;
}

bool RunningProcess::isRunning() const { return !waitForEnd(std::chrono::milliseconds(0)); }

bool RunningProcess::waitForEnd(std::chrono::milliseconds atMost) const {
    // The handle can be read once the process has ended.
    pollfd poll{handle.get(), POLLIN, 0};
    int ready = 0;
    do ready = ::poll(&poll, 1, static_cast<int>(atMost.count()));
    while (ready < 0 && errno == EINTR);
    return ready != 0;
}

bool RunningProcess::signal(int signalNumber) const {
    if (::syscall(SYS_pidfd_send_signal, handle.get(), signalNumber, nullptr, 0) == 0) return true;
    if (errno == ESRCH) return false;
    fail(errno, "process " + std::to_string(number));
}

std::optional<LaunchContext> RunningProcess::launchContext() const {
    try {
        LaunchContext context;
        context.executable = std::filesystem::read_symlink(procPath(number, "exe"));
        context.workingFolder = std::filesystem::read_symlink(procPath(number, "cwd"));
        context.arguments = splitAtNul(readProcFile(procPath(number, "cmdline")));
        context.environment = splitAtNul(readProcFile(procPath(number, "environ")));
        if (!context.arguments.empty()) context.arguments.erase(context.arguments.begin());
        // If it still runs, no other process has had its number meanwhile, so what was read is its own.
        return isRunning() ? std::optional(context) : std::nullopt;
    } catch (const std::system_error&) {
        if (!isRunning()) return std::nullopt;
        throw;
    }
}

bool isProcessRunning(pid_t number) {
    if (::kill(number, 0) != 0 && errno != EPERM) return false;
    try {
        // "NUMBER (NAME) STATE ...", and a name may hold any character.
        const std::string status = readProcFile(procPath(number, "stat"));
        const std::size_t end = status.rfind(") ");
        const char state = end == std::string::npos || end + 2 >= status.size() ? '?' : status[end + 2];
        return state != 'Z' && state != 'X';
    } catch (const std::system_error&) {
        return true;  // /proc hides it from us, but `kill` has found it
    }
}
