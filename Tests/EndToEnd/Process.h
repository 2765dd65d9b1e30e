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
/// An operation that waits returns as soon as its event happens; a time-out only says when the test gives up.
/// The program is killed with this object, and when the test dies.
class Process {
public:
    using Seconds = std::chrono::duration<double>;
    /// Long, since the machine may be busy with other things; only failing tests wait that long.
    static constexpr Seconds patience{60};

    enum class Terminal { none, controlling };
    enum class Input { pipe, terminal };

    struct Start {
        std::vector<std::string> command;                // the program's path, then its arguments
        std::map<std::string, std::string> environment;  // all of it: nothing is inherited
        Input input = Input::pipe;
        Terminal terminal = Terminal::none;  // whether the program has a terminal to prompt on
        std::string inputFile;               // read as standard input instead of a pipe; empty: none
    };

    explicit Process(const Start& start);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// Writes to standard input. If that is a terminal, types on it.
    void write(std::string_view text);
    void closeInput();
    /// Types on the controlling terminal, also when standard input is a pipe.
    void type(std::string_view text);
    /// Closes the reading end of standard output, so that the program's next write to it fails.
    void closeOutput();

    /// Waits for a line of standard output behind the one that the last call found.
    /// @return the line; nothing, and a test failure, if none comes
    std::optional<std::string> line(const std::function<bool(std::string_view)>& isWanted, std::string_view what);
    std::optional<std::string> lineThatBegins(std::string_view beginning);
    std::optional<std::string> lineWith(std::string_view part);
    bool exactLine(std::string_view text);

    /// Waits for a text on standard error (`errorWith`) or on the terminal (`promptWith`). @return whether it came
    bool errorWith(std::string_view part);
    bool promptWith(std::string_view part);

    /// Reads what the program has written so far, without waiting for more. The program stops if a pipe of it
    /// is full and nobody reads.
    void readAvailable() { readSome(Seconds(0)); }

    /// Waits for the end of the program.
    /// @return the exit status, or 128 plus a signal's number; nothing, with a test failure, if it runs on
    std::optional<int> wait();
    void signal(int number) const;
    /// Ends the program as by kill -9, and waits until it has ended.
    void kill();

    pid_t id() const { return processId; }
    /// What was read so far; after `wait`, all that the program has written.
    const std::string& output() const { return out; }
    const std::string& errors() const { return err; }
    const std::string& shown() const { return onTerminal; }

private:
    bool waitUntil(const std::function<bool()>& isDone, std::string_view what);
    /// Reads what the program has written, and waits at most that long for it. @return false once standard output
    /// and standard error are both closed
    bool readSome(Seconds atMost);

    pid_t processId = -1;
    int in = -1;
    int outEnd = -1;
    int errEnd = -1;
    int terminalEnd = -1;
    std::string out;
    std::string err;
    std::string onTerminal;
    std::size_t seen = 0;  // bytes of `out` that earlier calls of `line` have looked at
    std::optional<int> status;
};
