#include "PlatformCore/SystemLog.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::size_t longestMessage = 16 << 10;

char priority(LogLevel level) {
    switch (level) {
        case LogLevel::debug: return '7';
        case LogLevel::info: return '6';
        case LogLevel::error: return '3';
    }
    return '3';
}

/// Cuts a text at the limit, but not inside a character.
std::string_view cut(std::string_view text) {
    if (text.size() <= longestMessage) return text;
    std::size_t end = longestMessage;
    while (end > 0 && (text[end] & 0xC0) == 0x80) --end;
    return text.substr(0, end);
}

/// A field in the journal's own form with a length, in which a value may hold anything, line ends too.
/// Source: systemd, "Native Journal Protocol".
void putField(std::string& out, std::string_view name, std::string_view value) {
    out += name;
    out += '\n';
    for (int shift = 0; shift < 64; shift += 8)
        out += static_cast<char>(static_cast<std::uint64_t>(value.size()) >> shift);
    out += value;
    out += '\n';
}

FileDescriptor connectTo(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return {};
    std::memcpy(address.sun_path, path.data(), path.size());
    FileDescriptor connected(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!connected || connect(connected.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return {};
    return connected;
}

}  // namespace

SystemLog::SystemLog(Destination destination, std::optional<LogLevel> least, std::string identifier,
                     std::string journalSocket)
    : least(least), identifier(std::move(identifier)) {
    if (destination == Destination::journal || isJournal(STDERR_FILENO)) journal = connectTo(journalSocket);
}

bool SystemLog::isJournal(int fileDescriptor) {
    const char* stream = std::getenv("JOURNAL_STREAM");
    struct stat status {};
    if (stream == nullptr || fstat(fileDescriptor, &status) != 0) return false;
    const std::string_view text(stream);
    const char* const end = text.data() + text.size();
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    const auto first = std::from_chars(text.data(), end, device);
    if (first.ec != std::errc() || first.ptr == end || *first.ptr != ':') return false;
    const auto second = std::from_chars(first.ptr + 1, end, inode);
    return second.ec == std::errc() && second.ptr == end && device == status.st_dev && inode == status.st_ino;
}

bool SystemLog::writeToJournal(LogLevel level, std::string_view subsystem, std::string_view category,
                               std::string_view message) {
    if (!journal) return false;
    const char digit = priority(level);
    std::string entry;
    entry.reserve(message.size() + 256);
    putField(entry, "PRIORITY", {&digit, 1});
    putField(entry, "SUBSYSTEM", subsystem);
    putField(entry, "CATEGORY", category);
    putField(entry, "SYSLOG_IDENTIFIER", identifier);
    putField(entry, "MESSAGE", message);
    // If the journal is busy, lose the message instead of waiting.
    const ssize_t sent = send(journal.get(), entry.data(), entry.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return sent >= 0 || errno == EAGAIN || errno == ENOBUFS;
}

void SystemLog::write(LogLevel level, std::string_view subsystem, std::string_view category, std::string_view message) {
    if (!least || level < *least) return;
    message = cut(message);
    if (writeToJournal(level, subsystem, category, message)) return;
    std::string line;
    line.reserve(subsystem.size() + category.size() + message.size() + 4);
    line.append(subsystem).append("/").append(category).append(": ").append(message);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }, ' ');
    line += '\n';
    // Write in one call, so that lines of several threads do not mix. What can't be written is lost.
    static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
}
