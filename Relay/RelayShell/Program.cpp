#include "RelayShell/Program.h"

#include "RelayCore/Command.h"
#include "RelayShell/CommandLine.h"
#include "RelayShell/RelayKeeper.h"
#include "RelayShell/Server.h"
#include "RelayShell/SqliteStore.h"
#include "RelayShell/Tls.h"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>

#include <sys/stat.h>

namespace {

PublicKey keyFrom(const std::string& text, const std::string& where = {}) {
    const auto key = memberKey(text);
    if (!key) throw UsageError(where + "\"" + text + "\" is no public key of 64 hexadecimal characters");
    return *key;
}

std::vector<StoredMember> keysIn(std::istream& lines, const std::string& name, bool isAdmin) {
    std::vector<StoredMember> members;
    std::string line;
    for (std::size_t number = 1; std::getline(lines, line); ++number) {
        const auto start = line.find_first_not_of(" \t\r");
        if (start == std::string::npos || line[start] == '#') continue;
        line = line.substr(start, line.find_last_not_of(" \t\r") + 1 - start);
        members.push_back({keyFrom(line, name + ", line " + std::to_string(number) + ": "), isAdmin});
    }
    if (lines.bad()) throw UsageError("the file " + name + " can't be read");
    return members;
}

void add(const CommandLine& commandLine) {
    std::vector<StoredMember> members;
    if (!commandLine.file) {
        members.push_back({keyFrom(commandLine.keys[0]), commandLine.isAdmin});
    } else if (*commandLine.file == "-") {
        members = keysIn(std::cin, "standard input", commandLine.isAdmin);
    } else {
        std::ifstream lines(*commandLine.file);
        std::error_code error;
        if (!lines || std::filesystem::is_directory(*commandLine.file, error))
            throw UsageError("the file " + commandLine.file->string() + " can't be read");
        members = keysIn(lines, commandLine.file->string(), commandLine.isAdmin);
    }
    SqliteStore store(commandLine.database, SqliteStore::Open::orCreate);
    const std::size_t added = store.admit(members);
    const std::size_t known = members.size() - added;
    std::cout << "added " << added;
    if (known > 0) std::cout << ", " << known << (known == 1 ? " was" : " were") << " a member already";
    std::cout << "\n";
}

void remove(const CommandLine& commandLine) {
    const PublicKey key = keyFrom(commandLine.keys[0]);
    SqliteStore store(commandLine.database, SqliteStore::Open::existing);
    if (!store.removeMember(key)) throw UsageError("there is no member " + commandLine.keys[0]);
    std::cout << "removed " << Nacl::hex(key) << "\n";
}

void list(const CommandLine& commandLine) {
    SqliteStore store(commandLine.database, SqliteStore::Open::existing);
    for (const StoredMember& member : store.members())
        std::cout << Nacl::hex(member.key) << (member.isAdmin ? " admin" : "") << "\n";
}

void backUp(const CommandLine& commandLine) {
    SqliteStore(commandLine.database, SqliteStore::Open::existing).backUp(*commandLine.file);
    std::cout << "wrote " << commandLine.file->string() << "\n";
}

int serve(const ServeOptions& options) {
    return options.untilReleased ? RelayKeeper(options).run() : Server(options).run();
}

int obey(const CommandLine& commandLine) {
    switch (commandLine.command) {
        case CommandLine::Command::help: std::cout << usageText(); return 0;
        case CommandLine::Command::version: std::cout << "vimble-relay " VIMBLE_VERSION "\n"; return 0;
        case CommandLine::Command::serve: return serve(commandLine.serve);
        case CommandLine::Command::add: add(commandLine); return 0;
        case CommandLine::Command::remove: remove(commandLine); return 0;
        case CommandLine::Command::list: list(commandLine); return 0;
        case CommandLine::Command::backUp: backUp(commandLine); return 0;
    }
    return 1;
}

}  // namespace

int runProgram(const std::vector<std::string>& words) {
    // Only this user may read the files that the relay makes: they show who writes to whom.
    ::umask(077);
    // Ignore the signal at the file size limit: the write then fails as on a full disk, and the relay goes on.
    std::signal(SIGXFSZ, SIG_IGN);
    // Ignore the signal of a closed pipe: the relay must go on when nobody reads its standard error any more.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return obey(CommandLine::parsed(words));
    } catch (const std::exception& error) {
        // The exceptions of the relay describe their failure in one line, so print that line alone.
        std::fprintf(stderr, "vimble-relay: %s\n", error.what());
        return 1;
    }
}
