// The real program: HTTP, TLS, and what it refuses.

#include "RelayProgramFixture.h"

#include <gmock/gmock.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdio>

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/// A certificate that signs itself, and its key.
void makeCertificate(const std::string& certificateFile, const std::string& keyFile, const std::string& name) {
    EVP_PKEY* key = EVP_EC_gen("P-256");
    X509* certificate = X509_new();
    X509_set_version(certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
    X509_set_pubkey(certificate, key);
    X509_NAME* subject = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(name.c_str()), -1,
                               -1, 0);
    X509_set_issuer_name(certificate, subject);
    X509_sign(certificate, key, EVP_sha256());
    std::FILE* file = std::fopen(certificateFile.c_str(), "w");
    PEM_write_X509(file, certificate);
    std::fclose(file);
    file = std::fopen(keyFile.c_str(), "w");
    PEM_write_PrivateKey(file, key, nullptr, nullptr, 0, nullptr, nullptr);
    std::fclose(file);
    X509_free(certificate);
    EVP_PKEY_free(key);
}

/// The close code in what the relay sent last: the two bytes of a close frame without a reason.
int lastCloseCode(const std::string& received) {
    if (received.size() < 4 || static_cast<unsigned char>(received[received.size() - 4]) != 0x88) return 0;
    return static_cast<unsigned char>(received[received.size() - 2]) << 8 | static_cast<unsigned char>(received.back());
}

class RelayLimitTest : public RelayProgramTest {
protected:
    /// The close code with which the relay answers these frames after the handshake.
    int closeCodeFor(std::uint16_t port, const std::string& frames) {
        RawConnection connection(port);
        connection.upgrade();
        connection.send(frames);
        return lastCloseCode(connection.readAll());
    }
};

TEST_F(RelayLimitTest, HttpRequestsAreAnsweredByWhatTheyAskFor) {
    const auto relay = serve();
    const auto port = relay->port();
    EXPECT_THAT(get(port, "/healthz"), StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(get(port, "/metrics"), HasSubstr("\nvimble_relay_links 0\n"));
    EXPECT_THAT(get(port, "/"), StartsWith("HTTP/1.1 404 "));
    EXPECT_THAT(get(port, "/relay"), StartsWith("HTTP/1.1 426 "));
    EXPECT_THAT(get(port, "/relay", "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 12\r\n"),
                HasSubstr("Sec-WebSocket-Version: 13\r\n"));
    EXPECT_THAT(get(port, "/relay",
                    "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                    "Sec-WebSocket-Key: short\r\n"),
                StartsWith("HTTP/1.1 400 "));
    EXPECT_THAT(get(port, "/healthz", "X-Long: " + std::string(20000, 'x') + "\r\n"), StartsWith("HTTP/1.1 431 "));
    const auto answerTo = [port](const std::string& request) {
        RawConnection connection(port);
        connection.send(request);
        return connection.readAll();
    };
    EXPECT_THAT(answerTo("POST /healthz HTTP/1.1\r\nHost: here\r\nContent-Length: 3\r\n\r\nabc"),
                StartsWith("HTTP/1.1 405 "));
    EXPECT_THAT(answerTo("\x16\x03\x01\x02 this is no HTTP\r\n\r\n"), StartsWith("HTTP/1.1 400 "));
}

TEST_F(RelayLimitTest, ARequestThatDoesNotComeInTimeIsClosed) {
    const auto relay = serve({"--request-seconds", "0.1"});
    RawConnection silent(relay->port()), slow(relay->port());
    slow.send("GET /hea");
    EXPECT_EQ(silent.readAll(), "");
    EXPECT_TRUE(silent.isClosed());
    EXPECT_EQ(slow.readAll(), "");
    EXPECT_TRUE(slow.isClosed());
    // Ask more than once: the request for the metrics may itself come too late.
    EXPECT_TRUE(awaitMetric(relay->port(), "requests_late_total", 2));
}

TEST_F(RelayLimitTest, MetricsAreForThisMachineUnlessOpened) {
    const std::string far = "X-Forwarded-For: 127.0.0.1, 192.0.2.7\r\n";
    {
        const auto relay = serve({"--behind-proxy"});
        EXPECT_THAT(get(relay->port(), "/metrics", far), StartsWith("HTTP/1.1 403 "));
        EXPECT_THAT(get(relay->port(), "/metrics"), StartsWith("HTTP/1.1 200 "));
    }
    const auto relay = serve({"--behind-proxy", "--open-metrics"});
    EXPECT_THAT(get(relay->port(), "/metrics", far), StartsWith("HTTP/1.1 200 "));
}

TEST_F(RelayLimitTest, FramesAgainstTheProtocolAreClosedWithTheirCodes) {
    const auto relay = serve({"--frame-bytes", "1000", "--pack-bytes", "1000"});
    const auto port = relay->port();
    const std::string mask(4, '\0');
    EXPECT_EQ(closeCodeFor(port, std::string("\x82\x01x", 3)), 1002);                // no mask
    EXPECT_EQ(closeCodeFor(port, std::string("\xc2\x81", 2) + mask + "x"), 1002);    // a reserved bit
    EXPECT_EQ(closeCodeFor(port, std::string("\x83\x81", 2) + mask + "x"), 1002);    // no such opcode
    EXPECT_EQ(closeCodeFor(port, std::string("\x80\x81", 2) + mask + "x"), 1002);    // continues nothing
    EXPECT_EQ(closeCodeFor(port, std::string("\x81\x81", 2) + mask + "x"), 1003);    // text
    EXPECT_EQ(closeCodeFor(port, std::string("\x82\xfe\x03\xe9", 4) + mask), 1009);  // 1001 bytes
    EXPECT_EQ(closeCodeFor(port, std::string("\x82\xff\xff\xff\xff\xff\xff\xff\xff\xff", 10) + mask), 1009);
    EXPECT_EQ(closeCodeFor(port, std::string("\x88\x82", 2) + mask + "\x03\xe8"), 1000);  // a proper close
    EXPECT_EQ(metric(port, "links"), 0);
    const std::string text = get(port, "/metrics");
    EXPECT_THAT(text, HasSubstr("closed_total{code=\"1002\",reason=\"protocol\"} 4\n"));
    EXPECT_THAT(text, HasSubstr("closed_total{code=\"1003\",reason=\"text\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("closed_total{code=\"1009\",reason=\"frame_size\"} 2\n"));
}

TEST_F(RelayLimitTest, APingIsAnsweredWithItsOwnBytes) {
    const auto relay = serve();
    RawConnection connection(relay->port());
    connection.upgrade();
    connection.send(std::string("\x89\x85", 2) + std::string(4, '\0') + "hello");
    EXPECT_THAT(connection.readUntil("\x8a\x05hello"), EndsWith("\x8a\x05hello"));
}

TEST_F(RelayLimitTest, OfManyPingsOnlyTheNewestIsSureOfItsAnswer) {
    const auto relay = serve();
    RawConnection connection(relay->port());
    connection.upgrade();
    const auto ping = [](const std::string& payload) {
        return std::string("\x89") + static_cast<char>(0x80 | payload.size()) + std::string(4, '\0') + payload;
    };
    const int count = 50000;
    std::string all;
    for (int index = 0; index < count; ++index) all += ping(std::string(100, 'p'));
    connection.send(all + ping("last"));
    const std::string received = connection.readUntil("\x8a\x04last");
    EXPECT_THAT(received, EndsWith("\x8a\x04last"));
    EXPECT_LT(received.size(), 100u * count / 2);
}

TEST_F(RelayLimitTest, ALinkWithoutAFirstPackIsClosedWith1013) {
    admit(ada);
    const auto relay = serve({"--first-pack-seconds", "0.1"});
    RelayClient client(ada, relay->port());
    ASSERT_TRUE(client.upgrade());
    EXPECT_EQ(client.closeCode(), 1013);
    EXPECT_THAT(get(relay->port(), "/metrics"),
                HasSubstr("closed_total{code=\"1013\",reason=\"first_pack_late\"} 1\n"));
}

TEST_F(RelayLimitTest, ALinkThatAnswersNoPingIsClosedWith1001) {
    admit(ada);
    const auto relay = serve({"--silence-seconds", "0.5"});
    RelayClient deaf(ada, relay->port());
    ASSERT_TRUE(deaf.join());
    // The client answers pings only while it reads, and here it does not read.
    EXPECT_TRUE(awaitMetric(relay->port(), "closed_total{code=\"1001\",reason=\"silent\"}", 1));
    EXPECT_EQ(deaf.closeCode(), 1001);
}

TEST_F(RelayLimitTest, LinksAndConnectionsFromOneAddressAreLimited) {
    admit(ada);
    const auto relay = serve({"--links-per-address", "2"});
    const auto port = relay->port();
    RelayClient first(ada, port), second(ada, port);
    ASSERT_TRUE(first.join());
    ASSERT_TRUE(second.join());
    RelayClient third(ada, port);
    EXPECT_FALSE(third.upgrade());
    EXPECT_EQ(third.reasonCode(), 1013);
    // Connections that never become links are limited to twice the number of links plus 16.
    std::vector<std::unique_ptr<RawConnection>> crowd;
    for (int count = 0; count < 20; ++count) crowd.push_back(std::make_unique<RawConnection>(port));
    crowd.back()->send("GET /healthz HTTP/1.1\r\nHost: here\r\n\r\n");
    crowd.back()->readAll();
    EXPECT_TRUE(crowd.back()->isClosed());
    crowd.clear();
    EXPECT_TRUE(awaitMetric(port, "connections_refused_total", 1));
}

TEST_F(RelayLimitTest, BehindAProxyTheAddressIsWhatTheProxySays) {
    const auto relay = serve({"--behind-proxy", "--links-per-address", "1"});
    const auto upgradeFrom = [&](RawConnection& connection, const std::string& address) {
        connection.send(
            "GET /relay HTTP/1.1\r\nHost: here\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n"
            "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nX-Forwarded-For: " +
            address + "\r\n\r\n");
    };
    RawConnection first(relay->port()), second(relay->port()), third(relay->port()), sameHalf(relay->port()),
        fifth(relay->port());
    upgradeFrom(first, "192.0.2.1");
    EXPECT_THAT(first.readUntil("vimble:"), HasSubstr("vimble:"));
    upgradeFrom(second, "10.0.0.1, 192.0.2.2");
    EXPECT_THAT(second.readUntil("vimble:"), HasSubstr("vimble:"));
    upgradeFrom(third, "10.0.0.1, 192.0.2.1");
    EXPECT_THAT(third.readAll(), HasSubstr("too many links from this address"));
    upgradeFrom(fifth, "2001:db8::1");
    EXPECT_THAT(fifth.readUntil("vimble:"), HasSubstr("vimble:"));
    upgradeFrom(sameHalf, "2001:db8::ffff:1");
    EXPECT_THAT(sameHalf.readAll(), HasSubstr("too many links from this address"));
}

TEST_F(RelayLimitTest, ASlowReaderIsClosedAndGetsItsMailLater) {
    admit(ada);
    admit(bob);
    const auto relay = serve({"--queued-bytes", "1000000", "--texts-per-second", "100000"});
    RelayClient author(ada, relay->port());
    ASSERT_TRUE(author.join());
    const int count = 120;
    {
        RelayClient slow(bob, relay->port());
        ASSERT_TRUE(slow.join());
        for (int index = 0; index < count; ++index) ASSERT_TRUE(author.write(bob, std::string(20000, 'x')));
        EXPECT_TRUE(awaitMetric(relay->port(), "mail_packs", 1));
    }
    RelayClient reader(bob, relay->port());
    ASSERT_TRUE(reader.join());
    EXPECT_TRUE(reader.readTexts(count));
    EXPECT_THAT(get(relay->port(), "/metrics"), HasSubstr("closed_total{code=\"1013\",reason=\"slow_reader\"} 1\n"));
}

TEST_F(RelayLimitTest, APackThatIsTooLargeIsAnErrorAndTheLinkStays) {
    admit(ada);
    admit(bob);
    const auto relay = serve({"--pack-bytes", "1000"});
    RelayClient author(ada, relay->port());
    ASSERT_TRUE(author.join());
    ASSERT_TRUE(author.write(bob, std::string(2000, 'x')));
    ASSERT_TRUE(author.readUntil([&] { return !author.answers.empty(); }));
    EXPECT_THAT(author.answers.back(), StartsWith("cerr That pack is too large"));
    EXPECT_EQ(metric(relay->port(), "mail_packs"), 0);
}

class RelayTlsTest : public RelayLimitTest {
protected:
    std::unique_ptr<RelayProcess> serveTls() {
        makeCertificate(certificate, key, "first");
        return serve({"--tls-certificate", certificate, "--tls-key", key});
    }

    std::string certificate = (folder.path / "certificate.pem").string();
    std::string key = (folder.path / "key.pem").string();
    static constexpr auto tls = RelayClient::Security::tls;
};

TEST_F(RelayTlsTest, PacksGoOverTls) {
    admit(ada);
    admit(bob);
    const auto relay = serveTls();
    RelayClient author(ada, relay->port(), tls), reader(bob, relay->port(), tls);
    ASSERT_TRUE(author.join()) << author.error();
    ASSERT_TRUE(reader.join());
    EXPECT_EQ(author.certificateName(), "first");
    std::vector<std::string> expected;
    for (const std::size_t size : {10u, 20000u, 200000u}) {
        expected.push_back(std::string(size, 'x'));
        ASSERT_TRUE(author.write(bob, expected.back()));
    }
    ASSERT_TRUE(reader.readTexts(expected.size()));
    EXPECT_EQ(reader.texts, expected);
    ASSERT_EQ(command({"remove", bob.hex()}), 0);
    EXPECT_EQ(reader.closeCode(), 1008);
}

TEST_F(RelayTlsTest, TheCertificateIsReadAgainOnSighup) {
    admit(ada);
    const auto relay = serveTls();
    RelayClient before(ada, relay->port(), tls);
    ASSERT_TRUE(before.join());
    makeCertificate(certificate, key, "second");
    relay->signal(SIGHUP);
    EXPECT_EQ(relay->errLine(), "vimble-relay: the certificate was read again");
    RelayClient after(ada, relay->port(), tls);
    ASSERT_TRUE(after.join());
    EXPECT_EQ(after.certificateName(), "second");
    before.say("help");
    EXPECT_TRUE(before.readUntil([&] { return !before.answers.empty(); }));

    std::filesystem::remove(key);
    relay->signal(SIGHUP);
    EXPECT_THAT(relay->errLine(),
                StartsWith("vimble-relay: the old certificate stays in use: the key " + key + " can't be used: "));
    RelayClient still(ada, relay->port(), tls);
    EXPECT_TRUE(still.join());
}

TEST_F(RelayTlsTest, WhoSpeaksNoTlsIsClosed) {
    const auto relay = serveTls();
    RawConnection plain(relay->port());
    plain.send("GET /healthz HTTP/1.1\r\nHost: here\r\n\r\n");
    EXPECT_THAT(plain.readAll(), testing::Not(HasSubstr("HTTP")));
    EXPECT_TRUE(plain.isClosed());
}

TEST_F(RelayTlsTest, ACertificateThatCannotBeUsedIsSaidInOneLine) {
    makeCertificate(certificate, key, "first");
    const std::string otherKey = (folder.path / "other.pem").string();
    makeCertificate((folder.path / "unused.pem").string(), otherKey, "other");
    EXPECT_EQ(command({"serve", "--listen", "127.0.0.1:0", "--tls-certificate", certificate, "--tls-key", otherKey}),
              1);
    EXPECT_THAT(complained, HasSubstr(otherKey));
    EXPECT_EQ(
        command({"serve", "--listen", "127.0.0.1:0", "--tls-certificate", database() + ".none", "--tls-key", key}), 1);
    EXPECT_THAT(complained, StartsWith("vimble-relay: the certificate " + database() + ".none can't be used: "));
}

}  // namespace
