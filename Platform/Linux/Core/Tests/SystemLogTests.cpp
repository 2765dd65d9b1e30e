#include "PlatformCore/SystemLog.h"

#include "TestSupport/EnvironmentVariable.h"
#include "TestSupport/TemporaryFolder.h"

#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

/// Sends standard error into a file while it lives.
class CapturedErrors {
public:
    CapturedErrors() : before(dup(STDERR_FILENO)) {
        const int file = open(path().c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        dup2(file, STDERR_FILENO);
        close(file);
    }
    ~CapturedErrors() {
        dup2(before, STDERR_FILENO);
        close(before);
    }
    std::string text() const {
        std::ifstream stream(path());
        return {std::istreambuf_iterator<char>(stream), {}};
    }

private:
    std::string path() const { return folder.path / "errors"; }
    TemporaryFolder folder;
    int before;
};

/// Stands for the journal: the other end of its socket.
class Journal {
public:
    Journal() : file(socket(AF_UNIX, SOCK_DGRAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, path().c_str());
        EXPECT_EQ(bind(file, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    ~Journal() { close(file); }

    std::string path() const { return folder.path / "journal"; }

    /// The fields of the next entry, empty if there is none.
    std::map<std::string, std::string> next() const {
        std::vector<char> buffer(1 << 20);
        const ssize_t length = recv(file, buffer.data(), buffer.size(), MSG_DONTWAIT);
        std::map<std::string, std::string> fields;
        const std::string entry(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
        for (std::size_t at = 0; at < entry.size();) {
            const std::size_t end = entry.find('\n', at);
            std::uint64_t size = 0;
            for (int i = 0; i < 8; ++i)
                size |=
                    static_cast<std::uint64_t>(static_cast<unsigned char>(entry[end + 1 + static_cast<std::size_t>(i)]))
                    << (8 * i);
            fields[entry.substr(at, end - at)] = entry.substr(end + 9, size);
            EXPECT_EQ(entry.at(end + 9 + size), '\n');
            at = end + 9 + size + 1;
        }
        return fields;
    }

private:
    TemporaryFolder folder;
    int file;
};

TEST(SystemLogTest, AnEntryInTheJournalHasItsFields) {
    const Journal journal;
    const CapturedErrors errors;
    SystemLog log(SystemLog::Destination::journal, LogLevel::debug, "vimble", journal.path());
    log.write(LogLevel::info, "StateKit", "Websocket", "two\nlines = one entry");
    const std::map<std::string, std::string> expected{{"PRIORITY", "6"},
                                                      {"SUBSYSTEM", "StateKit"},
                                                      {"CATEGORY", "Websocket"},
                                                      {"SYSLOG_IDENTIFIER", "vimble"},
                                                      {"MESSAGE", "two\nlines = one entry"}};
    EXPECT_EQ(journal.next(), expected);
    log.write(LogLevel::debug, "a", "b", "c");
    EXPECT_EQ(journal.next()["PRIORITY"], "7");
    log.write(LogLevel::error, "a", "b", "c");
    EXPECT_EQ(journal.next()["PRIORITY"], "3");
    EXPECT_EQ(errors.text(), "");
}

TEST(SystemLogTest, WhatIsLessThanTheLevelIsNotWritten) {
    const Journal journal;
    SystemLog log(SystemLog::Destination::journal, LogLevel::error, "vimble", journal.path());
    log.write(LogLevel::debug, "a", "b", "c");
    log.write(LogLevel::info, "a", "b", "c");
    EXPECT_THAT(journal.next(), IsEmpty());
    log.write(LogLevel::error, "a", "b", "c");
    EXPECT_EQ(journal.next()["MESSAGE"], "c");
    SystemLog silent(SystemLog::Destination::journal, std::nullopt, "vimble", journal.path());
    silent.write(LogLevel::error, "a", "b", "c");
    EXPECT_THAT(journal.next(), IsEmpty());
}

TEST(SystemLogTest, ALongMessageIsCutBetweenCharacters) {
    const Journal journal;
    SystemLog log(SystemLog::Destination::journal, LogLevel::debug, "vimble", journal.path());
    std::string text = "x";
    for (int i = 0; i < 20000; ++i) text += "\u00e9";
    log.write(LogLevel::info, "a", "b", text);
    EXPECT_EQ(journal.next()["MESSAGE"], text.substr(0, (16 << 10) - 1));
}

TEST(SystemLogTest, WithoutAJournalItIsOneLineOnStandardError) {
    const CapturedErrors errors;
    SystemLog log(SystemLog::Destination::journal, LogLevel::info, "vimble", "/nowhere/socket");
    log.write(LogLevel::info, "StateKit", "Disk", "a\nb\x1b[2J");
    EXPECT_EQ(errors.text(), "StateKit/Disk: a b [2J\n");
}

TEST(SystemLogTest, AJournalThatWentAwayIsStandardErrorToo) {
    auto journal = std::make_unique<Journal>();
    SystemLog log(SystemLog::Destination::journal, LogLevel::info, "vimble", journal->path());
    journal.reset();
    const CapturedErrors errors;
    log.write(LogLevel::info, "a", "b", "c");
    EXPECT_EQ(errors.text(), "a/b: c\n");
}

TEST(SystemLogTest, AProgramOnATerminalWritesToStandardErrorUnlessThatIsTheJournal) {
    const Journal journal;
    const CapturedErrors errors;
    SystemLog plain(SystemLog::Destination::standardError, LogLevel::info, "vimble", journal.path());
    plain.write(LogLevel::info, "a", "b", "c");
    EXPECT_EQ(errors.text(), "a/b: c\n");
    EXPECT_THAT(journal.next(), IsEmpty());

    struct stat status {};
    fstat(STDERR_FILENO, &status);
    const EnvironmentVariable stream("JOURNAL_STREAM",
                                     std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino));
    SystemLog service(SystemLog::Destination::standardError, LogLevel::info, "vimble", journal.path());
    service.write(LogLevel::info, "a", "b", "d");
    EXPECT_EQ(errors.text(), "a/b: c\n");
    EXPECT_EQ(journal.next()["MESSAGE"], "d");
}

TEST(SystemLogTest, OnlyTheStreamThatTheEnvironmentNamesIsTheJournal) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    struct stat status {};
    fstat(ends[0], &status);
    const std::string device = std::to_string(status.st_dev);
    const std::string inode = std::to_string(status.st_ino);
    const auto isJournal = [&](const std::optional<std::string>& value) {
        const EnvironmentVariable stream("JOURNAL_STREAM", value);
        return SystemLog::isJournal(ends[0]);
    };
    EXPECT_TRUE(isJournal(device + ":" + inode));
    EXPECT_FALSE(isJournal(std::nullopt));
    for (const std::string& value :
         {std::string(), device, device + ":", device + ":" + inode + "x", ":" + inode, device + ":1", "1:" + inode})
        EXPECT_FALSE(isJournal(value)) << value;
    EXPECT_FALSE(SystemLog::isJournal(-1));
    close(ends[0]);
    close(ends[1]);
}

TEST(SystemLogTest, LinesOfSeveralThreadsDoNotMix) {
    const CapturedErrors errors;
    {
        SystemLog log(SystemLog::Destination::standardError, LogLevel::info, "vimble");
        std::vector<std::thread> threads;
        for (char c = 'a'; c < 'e'; ++c)
            threads.emplace_back([&log, c] {
                for (int i = 0; i < 200; ++i) log.write(LogLevel::info, "s", "c", std::string(100, c));
            });
        for (auto& thread : threads) thread.join();
    }
    std::istringstream lines(errors.text());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        ASSERT_EQ(line.size(), 105u);
        EXPECT_EQ(line.find_first_not_of(line[5], 5), std::string::npos);
    }
    EXPECT_EQ(count, 800);
}

}  // namespace
