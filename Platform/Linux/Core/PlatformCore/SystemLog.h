#pragma once

#include "Base/FileDescriptor.h"
#include "StateKit/Log.h"

#include <optional>
#include <string>

/// Writes to the journal, or to standard error if there is none.
///
/// In the journal a message has the fields MESSAGE, PRIORITY (7 debug, 6 info, 3 error), SUBSYSTEM,
/// CATEGORY and SYSLOG_IDENTIFIER. On standard error it is one line, "SUBSYSTEM/CATEGORY: MESSAGE",
/// with control characters as spaces. A message is cut at 16 KiB. Any thread.
class SystemLog : public LogSink {
public:
    enum class Destination {
        journal,        // for a program with windows: the journal if there is one, else standard error
        standardError,  // for a program on a terminal; the journal only if standard error leads there
    };

    /// @param least  messages below this level are not written; without a level none is
    /// @param identifier  the program's name in the journal
    /// @param journalSocket  where the journal listens
    SystemLog(Destination destination, std::optional<LogLevel> least, std::string identifier,
              std::string journalSocket = "/run/systemd/journal/socket");

    void write(LogLevel level, std::string_view subsystem, std::string_view category,
               std::string_view message) override;

    /// Whether what is written to a file descriptor, such as 1, ends up in the journal (systemd.exec(5),
    /// JOURNAL_STREAM).
    static bool isJournal(int fileDescriptor);

private:
    bool writeToJournal(LogLevel level, std::string_view subsystem, std::string_view category,
                        std::string_view message);

    const std::optional<LogLevel> least;
    const std::string identifier;
    FileDescriptor journal;  // a connected datagram socket; written to by any thread
};
