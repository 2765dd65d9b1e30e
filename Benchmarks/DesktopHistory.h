#pragma once

#include "TestSupport/Session.h"

#include <cstddef>
#include <string>

/// A connected session of person 1, whose talk with person 2 has a given number of messages of 100 characters.
class DesktopHistory {
public:
    explicit DesktopHistory(std::size_t messageCount);

    /// Saves such a history, of a session that is not connected, where a start of the program finds it.
    static void save(const std::filesystem::path& folder, std::size_t messageCount);

    Kit& kit() { return *session.kit; }
    MainLoop& loop() { return session.loop; }
    /// Lets person 2 send one more text. Returns when the engine has taken it in.
    void receiveOne();

    static std::string partner() { return keyTextOf(2); }

private:
    Session session;
};
