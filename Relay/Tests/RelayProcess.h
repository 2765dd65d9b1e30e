#pragma once

#include "Base/Check.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

/// How long a test waits for what must happen: long, for a busy machine. A test that passes never waits so long.
constexpr std::chrono::seconds patience{20};

/// The real program in a process of its own, and the lines that it prints.
class RelayProcess {
public:
    explicit RelayProcess(std::vector<std::string> arguments) {
        int out[2], err[2];
        check(::pipe2(out, O_CLOEXEC) == 0 && ::pipe2(err, O_CLOEXEC) == 0, "no pipe");
        arguments.insert(arguments.begin(), RELAY_PROGRAM);
        process = ::fork();
        check(process >= 0, "no process");
        if (process == 0) {
            ::dup2(out[1], STDOUT_FILENO);
            ::dup2(err[1], STDERR_FILENO);
            std::vector<char*> words;
            for (std::string& argument : arguments) words.push_back(argument.data());
            words.push_back(nullptr);
            ::execv(RELAY_PROGRAM, words.data());
            ::_exit(127);
        }
        ::close(out[1]);
        ::close(err[1]);
        outPipe = out[0];
        errPipe = err[0];
        watch = static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
        check(watch >= 0, "a process can't be watched");
    }
    ~RelayProcess() {
        if (process > 0) {
            ::kill(process, SIGKILL);
            ::waitpid(process, nullptr, 0);
        }
        ::close(outPipe);
        ::close(errPipe);
        ::close(watch);
    }
    RelayProcess(const RelayProcess&) = delete;
    RelayProcess& operator=(const RelayProcess&) = delete;

    /// The next line on standard output, or on standard error; empty when none comes.
    std::string outLine() { return lineFrom(outPipe, outRest); }
    std::string errLine() { return lineFrom(errPipe, errRest); }

    /// The port in the first line of output, in which the relay says where it listens.
    std::uint16_t port() {
        if (knownPort == 0) {
            firstLine = outLine();
            const auto colon = firstLine.rfind(':');
            if (colon != std::string::npos)
                knownPort = static_cast<std::uint16_t>(std::atoi(firstLine.c_str() + colon + 1));
        }
        return knownPort;
    }

    /// Closes our end of the pipe, so that nobody reads the program's standard error any more.
    void closeErr() { ::close(std::exchange(errPipe, -1)); }

    void signal(int number) { ::kill(process, number); }
    pid_t id() const { return process; }

    /// Waits for the end. @return the exit status; nothing when it did not end, or was killed
    std::optional<int> wait(std::chrono::milliseconds time = patience) {
        pollfd poll{watch, POLLIN, 0};
        if (::poll(&poll, 1, static_cast<int>(time.count())) != 1) return std::nullopt;
        int status = 0;
        ::waitpid(process, &status, 0);
        process = -1;
        return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
    }
    void kill() {
        signal(SIGKILL);
        wait();
    }

    std::string firstLine;

private:
    static std::string lineFrom(int pipe, std::string& rest) {
        const auto end = std::chrono::steady_clock::now() + patience;
        while (true) {
            if (const auto newline = rest.find('\n'); newline != std::string::npos) {
                const std::string line = rest.substr(0, newline);
                rest.erase(0, newline + 1);
                return line;
            }
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            pollfd poll{pipe, POLLIN, 0};
            if (left.count() <= 0 || ::poll(&poll, 1, static_cast<int>(left.count())) != 1) return {};
            char bytes[4096];
            const auto count = ::read(pipe, bytes, sizeof bytes);
            if (count <= 0) return std::exchange(rest, {});
            rest.append(bytes, static_cast<std::size_t>(count));
        }
    }

    pid_t process = -1;
    int watch = -1;
    int outPipe = -1;
    int errPipe = -1;
    std::string outRest;
    std::string errRest;
    std::uint16_t knownPort = 0;
};

/// A plain TCP connection, to send what no proper client would.
class RawConnection {
public:
    explicit RawConnection(std::uint16_t port) : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval limit{std::chrono::seconds(patience).count(), 0};
        ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        check(::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0, "no connection");
    }
    ~RawConnection() { ::close(socket); }
    RawConnection(const RawConnection&) = delete;
    RawConnection& operator=(const RawConnection&) = delete;

    void send(const std::string& bytes) {
        std::size_t sent = 0;
        while (sent < bytes.size()) {
            const auto count = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) return;  // the relay has closed it, which the test checks
            sent += static_cast<std::size_t>(count);
        }
    }
    /// Reads until `wanted` has come. @return all that has come so far
    std::string readUntil(const std::string& wanted) {
        while (received.find(wanted) == std::string::npos && readMore()) {
        }
        return received;
    }
    /// Everything until the other side closes.
    std::string readAll() {
        while (readMore()) {
        }
        return received;
    }
    /// Whether the other side has closed, and not merely fallen silent.
    bool isClosed() const { return hasEnded; }

    /// Shakes hands for the WebSocket. @return what has come, up to the end of the relay's greeting
    std::string upgrade() {
        send(
            "GET /relay HTTP/1.1\r\nHost: here\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
            "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n");
        const std::size_t start = readUntil("vimble:").find("vimble:");
        while (received.size() < start + 39 && readMore()) {
        }
        return received.substr(0, start + 39);
    }

private:
    bool readMore() {
        char bytes[4096];
        const auto count = ::recv(socket, bytes, sizeof bytes, 0);
        if (count == 0 || (count < 0 && errno != EAGAIN)) hasEnded = true;
        if (count <= 0) return false;
        received.append(bytes, static_cast<std::size_t>(count));
        return true;
    }

    int socket;
    std::string received;
    bool hasEnded = false;
};
