#pragma once

#include "Process.h"

#include <filesystem>
#include <memory>
#include <string>

/// A web server, a program of its own, for a folder with releases in it.
class ReleaseServer {
public:
    /// Where a server's certificate and its key lie.
    struct Certificate {
        std::filesystem::path certificate;
        std::filesystem::path key;

        /// Makes one for 127.0.0.1 that is its own authority. A test failure if that can't be done.
        static Certificate make(const std::filesystem::path& folder);
        /// Has this process, and the programs that it starts from now on, trust it and no other authority.
        /// @return false if this user may not do that
        bool beTrusted() const;
    };

    /// @param certificate  null: not secured
    explicit ReleaseServer(std::filesystem::path folder, const Certificate* certificate = nullptr);
    ~ReleaseServer();
    ReleaseServer(const ReleaseServer&) = delete;
    ReleaseServer& operator=(const ReleaseServer&) = delete;

    std::string url(const std::string& name = "latest.json") const;

    /// Whoever asks for that file gets the first half of it, until they are let go. One file at a time.
    void hold(const std::string& name);
    /// Waits until somebody has got the first half. @return whether that came to be
    bool isHeld();
    /// Lets go of whoever waits, and of all others. After `isHeld`.
    void letGo();

private:
    const std::filesystem::path folder;
    const bool isSecure;
    std::unique_ptr<Process> program;
    std::string port;
    std::filesystem::path pipe;
    int held = -1;  // our end of it
};
