#include "Process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

int checked(int result, const char* what) {
    if (result < 0) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
    return result;
}

void closeIfOpen(int& file) {
    if (file >= 0) close(std::exchange(file, -1));
}

/// @return false at the end
bool readInto(int file, std::string& text) {
    std::array<char, 65536> bytes;
    const ssize_t count = read(file, bytes.data(), bytes.size());
    if (count > 0) text.append(bytes.data(), static_cast<std::size_t>(count));
    // A terminal whose other side is closed reads as an error.
    return count > 0 || (count < 0 && errno == EINTR);
}

}  // namespace

Process::Process(const Start& start) {
    int inPipe[2], outPipe[2], errPipe[2];
    checked(pipe2(inPipe, O_CLOEXEC), "pipe");
    checked(pipe2(outPipe, O_CLOEXEC), "pipe");
    checked(pipe2(errPipe, O_CLOEXEC), "pipe");
    if (start.input != Input::pipe) closeIfOpen(inPipe[1]);
    if (!start.inputFile.empty()) {
        close(inPipe[0]);
        inPipe[0] = checked(open(start.inputFile.c_str(), O_RDONLY | O_CLOEXEC), "open");
    }
    std::string terminalName;
    if (start.terminal == Terminal::controlling || start.input == Input::terminal) {
        terminalEnd = checked(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt");
        checked(grantpt(terminalEnd), "grantpt");
        checked(unlockpt(terminalEnd), "unlockpt");
        terminalName = ptsname(terminalEnd);
    }

    std::vector<char*> arguments;
    for (const std::string& word : start.command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    std::vector<std::string> assignments;
    for (const auto& [name, value] : start.environment) assignments.push_back(name + "=" + value);
    std::vector<char*> environment;
    for (const std::string& assignment : assignments) environment.push_back(const_cast<char*>(assignment.c_str()));
    environment.push_back(nullptr);

    processId = checked(fork(), "fork");
    if (processId == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        setsid();  // away from the terminal of whoever runs the tests
        int input = inPipe[0];
        if (!terminalName.empty()) {
            const int terminal = open(terminalName.c_str(), O_RDWR);
            ioctl(terminal, TIOCSCTTY, 0);
            if (start.input == Input::terminal) input = terminal;
        }
        dup2(input, STDIN_FILENO);
        dup2(outPipe[1], STDOUT_FILENO);
        dup2(errPipe[1], STDERR_FILENO);
        execve(arguments[0], arguments.data(), environment.data());
        _exit(127);
    }
    close(inPipe[0]);
    close(outPipe[1]);
    close(errPipe[1]);
    in = inPipe[1];
    outEnd = outPipe[0];
    errEnd = errPipe[0];
}

Process::~Process() {
    if (!status) {
        ::kill(processId, SIGKILL);
        waitpid(processId, nullptr, 0);
    }
    for (int* file : {&in, &outEnd, &errEnd, &terminalEnd}) closeIfOpen(*file);
}

void Process::write(std::string_view text) {
    while (!text.empty()) {
        // The program may have ended. That is no failure here: the test looks at the status by `wait`.
        const ssize_t count = ::write(in >= 0 ? in : terminalEnd, text.data(), text.size());
        if (count <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

void Process::closeInput() { closeIfOpen(in); }
void Process::closeOutput() { closeIfOpen(outEnd); }

void Process::type(std::string_view text) { static_cast<void>(!::write(terminalEnd, text.data(), text.size())); }

bool Process::readSome(Seconds atMost) {
    std::array<pollfd, 3> wanted{pollfd{outEnd, POLLIN, 0}, pollfd{errEnd, POLLIN, 0}, pollfd{terminalEnd, POLLIN, 0}};
    if (outEnd < 0 && errEnd < 0) return false;
    const int count = poll(wanted.data(), wanted.size(), std::max(0, static_cast<int>(atMost.count() * 1000)));
    if (count <= 0) return true;
    if (wanted[0].revents != 0 && !readInto(outEnd, out)) closeIfOpen(outEnd);
    if (wanted[1].revents != 0 && !readInto(errEnd, err)) closeIfOpen(errEnd);
    if (wanted[2].revents != 0 && !readInto(terminalEnd, onTerminal)) closeIfOpen(terminalEnd);
    return true;
}

bool Process::waitUntil(const std::function<bool()>& isDone, std::string_view what) {
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(patience);
    while (!isDone()) {
        const Seconds left = end - Clock::now();
        if (left.count() > 0 && readSome(left)) continue;
        if (isDone()) break;
        ADD_FAILURE() << "no " << what << "\n--- output\n"
                      << out << "--- errors\n"
                      << err << "--- terminal\n"
                      << onTerminal;
        return false;
    }
    return true;
}

std::optional<std::string> Process::line(const std::function<bool(std::string_view)>& isWanted, std::string_view what) {
    std::optional<std::string> found;
    waitUntil(
        [&] {
            while (true) {
                const std::size_t end = out.find('\n', seen);
                if (end == std::string::npos) return false;
                const std::string_view line = std::string_view(out).substr(seen, end - seen);
                seen = end + 1;
                if (!isWanted(line)) continue;
                found = std::string(line);
                return true;
            }
        },
        what);
    return found;
}

std::optional<std::string> Process::lineThatBegins(std::string_view beginning) {
    return line([&](std::string_view text) { return text.starts_with(beginning); },
                "line that begins: " + std::string(beginning));
}

std::optional<std::string> Process::lineWith(std::string_view part) {
    return line([&](std::string_view text) { return text.find(part) != std::string_view::npos; },
                "line with: " + std::string(part));
}

bool Process::exactLine(std::string_view text) {
    return line([&](std::string_view line) { return line == text; }, "line: " + std::string(text)).has_value();
}

bool Process::errorWith(std::string_view part) {
    return waitUntil([&] { return err.find(part) != std::string::npos; }, "error: " + std::string(part));
}

bool Process::promptWith(std::string_view part) {
    return waitUntil([&] { return onTerminal.find(part) != std::string::npos; }, "prompt: " + std::string(part));
}

std::optional<int> Process::wait() {
    if (status) return status;
    // Both ends close when the program dies, unless a child of it holds them open.
    waitUntil([&] { return outEnd < 0 && errEnd < 0; }, "end");
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(patience);
    int result = 0;
    while (waitpid(processId, &result, WNOHANG) == 0) {
        if (Clock::now() > end) {
            ADD_FAILURE() << "the program goes on";
            return std::nullopt;
        }
        poll(nullptr, 0, 5);
    }
    status = WIFEXITED(result) ? WEXITSTATUS(result) : 128 + WTERMSIG(result);
    return status;
}

void Process::signal(int number) const { ::kill(processId, number); }

void Process::kill() {
    ::kill(processId, SIGKILL);
    wait();
}
