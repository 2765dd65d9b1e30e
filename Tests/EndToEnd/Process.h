#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

/// A program that a test runs: fed through its standard input, read line by line, waited for.
///
/// Waiting is for something to happen, and ends with it; the time-outs only say when a test gives up.
/// The program dies with its holder, and with the test.
class Process {
public:
    using Seconds = std::chrono::duration<double>;
    /// Generous, for a machine that is busy with other things.
    static constexpr Seconds patience{60};

    enum class Terminal { none, controlling };
    enum class Input { pipe, terminal };

    struct Start {
        std::vector<std::string> command;                // the program's path, then its arguments
        std::map<std::string, std::string> environment;  // all of it
        Input input = Input::pipe;
        Terminal terminal = Terminal::none;  // whether there is one to ask on
        std::string inputFile;               // instead of a pipe
    };

    explicit Process(const Start& start);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// Writes to standard input, or types on the terminal that is it.
    void write(std::string_view text);
    void closeInput();
    /// Types on the controlling terminal.
    void type(std::string_view text);
    /// Nobody reads standard output any more.
    void closeOutput();

    /// Waits for a line of standard output behind those that earlier calls found.
    /// @return the line; nothing, and a test failure, if none comes
    std::optional<std::string> line(const std::function<bool(std::string_view)>& isWanted, std::string_view what);
    std::optional<std::string> lineThatBegins(std::string_view beginning);
    std::optional<std::string> lineWith(std::string_view part);
    bool exactLine(std::string_view text);

    /// Waits for a text on standard error, or on the terminal. @return whether it came
    bool errorWith(std::string_view part);
    bool promptWith(std::string_view part);

    /// Takes what the program has written so far, and does not wait for more. A pipe that nobody empties
    /// stops the program once it is full.
    void readAvailable() { readSome(Seconds(0)); }

    /// @return the exit status, 128 and the signal's number; nothing, and a test failure, if it goes on
    std::optional<int> wait();
    void signal(int number) const;
    /// kill -9, and the wait for its effect.
    void kill();

    pid_t id() const { return processId; }
    /// All that came so far; after `wait`, all.
    const std::string& output() const { return out; }
    const std::string& errors() const { return err; }
    const std::string& shown() const { return onTerminal; }

private:
    bool waitUntil(const std::function<bool()>& isDone, std::string_view what);
    /// Reads what has come, waiting for it at most so long. @return false once there is nothing to wait for
    bool readSome(Seconds atMost);

    pid_t processId = -1;
    int in = -1;
    int outEnd = -1;
    int errEnd = -1;
    int terminalEnd = -1;
    std::string out;
    std::string err;
    std::string onTerminal;
    std::size_t seen = 0;  // of `out`, by earlier calls of `line`
    std::optional<int> status;
};
