#pragma once

#include "Process.h"

#include <filesystem>
#include <memory>
#include <string>

/// A web server for a folder with releases in it, in a process of its own.
class ReleaseServer {
public:
    /// Where a server's certificate and its key lie.
    struct Certificate {
        std::filesystem::path certificate;
        std::filesystem::path key;

        /// Makes a certificate for 127.0.0.1 that is its own authority. A test failure if that can't be done.
        static Certificate make(const std::filesystem::path& folder);
        /// Makes this process, and the programs that it starts from now on, trust this certificate and no other.
        /// @return false if this user may not mount folders
        bool beTrusted() const;
    };

    /// @param certificate  null: the server speaks HTTP without TLS
    explicit ReleaseServer(std::filesystem::path folder, const Certificate* certificate = nullptr);
    ~ReleaseServer();
    ReleaseServer(const ReleaseServer&) = delete;
    ReleaseServer& operator=(const ReleaseServer&) = delete;

    std::string url(const std::string& name = "latest.json") const;

    /// From now on, a client that asks for this file gets only the first half of it, until `letGo`. One file at a
    /// time.
    void hold(const std::string& name);
    /// Waits until a client has been sent the first half. @return whether that happened
    bool isHeld();
    /// Sends the second half to every client that waits, and holds nobody back any more. Only after `isHeld`.
    void letGo();

private:
    const std::filesystem::path folder;
    const bool isSecure;
    std::unique_ptr<Process> program;
    std::string port;
    std::filesystem::path pipe;
    int held = -1;  // our end of the pipe
};
