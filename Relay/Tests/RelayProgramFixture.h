#pragma once

#include "RelayClient.h"
#include "RelayProcess.h"
#include "TestSupport/TemporaryFolder.h"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

/// The program with a database of its own, and three people.
class RelayProgramTest : public testing::Test {
protected:
    std::string database() const { return (folder.path / "relay.db").string(); }

    /// Runs a command to its end. @return the exit status; its first lines are in `printed` and `complained`
    int command(std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"--database", database()});
        return plainCommand(std::move(arguments));
    }
    int plainCommand(std::vector<std::string> arguments) {
        RelayProcess process(std::move(arguments));
        const int status = process.wait().value_or(-1);
        printed = process.outLine();
        complained = process.errLine();
        EXPECT_EQ(process.errLine(), "");
        return status;
    }
    void admit(const Somebody& person) { ASSERT_EQ(command({"add", person.hex()}), 0) << complained; }

    std::unique_ptr<RelayProcess> serve(std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), {"serve", "--listen", "127.0.0.1:0", "--database", database()});
        auto relay = std::make_unique<RelayProcess>(std::move(arguments));
        EXPECT_NE(relay->port(), 0) << relay->errLine();
        return relay;
    }
    static std::string get(std::uint16_t port, const std::string& path, const std::string& header = {}) {
        RawConnection connection(port);
        connection.send("GET " + path + " HTTP/1.1\r\nHost: here\r\n" + header + "\r\n");
        return connection.readAll();
    }
    static double metric(std::uint16_t port, const std::string& name) {
        const std::string text = get(port, "/metrics");
        const auto at = text.find("\nvimble_relay_" + name + " ");
        return at == std::string::npos ? -1 : std::atof(text.c_str() + at + name.size() + 15);
    }
    /// Asks until the metric has reached a value.
    static bool awaitMetric(std::uint16_t port, const std::string& name, double value) {
        const auto end = std::chrono::steady_clock::now() + patience;
        while (std::chrono::steady_clock::now() < end)
            if (metric(port, name) >= value) return true;
        return false;
    }

    TemporaryFolder folder;
    Somebody ada{"ada"};
    Somebody bob{"bob"};
    Somebody eve{"eve"};  // is not admitted
    std::string printed;
    std::string complained;
};
