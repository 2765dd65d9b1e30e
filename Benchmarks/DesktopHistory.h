#pragma once

#include "TestSupport/Session.h"

#include <cstddef>
#include <string>

/// A session of person 1, connected, whose talk with person 2 has that many messages of 100 characters.
class DesktopHistory {
public:
    explicit DesktopHistory(std::size_t messageCount);

    /// Writes such a history where a start of the program finds it. Not connected.
    static void save(const std::filesystem::path& folder, std::size_t messageCount);

    Kit& kit() { return *session.kit; }
    MainLoop& loop() { return session.loop; }
    /// Person 2 says one thing more, and the engine has taken it in.
    void receiveOne();

    static std::string partner() { return keyTextOf(2); }

private:
    Session session;
};
