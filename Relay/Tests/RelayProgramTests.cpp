// The real program over real sockets: links, packs, durability, members.

#include "RelayProgramFixture.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <fstream>

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using Texts = std::vector<std::string>;

TEST_F(RelayProgramTest, TheFirstLineSaysWhereItListens) {
    const auto relay = serve();
    EXPECT_EQ(relay->firstLine, "vimble-relay listening on 127.0.0.1:" + std::to_string(relay->port()));
}

TEST_F(RelayProgramTest, LocalhostIsTheIPv4Address) {
    RelayProcess relay({"serve", "--listen", "localhost:0", "--database", database()});
    EXPECT_EQ(relay.port() == 0 ? relay.errLine() : relay.firstLine,
              "vimble-relay listening on 127.0.0.1:" + std::to_string(relay.port()));
}

TEST_F(RelayProgramTest, ItListensOnIPv6InBrackets) {
    RelayProcess relay({"serve", "--listen", "[::1]:0", "--database", database()});
    if (relay.port() == 0) {
        // On a machine without IPv6 the relay must fail with one line.
        EXPECT_THAT(relay.errLine(), StartsWith("vimble-relay: can't listen on [::1]:0: "));
        GTEST_SKIP() << "this machine has no IPv6";
    }
    EXPECT_EQ(relay.firstLine, "vimble-relay listening on [::1]:" + std::to_string(relay.port()));
}

TEST_F(RelayProgramTest, MembersExchangePacksAndOthersAreClosedWith1008) {
    admit(ada);
    admit(bob);
    const auto relay = serve();
    RelayClient first(ada, relay->port()), second(bob, relay->port()), stranger(eve, relay->port());
    ASSERT_TRUE(first.join());
    ASSERT_TRUE(second.join());
    EXPECT_TRUE(first.knows(bob));
    Texts expected;
    for (int index = 0; index < 300; ++index) {
        expected.push_back("text " + std::to_string(index));
        ASSERT_TRUE(first.write(bob, expected.back()));
    }
    ASSERT_TRUE(second.readTexts(expected.size()));
    EXPECT_EQ(second.texts, expected);
    ASSERT_TRUE(second.write(ada, "answer"));
    ASSERT_TRUE(first.readTexts(1));
    EXPECT_EQ(first.texts, Texts{"answer"});
    ASSERT_TRUE(stranger.upgrade());
    stranger.say("list");
    EXPECT_EQ(stranger.closeCode(), 1008);
}

TEST_F(RelayProgramTest, PacksOfEverySizeAreRelayedAndFragmentsPutTogether) {
    admit(ada);
    admit(bob);
    const auto relay = serve();
    RelayClient author(ada, relay->port()), reader(bob, relay->port());
    ASSERT_TRUE(author.join());
    ASSERT_TRUE(reader.join());
    Texts expected;
    // Sizes around the limits of the frame's three length forms, of one read, and of an early write.
    for (const std::size_t size : {0u, 21u, 22u, 500u, 65431u, 65432u, 200000u, 262040u}) {
        author.fragment(size % 2 == 0 ? 1000 : 0);
        expected.push_back(std::string(size, 'x'));
        ASSERT_TRUE(author.write(bob, expected.back()));
    }
    ASSERT_TRUE(reader.readTexts(expected.size()));
    EXPECT_EQ(reader.texts, expected);
}

TEST_F(RelayProgramTest, PacksThatComeTogetherAreWrittenTogether) {
    admit(ada);
    admit(bob);
    const auto relay = serve();
    RelayClient reader(bob, relay->port());
    ASSERT_TRUE(reader.join());
    RawConnection author(relay->port());
    const std::string greeting = author.upgrade();
    const auto serverKey = Greeting::decoded(bytesOf(greeting).last(Greeting::size));
    ASSERT_TRUE(serverKey);
    const auto frameOf = [](const Bytes& pack) {
        std::string frame = "\x82";
        if (pack.size() <= 125) {
            frame += static_cast<char>(0x80 | pack.size());
        } else {
            frame += {'\xfe', static_cast<char>(pack.size() >> 8), static_cast<char>(pack.size())};
        }
        return frame + std::string(4, '\0') + std::string(textOf(pack));
    };
    author.send(frameOf(RelayWorld::packOf(ada, *serverKey, "list")));
    ASSERT_TRUE(awaitMetric(relay->port(), "members_online", 2));
    const double before = metric(relay->port(), "writes_total");
    std::string all;
    for (int count = 0; count < 500; ++count)
        all += frameOf(RelayWorld::packOf(ada, bob.key(), "some text that is long enough"));
    author.send(all);
    ASSERT_TRUE(reader.readTexts(500));
    // One write for each read of the author's connection, some for pings and metrics, but not one for each pack.
    EXPECT_LT(metric(relay->port(), "writes_total") - before, 100);
}

TEST_F(RelayProgramTest, APathThatEndsInRelayIsEnough) {
    admit(ada);
    const auto relay = serve();
    RelayClient client(ada, relay->port());
    ASSERT_TRUE(client.upgrade("/chat/relay?x=1"));
    EXPECT_TRUE(client.list());
}

TEST_F(RelayProgramTest, WhatTheCommandLineChangesReachesARunningRelay) {
    admit(ada);
    const auto relay = serve();
    RelayClient client(ada, relay->port());
    ASSERT_TRUE(client.join());
    EXPECT_FALSE(client.knows(bob));
    admit(bob);
    EXPECT_TRUE(client.readUntil([&] { return client.knows(bob); }));
    ASSERT_EQ(command({"add", ada.hex(), "--admin"}), 0);
    EXPECT_TRUE(client.readUntil([&] { return client.lists.back()[0].isAdmin; }));
    ASSERT_EQ(command({"remove", bob.hex()}), 0);
    EXPECT_TRUE(client.readUntil([&] { return !client.knows(bob); }));
    ASSERT_EQ(command({"remove", ada.hex()}), 0);
    EXPECT_EQ(client.closeCode(), 1008);
}

TEST_F(RelayProgramTest, AnAdminManagesMembersOverTheChatAndItLasts) {
    ASSERT_EQ(command({"add", "--admin", ada.hex()}), 0);
    {
        const auto relay = serve();
        RelayClient admin(ada, relay->port());
        ASSERT_TRUE(admin.join());
        admin.say("add " + bob.hex());
        ASSERT_TRUE(admin.readUntil([&] { return !admin.answers.empty(); }));
        EXPECT_EQ(admin.answers.back(), "crsp Added " + bob.hex() + ".");
        relay->kill();
    }
    RelayProcess list({"list", "--database", database()});
    EXPECT_EQ(list.outLine(), ada.hex() + " admin");
    EXPECT_EQ(list.outLine(), bob.hex());
}

TEST_F(RelayProgramTest, SigtermPutsWhatIsNotProvedIntoTheMailAndEndsWith0) {
    admit(ada);
    admit(bob);
    {
        const auto relay = serve();
        RelayClient author(ada, relay->port()), reader(bob, relay->port());
        ASSERT_TRUE(author.join());
        ASSERT_TRUE(reader.join());
        for (const char* text : {"one", "two", "three"}) ASSERT_TRUE(author.write(bob, text));
        // The reader does not read, so it answers no pings and proves nothing.
        ASSERT_TRUE(awaitMetric(relay->port(), "packs_delivered_total", 3));
        relay->signal(SIGTERM);
        EXPECT_EQ(author.closeCode(), 1001);
        EXPECT_EQ(relay->wait(std::chrono::seconds(5)), 0);
    }
    const auto relay = serve();
    RelayClient reader(bob, relay->port());
    ASSERT_TRUE(reader.join());
    ASSERT_TRUE(reader.readTexts(3));
    EXPECT_EQ(reader.texts, (Texts{"one", "two", "three"}));
}

TEST_F(RelayProgramTest, SigintEndsItTooWhateverItsConnectionsDo) {
    const auto relay = serve();
    RawConnection silent(relay->port());
    RawConnection upgraded(relay->port());
    upgraded.upgrade();
    relay->signal(SIGINT);
    EXPECT_EQ(relay->wait(std::chrono::seconds(5)), 0);
}

TEST_F(RelayProgramTest, MailSurvivesKill9) {
    admit(ada);
    admit(bob);
    {
        const auto relay = serve();
        RelayClient author(ada, relay->port());
        ASSERT_TRUE(author.join());
        ASSERT_TRUE(author.write(bob, "one"));
        ASSERT_TRUE(author.write(bob, "two"));
        ASSERT_TRUE(awaitMetric(relay->port(), "packs_stored_total", 2));
        relay->kill();
    }
    const auto relay = serve();
    {
        RelayClient reader(bob, relay->port());
        ASSERT_TRUE(reader.join());
        ASSERT_TRUE(reader.readTexts(2));
        EXPECT_EQ(reader.texts, (Texts{"one", "two"}));
        // Go on reading: the client answers pings, and so proves, only while it reads.
        reader.say("who");
        ASSERT_TRUE(reader.readUntil([&] { return !reader.answers.empty(); }));
    }
    ASSERT_TRUE(awaitMetric(relay->port(), "packs_proved_total", 2));
    EXPECT_EQ(metric(relay->port(), "mail_packs"), 0);
}

TEST_F(RelayProgramTest, ADiskThatIsFullClosesLinksWith1011AndLosesNothing) {
    admit(ada);
    admit(bob);
    const auto relay = serve();
    RelayClient author(ada, relay->port());
    ASSERT_TRUE(author.join());
    // Let no file of the relay grow any more, as on a full disk.
    const rlimit none{0, RLIM_INFINITY}, all{RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(::prlimit(relay->id(), RLIMIT_FSIZE, &none, nullptr), 0);
    ASSERT_TRUE(author.write(bob, "one"));
    EXPECT_EQ(author.closeCode(), 1011);
    EXPECT_THAT(relay->errLine(), StartsWith("vimble-relay: the database fails, all links are closed: the database "));
    EXPECT_THAT(get(relay->port(), "/healthz"), StartsWith("HTTP/1.1 503 "));
    RelayClient refused(ada, relay->port());
    EXPECT_FALSE(refused.join());
    EXPECT_EQ(refused.reasonCode(), 1011);

    ASSERT_EQ(::prlimit(relay->id(), RLIMIT_FSIZE, &all, nullptr), 0);
    EXPECT_EQ(relay->errLine(), "vimble-relay: the database works again");
    RelayClient reader(bob, relay->port());
    ASSERT_TRUE(reader.join());
    ASSERT_TRUE(reader.readTexts(1));
    EXPECT_EQ(reader.texts, Texts{"one"});
}

TEST_F(RelayProgramTest, ADiskThatIsFullAtTheEndIsSaidWithStatus1) {
    admit(ada);
    admit(bob);
    const auto relay = serve();
    RelayClient author(ada, relay->port());
    ASSERT_TRUE(author.join());
    const rlimit none{0, RLIM_INFINITY};
    ASSERT_EQ(::prlimit(relay->id(), RLIMIT_FSIZE, &none, nullptr), 0);
    ASSERT_TRUE(author.write(bob, "one"));
    EXPECT_EQ(author.closeCode(), 1011);
    relay->signal(SIGTERM);
    EXPECT_EQ(relay->wait(std::chrono::seconds(5)), 1);
    EXPECT_THAT(relay->errLine(), HasSubstr("the database fails"));
    EXPECT_THAT(relay->errLine(), StartsWith("vimble-relay: the mail could not be saved: "));
}

TEST_F(RelayProgramTest, ADatabaseThatSomebodyElseHoldsAtTheEndIsSaidWithin5Seconds) {
    admit(ada);
    admit(bob);
    const auto relay = serve();
    RelayClient author(ada, relay->port());
    ASSERT_TRUE(author.join());
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(database().c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    ASSERT_TRUE(author.write(bob, "one"));
    EXPECT_EQ(author.closeCode(), 1011);
    relay->signal(SIGTERM);
    EXPECT_EQ(relay->wait(std::chrono::seconds(5)), 1);
    sqlite3_close(other);
    EXPECT_THAT(relay->errLine(), HasSubstr("the database fails"));
    EXPECT_THAT(relay->errLine(), StartsWith("vimble-relay: the mail could not be saved: "));
}

TEST_F(RelayProgramTest, ItLivesOnWhenNobodyReadsItsErrors) {
    admit(ada);
    admit(bob);
    const auto relay = serve();
    RelayClient author(ada, relay->port());
    ASSERT_TRUE(author.join());
    relay->closeErr();
    const rlimit none{0, RLIM_INFINITY};
    ASSERT_EQ(::prlimit(relay->id(), RLIMIT_FSIZE, &none, nullptr), 0);
    ASSERT_TRUE(author.write(bob, "one"));
    EXPECT_EQ(author.closeCode(), 1011);
    EXPECT_THAT(get(relay->port(), "/healthz"), StartsWith("HTTP/1.1 503 "));
}

TEST_F(RelayProgramTest, WhoIsAdmittedMayComeAtOnce) {
    const auto relay = serve();
    for (int count = 0; count < 10; ++count) {
        const Somebody person("somebody");
        RelayClient client(person, relay->port());
        ASSERT_TRUE(client.upgrade());
        admit(person);
        EXPECT_TRUE(client.list());
    }
}

TEST_F(RelayProgramTest, TheTimeOfMailGoesOnWhereTheLastRelayLeftItWhateverTheClockSays) {
    admit(ada);
    admit(bob);
    serve();  // so that the relay saves its time, which it does at the start
    const auto ask = [&](const std::string& statement) {
        sqlite3* handle = nullptr;
        double result = 0;
        const auto read = [](void* into, int, char** values, char**) {
            *static_cast<double*>(into) = std::atof(values[0]);
            return 0;
        };
        EXPECT_EQ(sqlite3_open(database().c_str(), &handle), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(handle, statement.c_str(), read, &result, nullptr), SQLITE_OK);
        sqlite3_close(handle);
        return result;
    };
    const double future = 1e10;  // some three hundred years on
    ask("UPDATE time SET now = 1e10");
    const auto relay = serve();
    RelayClient author(ada, relay->port());
    ASSERT_TRUE(author.join());
    ASSERT_TRUE(author.write(bob, "one"));
    ASSERT_TRUE(awaitMetric(relay->port(), "packs_stored_total", 1));
    EXPECT_GE(ask("SELECT arrived FROM mail"), future);
    EXPECT_LT(ask("SELECT arrived FROM mail"), future + 3600);
    relay->signal(SIGTERM);
    EXPECT_EQ(relay->wait(), 0);
    EXPECT_GT(ask("SELECT now FROM time"), future);
}

TEST_F(RelayProgramTest, ADatabaseFromANewerVersionIsRefusedAndNotChanged) {
    admit(ada);
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(database().c_str(), &handle), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(handle, "PRAGMA journal_mode = DELETE; PRAGMA user_version = 2", nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(handle);
    const auto contents = [&] {
        std::ifstream file(database());
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    const std::string before = contents();
    for (const Texts& arguments : {Texts{"serve", "--listen", "127.0.0.1:0"}, Texts{"add", bob.hex()}, Texts{"list"}}) {
        EXPECT_EQ(command(arguments), 1);
        EXPECT_EQ(complained, "vimble-relay: the database " + database() +
                                  " is of a newer version of vimble-relay (form 2, and this one knows up to 1)");
        EXPECT_EQ(printed, "");
    }
    EXPECT_EQ(contents(), before);
}

TEST_F(RelayProgramTest, APortInUseIsSaidInOneLine) {
    const auto relay = serve();
    const std::string other = (folder.path / "other.db").string();
    const std::string place = "127.0.0.1:" + std::to_string(relay->port());
    EXPECT_EQ(plainCommand({"serve", "--listen", place, "--database", other}), 1);
    EXPECT_EQ(complained, "vimble-relay: can't listen on " + place + ": Address already in use");
}

TEST_F(RelayProgramTest, OneDatabaseIsServedOnce) {
    const auto relay = serve();
    EXPECT_EQ(command({"serve", "--listen", "127.0.0.1:0"}), 1);
    EXPECT_EQ(complained, "vimble-relay: another vimble-relay serves the database " + database());
}

TEST_F(RelayProgramTest, ARelayStartsAgainOnItsPortAtOnce) {
    admit(ada);
    auto relay = serve();
    RelayClient client(ada, relay->port());
    ASSERT_TRUE(client.join());
    const std::string place = "127.0.0.1:" + std::to_string(relay->port());
    relay->kill();
    relay = serve({"--listen", place});
    EXPECT_EQ(relay->firstLine, "vimble-relay listening on " + place);
}

TEST_F(RelayProgramTest, KeysComeFromAFileAllOrNone) {
    const std::string file = (folder.path / "keys").string();
    std::ofstream(file) << "# our group\n" << ada.hex() << "\n\n  " << bob.hex() << "  \r\n" << ada.hex() << "\n";
    EXPECT_EQ(command({"add", "--file", file}), 0);
    EXPECT_EQ(printed, "added 2, 1 was a member already");
    std::ofstream(file) << eve.hex() << "\nnonsense\n";
    EXPECT_EQ(command({"add", "--file", file}), 1);
    EXPECT_EQ(complained,
              "vimble-relay: " + file + ", line 2: \"nonsense\" is no public key of 64 hexadecimal characters");
    EXPECT_EQ(command({"remove", eve.hex()}), 1);
    EXPECT_EQ(complained, "vimble-relay: there is no member " + eve.hex());
}

TEST_F(RelayProgramTest, MistakesOnTheCommandLineAreOneLineAndStatus1) {
    const std::string none = (folder.path / "none").string();
    const std::vector<std::pair<Texts, std::string>> mistakes{
        {{"add", "12"}, "\"12\" is no public key of 64 hexadecimal characters"},
        {{"add", std::string(64, '0')},
         "\"" + std::string(64, '0') + "\" is no public key of 64 hexadecimal characters"},
        {{"add"}, "this command needs a key, or --file FILE"},
        {{"add", "--file", none}, "the file " + none + " can't be read"},
        {{"add", "--file", folder.path.string()}, "the file " + folder.path.string() + " can't be read"},
        {{"list"}, "there is no database " + database()},
        {{"remove", ada.hex()}, "there is no database " + database()},
        {{"serve", "--listen", "here"}, "--listen needs HOST:PORT, not \"here\""},
        {{"serve", "--listen", "127.0.0.1:65536"}, "\"65536\" is no port"},
        {{"serve", "--tls-certificate", none}, "--tls-certificate and --tls-key go together"},
        {{"serve", "--silence-seconds", "-1"}, "--silence-seconds needs a number above 0, not \"-1\""},
        {{"dance"}, "\"dance\" is no command: try --help"},
    };
    for (const auto& [arguments, line] : mistakes) {
        EXPECT_EQ(command(arguments), 1) << line;
        EXPECT_EQ(complained, "vimble-relay: " + line);
        EXPECT_EQ(printed, "");
    }
}

TEST_F(RelayProgramTest, AFileThatIsNoDatabaseIsRefusedAndNotChanged) {
    std::ofstream(database()) << "these are my memoirs, and no database; " << std::string(5000, 'x');
    EXPECT_EQ(command({"serve", "--listen", "127.0.0.1:0"}), 1);
    EXPECT_THAT(complained, StartsWith("vimble-relay: the database " + database() + " fails: file is not a database"));
    std::filesystem::remove(database());
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(database().c_str(), &handle), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(handle, "CREATE TABLE memoirs(page)", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(handle);
    EXPECT_EQ(command({"add", ada.hex()}), 1);
    EXPECT_EQ(complained, "vimble-relay: the file " + database() + " is no database of vimble-relay");
}

TEST_F(RelayProgramTest, HelpAndVersionGoToStandardOutput) {
    EXPECT_EQ(plainCommand({"--version"}), 0);
    EXPECT_THAT(printed, StartsWith("vimble-relay "));
    EXPECT_EQ(plainCommand({"--help"}), 0);
    EXPECT_THAT(printed, StartsWith("vimble-relay: relays sealed packs"));
    EXPECT_EQ(plainCommand({"serve", "--help"}), 0);
}

TEST_F(RelayProgramTest, ABackupOfARunningRelayHoldsMembersAndMail) {
    admit(ada);
    admit(bob);
    const std::string copy = (folder.path / "copy.db").string();
    {
        const auto relay = serve();
        RelayClient author(ada, relay->port());
        ASSERT_TRUE(author.join());
        ASSERT_TRUE(author.write(bob, "one"));
        ASSERT_TRUE(awaitMetric(relay->port(), "packs_stored_total", 1));
        EXPECT_EQ(command({"backup", copy}), 0) << complained;
        EXPECT_EQ(command({"backup", copy}), 1);
        EXPECT_EQ(complained, "vimble-relay: the file " + copy + " exists already");
    }
    RelayProcess relay({"serve", "--listen", "127.0.0.1:0", "--database", copy});
    RelayClient reader(bob, relay.port());
    ASSERT_TRUE(reader.join());
    ASSERT_TRUE(reader.readTexts(1));
}

TEST_F(RelayProgramTest, TheDatabaseIsReadableByItsOwnerOnly) {
    admit(ada);
    const auto allowed = std::filesystem::status(database()).permissions();
    EXPECT_EQ(allowed & (std::filesystem::perms::group_all | std::filesystem::perms::others_all),
              std::filesystem::perms::none);
}

}  // namespace
