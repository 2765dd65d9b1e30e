#pragma once

#include "RelayShell/FileLock.h"
#include "RelayShell/ServeOptions.h"

#include <filesystem>
#include <optional>
#include <string>

#include <sys/types.h>

/// Keeps one relay running for all who need it, for as long as anybody does.
///
/// Everybody who needs the relay has a shared lock (`flock`) on one file. The first keeper starts a relay in a
/// process of its own, and starts it again at the same address when it dies; later keepers find that relay and
/// end. When the last shared lock is gone, for whatever reason, the relay ends. Until it has ended, the keeper
/// has the file's exclusive lock, so that a process that wants a shared lock waits, and gets a new relay.
///
/// Beside the locked file stand three more. FILE.start is locked while a keeper looks for a relay and starts one.
/// FILE.keeper is locked while there is a keeper, and holds the relay's address. FILE.relay is locked while there
/// is a relay: after its keeper was killed, a relay still needs up to three seconds to end.
///
/// A process has one keeper and no other child or thread.
class RelayKeeper {
public:
    /// A relay that dies within these seconds of its start has died at once; one that does so this many times
    /// in a row is given up.
    static constexpr Seconds quickDeath = 5;
    static constexpr int mostQuickDeaths = 3;

    /// @param options  with the file that is locked
    /// @throws FileLockError
    explicit RelayKeeper(const ServeOptions& options);

    /// Prints where the relay listens once it does, and returns when it has ended, or when another keeper has
    /// it. A SIGTERM or SIGINT ends it too; a SIGHUP is passed on to it.
    /// @return the exit status: the relay's, 1 if it could not be started or was given up
    int run();

private:
    bool startRelay();
    [[noreturn]] void serve(int addressPipe, pid_t keeperProcess);
    void watchUsers();
    int keep();
    int end();

    ServeOptions options;
    FileLock users;
    FileLock start;
    FileLock keeper;
    FileLock relay;
    std::string address;  // where the relay listens, or did before it died
    pid_t relayProcess = -1;
    pid_t watchProcess = -1;
};
