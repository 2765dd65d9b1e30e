#pragma once

#include "PlatformCore/QtTransport.h"
#include "QtTestSupport/QtWait.h"
#include "TestSupport/TestLoop.h"

#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

/// Uses real sockets on Qt's loop, and a loop in virtual time for all posted work and timers of the transport.
class TransportTest : public ::testing::Test {
protected:
    TransportTest() {
        transport.onTrouble([this](std::string text) { troubles.push_back(std::move(text)); });
    }

    void make(const std::string& url, bool usesTls = false,
              std::vector<std::pair<std::string, std::string>> headers = {{"User-Agent", "Test/1"}}) {
        connection = transport.connection({url, usesTls, std::move(headers)});
    }

    TransportConnection::Handlers recording() {
        return {
            [this](TransportState state, const std::optional<TransportError>& error) {
                told.push_back(name(state));
                lastError = error ? error->text : "";
                if (onEvent) onEvent(told.back());
            },
            [this](TransportMessage message) {
                const std::string content(message.content.begin(), message.content.end());
                if (message.opcode == Opcode::close)
                    told.push_back("close " +
                                   (message.closeCode ? std::to_string(static_cast<int>(*message.closeCode)) : "-"));
                else
                    told.push_back((message.opcode == Opcode::text ? "text " : "binary ") + content);
                if (onEvent) onEvent(told.back());
            },
            [this](const TransportError& error) {
                told.push_back("receiveFailed");
                lastError = error.text;
                if (onEvent) onEvent(told.back());
            }};
    }

    void start(const std::string& url, bool usesTls = false) {
        make(url, usesTls);
        connection->start(recording());
        EXPECT_TRUE(told.empty()) << "told inside start";
    }

    /// Turns both loops until the condition holds, without letting virtual time pass.
    template <class Condition>
    bool turn(Condition condition) {
        return turnUntil([&] {
            loop.run();
            return condition();
        });
    }

    bool hears(const std::string& event) {
        return turn([&] { return !told.empty() && told.back() == event; });
    }

    /// Turns both loops for a moment, to show that nothing more comes.
    void settle() {
        for (int i = 0; i < 20; ++i) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            loop.run();
        }
    }

    static std::string name(TransportState state) {
        switch (state) {
            case TransportState::setup: return "setup";
            case TransportState::preparing: return "preparing";
            case TransportState::waiting: return "waiting";
            case TransportState::ready: return "ready";
            case TransportState::failed: return "failed";
            case TransportState::cancelled: return "cancelled";
        }
        return "";
    }

    TestLoop loop;
    QtTransport transport{loop};
    std::unique_ptr<TransportConnection> connection;
    std::vector<std::string> told;
    std::vector<std::string> troubles;
    std::string lastError;
    std::function<void(const std::string&)> onEvent;
};
