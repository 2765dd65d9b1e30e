#pragma once

#include <memory>
#include <string>
#include <string_view>

enum class LogLevel { debug, info, error };

/// Where log messages go on this machine. Messages may come from any thread.
class LogSink {
public:
    virtual ~LogSink() = default;
    virtual void write(LogLevel level, std::string_view subsystem, std::string_view category,
                       std::string_view message) = 0;
};

/// Messages for those who look after the program, by subsystem and category.
///
/// Until a sink is set, errors go to standard error and the rest nowhere.
class Log {
public:
    Log(std::string_view subsystem, std::string_view category) : subsystem(subsystem), category(category) {}

    void debug(std::string_view message) const { write(LogLevel::debug, message); }
    void info(std::string_view message) const { write(LogLevel::info, message); }
    void error(std::string_view message) const { write(LogLevel::error, message); }

    /// Replaces the process's sink; null restores the default. Call it before other threads start.
    /// @return the sink before
    static std::shared_ptr<LogSink> setSink(std::shared_ptr<LogSink> sink);

private:
    void write(LogLevel level, std::string_view message) const;

    std::string_view subsystem;  // both are string literals, so they are not copied
    std::string_view category;
};

/// The engine's debug lines ("core state changed"), which go to one sink of their own.
///
/// They reveal who talks to whom, so they go nowhere until the program has decided where they may be
/// seen (`setPrint`). Until then no line is even built. Main thread only.
class DebugLines {
public:
    using Print = void (*)(std::string_view line);

    /// Null turns the lines off. @return what was set before
    static Print setPrint(Print print);

    /// @param build  yields the line, without a line end; only called while a print function is set
    template <class Build>
    static void print(Build&& build) {
        if (current) current(build());
    }

private:
    static Print current;
};
