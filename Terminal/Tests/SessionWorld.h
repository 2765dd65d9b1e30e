#pragma once

#include "StateKit/Internets.h"
#include "TerminalKit/TerminalSession.h"
#include "TestSupport/FakeHost.h"
#include "TestSupport/FakePathMonitor.h"
#include "TestSupport/FakeServer.h"
#include "TestSupport/FakeTransport.h"
#include "TestSupport/MemorySecretStore.h"
#include "TestSupport/TemporaryFolder.h"
#include "TestSupport/TestLoop.h"
#include "VimbleKit/Kit.h"

#include <algorithm>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What a session wrote, and how it ended.
struct RecordedOutput : TerminalOutput {
    void line(std::string_view text) override { lines.emplace_back(text); }
    void note(std::string_view text) override { notes.emplace_back(text); }
    void setReading(bool isReading) override { reading.push_back(isReading); }
    void end(int exitStatus) override { endings.push_back(exitStatus); }

    bool has(std::string_view wanted) const { return std::find(lines.begin(), lines.end(), wanted) != lines.end(); }
    /// The number of lines that begin with `beginning`.
    std::ptrdiff_t count(std::string_view beginning) const {
        return std::count_if(lines.begin(), lines.end(),
                             [&](const std::string& line) { return line.starts_with(beginning); });
    }

    std::vector<std::string> lines;
    std::vector<std::string> notes;
    std::vector<bool> reading;
    std::vector<int> endings;
};

/// One terminal session in virtual time, with the test as its server. The user is number 1.
class SessionWorld {
public:
    explicit SessionWorld(TerminalSession::Settings settings = {.form = OutputForm::plain,
                                                                .version = "1.2",
                                                                .isInteractive = false})
        : settings(std::move(settings)) {
        secrets.put(Nacl::hex(me.secretKey.view()));
        internets.start();
        path.update(true);
    }
    ~SessionWorld() {
        session.reset();
        kit.reset();
    }

    /// Starts the session; it has asked for a link, which is not there yet.
    void start() {
        kit = std::make_unique<Kit>(KitEnvironment{loop, internets, secrets, transport, host, folder.path});
        kit->setEndpoint(*Endpoint::parse("chat.example.org"));
        session = std::make_unique<TerminalSession>(
            *kit, loop, output,
            [this](Seconds atMost, std::function<void(bool)> done) { drain(atMost, std::move(done)); }, settings);
        session->start();
        loop.run();
    }

    /// Answers the latest attempt to connect.
    FakeServer& answer(const std::vector<MetaPerson>& people) {
        servers.push_back(std::make_unique<FakeServer>(transport.links.back(), me.publicKey));
        servers.back()->accept(people);
        loop.run();
        servers.back()->takePacks();  // drops the command "list"
        return *servers.back();
    }
    FakeServer& startAndAnswer() {
        start();
        return answer(everybody());
    }

    void type(std::string_view text) {
        session->read(text);
        loop.run();
    }

    /// The records in the packs for that reader, in order; packs for others are left out.
    std::vector<PackPlaintext> takeRecords(FakeServer& server, const Keys& reader) {
        std::vector<PackPlaintext> records;
        for (const EncryptedPack& pack : server.takePacks())
            if (const auto record = recordIn(pack, reader)) records.push_back(*record);
        return records;
    }

    static std::vector<MetaPerson> everybody() {
        return {{keyTextOf(1), false, true}, {keyTextOf(2), false, true}, {keyTextOf(3), false, false}};
    }

    const Keys me = keysOf(1);
    const Keys bob = keysOf(2);
    TerminalSession::Settings settings;
    TestLoop loop;
    FakeTransport transport{loop};
    FakeHost host;
    FakePath path;
    Internets internets{loop, path.monitor()};
    MemorySecretStore secrets;
    TemporaryFolder folder;
    RecordedOutput output;
    std::vector<std::unique_ptr<FakeServer>> servers;
    std::unique_ptr<Kit> kit;
    std::unique_ptr<TerminalSession> session;

    /// While `keepsDrains`, questions to the network are kept in `drains`, for the test to answer.
    bool keepsDrains = false;
    std::deque<std::pair<Seconds, std::function<void(bool)>>> drains;

private:
    void drain(Seconds atMost, std::function<void(bool)> done) {
        if (keepsDrains)
            drains.emplace_back(atMost, std::move(done));
        else
            loop.post([done = std::move(done)] { done(true); });
    }
};
