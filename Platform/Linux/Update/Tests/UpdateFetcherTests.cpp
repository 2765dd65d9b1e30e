#include "PlatformUpdate/UpdateFetcher.h"

#include "QtTestSupport/AnswerServer.h"
#include "QtTestSupport/QtWait.h"
#include "TestSupport/LogLines.h"
#include "TestSupport/TemporaryFolder.h"
#include "TestSupport/TestLoop.h"
#include "UpdateKit/FileUrl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class UpdateFetcherTest : public testing::Test {
protected:
    /// Waits for the end of a fetch. Its sockets are real, and the clock stands still.
    void wait() {
        EXPECT_TRUE(turnUntil([this] {
            loop.run();
            return isDone;
        }));
    }

    void load(const std::string& url) {
        isDone = false;
        result = {};
        handle = fetcher.load(*Url::parse(url), [this](Outcome<Bytes> outcome) {
            isDone = true;
            try {
                const Bytes bytes = outcome.take();
                result = textOf(bytes);
            } catch (const FetchError& error) {
                result = std::string("error: ") + error.what();
            }
        });
    }
    std::string loaded(const std::string& url) {
        load(url);
        wait();
        handle.reset();
        return result;
    }

    void download(const std::string& url) {
        isDone = false;
        result = {};
        std::filesystem::remove(file);
        handle = fetcher.download(*Url::parse(url), file, [this](Outcome<Done> outcome) {
            isDone = true;
            try {
                outcome.take();
            } catch (const FetchError& error) {
                result = std::string("error: ") + error.what();
                return;
            }
            std::ifstream stream(file, std::ios::binary);
            result.assign(std::istreambuf_iterator<char>(stream), {});
        });
    }
    std::string downloaded(const std::string& url) {
        download(url);
        wait();
        handle.reset();
        return result;
    }

    TestLoop loop;
    TemporaryFolder folder;
    std::filesystem::path file = folder.path / "update.zip";
    LogLines log;
    UpdateFetcher fetcher{loop};
    UpdateFetcher::Handle handle;
    bool isDone = false;
    std::string result;
};

// ---- over the network

TEST_F(UpdateFetcherTest, AManifestAndAnArchiveComeAsTheyAre) {
    AnswerServer server(AnswerServer::saying("200 OK", "hello"));
    EXPECT_EQ(loaded(server.url()), "hello");
    EXPECT_EQ(downloaded(server.url()), "hello");
    const QByteArray request = server.requests[0].toLower();
    EXPECT_TRUE(request.contains("accept-encoding: identity\r\n")) << request.constData();
    EXPECT_FALSE(request.contains("cookie:"));
    struct stat status {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(UpdateFetcherTest, TheStatusIsNotLookedAt) {
    for (const char* status : {"404 Not Found", "500 Oops", "401 Who", "403 No", "418 Tea", "503 Busy"}) {
        AnswerServer server(AnswerServer::saying(status, "<html>"));
        EXPECT_EQ(loaded(server.url()), "<html>") << status;
        EXPECT_EQ(downloaded(server.url()), "<html>") << status;
    }
}

TEST_F(UpdateFetcherTest, WithoutAServerItSaysSo) {
    std::string url;
    {
        AnswerServer server({});
        url = server.url();
    }
    EXPECT_THAT(loaded(url), HasSubstr("error: Connection refused"));
}

TEST_F(UpdateFetcherTest, WhatIsNoUrlOfTheWebIsRefused) {
    for (const char* url : {"ftp://127.0.0.1/x", "relative", "data:,hello", "qrc:/x", "http:///x", "javascript:1"}) {
        EXPECT_THAT(loaded(url), HasSubstr("error: unsupported URL")) << url;
        EXPECT_THAT(downloaded(url), HasSubstr("error: unsupported URL")) << url;
    }
}

TEST_F(UpdateFetcherTest, ARedirectIsFollowed) {
    AnswerServer target(AnswerServer::saying("200 OK", "there"));
    AnswerServer server(AnswerServer::redirecting(target.url()));
    EXPECT_EQ(loaded(server.url()), "there");
    EXPECT_EQ(downloaded(server.url()), "there");
    server.answer = [](QTcpSocket& client, const QByteArray& request) {
        AnswerServer::Answer next = AnswerServer::saying("200 OK", "beside it");
        if (!request.startsWith("GET /a/there ")) next = AnswerServer::redirecting("there");
        next(client, request);
    };
    EXPECT_EQ(loaded(server.url("/a/here")), "beside it");
}

TEST_F(UpdateFetcherTest, RedirectsInACircleEnd) {
    AnswerServer server({});
    server.answer = AnswerServer::redirecting(server.url());
    EXPECT_EQ(loaded(server.url()), "error: too many redirects");
    EXPECT_EQ(server.requests.size(), 11U);
}

TEST_F(UpdateFetcherTest, ARedirectToAFileIsNotFollowed) {
    for (const char* target : {"file:///etc/passwd", "ftp://127.0.0.1/x", "data:,x", "qrc:/x"}) {
        AnswerServer server(AnswerServer::redirecting(target));
        EXPECT_THAT(loaded(server.url()), HasSubstr("error: ")) << target;
    }
}

TEST_F(UpdateFetcherTest, AManifestHasAtMost64KiB) {
    const QByteArray most(64 * 1024, 'x');
    AnswerServer fits(AnswerServer::saying("200 OK", most));
    EXPECT_EQ(loaded(fits.url()).size(), std::size_t(most.size()));
    AnswerServer tooLong(AnswerServer::saying("200 OK", most + 'x'));
    EXPECT_EQ(loaded(tooLong.url()), "error: the answer is longer than 65536 bytes");
}

TEST_F(UpdateFetcherTest, ALengthThatIsClaimedIsRefusedBeforeItComes) {
    AnswerServer server([](QTcpSocket& client, const QByteArray&) {
        client.write("HTTP/1.1 200 OK\r\nContent-Length: 1073741825\r\n\r\nx");
    });
    EXPECT_EQ(downloaded(server.url()), "error: the answer is longer than 1073741824 bytes");
    EXPECT_EQ(loaded(server.url()), "error: the answer is longer than 65536 bytes");
}

TEST_F(UpdateFetcherTest, AManifestWithoutAnEndIsCutOff) {
    AnswerServer server([](QTcpSocket& client, const QByteArray&) {
        client.write("HTTP/1.1 200 OK\r\n\r\n");
        QObject::connect(&client, &QTcpSocket::bytesWritten, &client,
                         [&client] { client.write(QByteArray(10000, ' ')); });
    });
    EXPECT_EQ(loaded(server.url()), "error: the answer is longer than 65536 bytes");
}

TEST_F(UpdateFetcherTest, AnAnswerThatIsCutShortIsAnError) {
    AnswerServer server(AnswerServer::raw("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf"));
    EXPECT_THAT(loaded(server.url()), HasSubstr("error: "));
    EXPECT_THAT(downloaded(server.url()), HasSubstr("error: "));
    AnswerServer nothing(AnswerServer::raw(""));
    EXPECT_THAT(loaded(nothing.url()), HasSubstr("error: "));
}

TEST_F(UpdateFetcherTest, AManifestHas30Seconds) {
    AnswerServer server(
        [](QTcpSocket& client, const QByteArray&) { client.write("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{"); });
    load(server.url());
    ASSERT_TRUE(turnUntil([&] { return !server.requests.empty(); }));
    // A byte now and then does not extend the time limit.
    for (int second = 0; second < 29; ++second) {
        loop.advance(1);
        server.client->write(" ");
        ASSERT_TRUE(turnUntil([&] { return server.client->bytesToWrite() == 0; }));
        ASSERT_FALSE(isDone) << second;
    }
    loop.advance(0.9);
    EXPECT_FALSE(isDone);
    loop.advance(0.1);
    EXPECT_EQ(result, "error: it took too long");
    handle.reset();
    EXPECT_TRUE(turnUntil([&] { return server.client->state() == QAbstractSocket::UnconnectedState; }));
}

TEST_F(UpdateFetcherTest, AnArchiveThatTricklesHasFailed) {
    AnswerServer server([](QTcpSocket& client, const QByteArray&) {
        client.write("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\nx");
    });
    download(server.url());
    ASSERT_TRUE(turnUntil([&] { return !server.requests.empty(); }));
    for (int second = 0; second < 59; ++second) {
        server.client->write("x");
        turnUntil([&] { return server.client->bytesToWrite() == 0; });
        loop.advance(1);
        ASSERT_FALSE(isDone) << second;
    }
    loop.advance(1);
    EXPECT_EQ(result, "error: it came too slowly");
}

TEST_F(UpdateFetcherTest, CalledOffItTellsNothingAndEndsTheLink) {
    AnswerServer server([](QTcpSocket& client, const QByteArray&) {
        client.write("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\nx");
    });
    download(server.url());
    ASSERT_TRUE(turnUntil([&] { return !server.requests.empty(); }));
    handle.reset();
    EXPECT_TRUE(turnUntil([&] { return server.client->state() == QAbstractSocket::UnconnectedState; }));
    EXPECT_FALSE(isDone);
    EXPECT_FALSE(loop.hasTimers());
}

TEST_F(UpdateFetcherTest, ALargeArchiveComesWholeAndIsLogged) {
    QByteArray body(3'000'000, '\0');
    for (qsizetype i = 0; i < body.size(); ++i) body[i] = static_cast<char>(i * 7 / 3);
    AnswerServer server(AnswerServer::saying("200 OK", body));
    EXPECT_EQ(downloaded(server.url()), body.toStdString());
    EXPECT_THAT(log.take(),
                testing::ElementsAre("info zorvane.UpdateKit/UpdateFetcher: UpdateKit: downloaded 2.8 MiB"));
}

TEST_F(UpdateFetcherTest, AFileThatIsThereIsNeverWrittenTo) {
    AnswerServer server(AnswerServer::saying("200 OK", "x"));
    const auto precious = folder.path / "precious";
    std::ofstream(precious) << "keep";
    download(server.url());
    handle.reset();
    std::filesystem::remove(file);
    std::filesystem::create_symlink(precious, file);
    std::string text;
    fetcher.download(*Url::parse(server.url()), file, [&](Outcome<Done> outcome) {
        try {
            outcome.take();
        } catch (const FetchError& error) {
            text = error.what();
        }
    });
    EXPECT_THAT(text, HasSubstr("the file can't be made"));
    EXPECT_EQ(std::filesystem::file_size(precious), 4U);
}

TEST_F(UpdateFetcherTest, AFileThatCannotGrowIsAnError) {
    AnswerServer server(AnswerServer::saying("200 OK", QByteArray(100000, 'x')));
    // A limit on the size of files makes a write fail in the midst, as on a full disk.
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto handlerBefore = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = before;
    small.rlim_cur = 50000;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const std::string text = downloaded(server.url());
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handlerBefore);
    EXPECT_THAT(text, HasSubstr("error: the file can't be written"));
}

TEST_F(UpdateFetcherTest, ItMayBeDroppedInItsCompletion) {
    AnswerServer server(AnswerServer::saying("200 OK", "x"));
    UpdateFetcher::Handle own;
    bool hasEnded = false;
    own = fetcher.load(*Url::parse(server.url()), [&](const Outcome<Bytes>&) {
        own.reset();
        hasEnded = true;
    });
    EXPECT_TRUE(turnUntil([&] { return hasEnded; }));
    AnswerServer tooLong(AnswerServer::saying("200 OK", QByteArray(100000, 'x')));
    hasEnded = false;
    own = fetcher.load(*Url::parse(tooLong.url()), [&](const Outcome<Bytes>&) {
        own.reset();
        hasEnded = true;
    });
    EXPECT_TRUE(turnUntil([&] { return hasEnded; }));
}

// ---- over TLS

class SecureFetcherTest : public UpdateFetcherTest {
protected:
    void SetUp() override { ASSERT_TRUE(authority.make()); }

    std::string loadedWith(UpdateFetcher& other, const std::string& url) {
        std::string text;
        bool hasEnded = false;
        const auto held = other.load(*Url::parse(url), [&](Outcome<Bytes> outcome) {
            hasEnded = true;
            try {
                const Bytes bytes = outcome.take();
                text = textOf(bytes);
            } catch (const FetchError& error) {
                text = std::string("error: ") + error.what();
            }
        });
        EXPECT_TRUE(turnUntil([&] { return hasEnded; }));
        return text;
    }

    TestAuthority authority;
};

TEST_F(SecureFetcherTest, OnlyACertificateOfATrustedAuthorityIsTaken) {
    AnswerServer server(AnswerServer::saying("200 OK", "secret"), authority.server());
    EXPECT_THAT(loaded(server.url()), HasSubstr("error: "));
    EXPECT_THAT(server.requests, IsEmpty()) << "nothing was asked of a stranger";
    UpdateFetcher trusting(loop, QList<QSslCertificate>{authority.certificate});
    EXPECT_EQ(loadedWith(trusting, server.url()), "secret");
}

TEST_F(SecureFetcherTest, ARedirectNeverLeadsOutOfTls) {
    AnswerServer plain(AnswerServer::saying("200 OK", "plain"));
    AnswerServer server(AnswerServer::redirecting(plain.url()), authority.server());
    UpdateFetcher trusting(loop, QList<QSslCertificate>{authority.certificate});
    EXPECT_EQ(loadedWith(trusting, server.url()), "error: redirected to where nothing is secured");
    EXPECT_THAT(plain.requests, IsEmpty());

    AnswerServer other(AnswerServer::saying("200 OK", "there"), authority.server());
    server.answer = AnswerServer::redirecting(other.url());
    EXPECT_EQ(loadedWith(trusting, server.url()), "there");
    // A redirect out of TLS is refused also if an earlier one has led into it.
    server.answer = AnswerServer::redirecting(plain.url());
    AnswerServer entrance(AnswerServer::redirecting(server.url()));
    EXPECT_EQ(loadedWith(trusting, entrance.url()), "error: redirected to where nothing is secured");
    EXPECT_THAT(plain.requests, IsEmpty());
}

// ---- from files

TEST_F(UpdateFetcherTest, AFileIsReadAndCopied) {
    const auto source = folder.path / "a b.json";
    const std::string text(3'000'000, 'y');
    std::ofstream(source) << "hello";
    EXPECT_EQ(loaded(FileUrl::of(source).text()), "hello");
    std::ofstream(source) << text;
    EXPECT_EQ(downloaded(FileUrl::of(source).text()), text);
    EXPECT_EQ(loaded(FileUrl::of(source).text()), "error: the answer is longer than 65536 bytes");
}

TEST_F(UpdateFetcherTest, AFileThatIsNoneIsAnErrorAndNeverWaitedFor) {
    EXPECT_THAT(loaded("file:///does/not/exist"), HasSubstr("error: the file can't be opened"));
    EXPECT_EQ(loaded("file://elsewhere/etc/passwd"), "error: no file of this machine");
    EXPECT_EQ(loaded(FileUrl::of(folder.path).text()), "error: no file");
    const auto pipe = folder.path / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(loaded(FileUrl::of(pipe).text()), "error: no file");
    EXPECT_EQ(loaded("file:///dev/zero"), "error: no file");
    const auto huge = folder.path / "huge";
    std::ofstream(huge) << "x";
    std::filesystem::resize_file(huge, UpdateFetcher::maxArchive + 1);
    EXPECT_EQ(downloaded(FileUrl::of(huge).text()), "error: the answer is longer than 1073741824 bytes");
}

TEST_F(UpdateFetcherTest, ACopyThatIsCalledOffEnds) {
    const auto source = folder.path / "source";
    std::ofstream(source) << std::string(3'000'000, 'y');
    download(FileUrl::of(source).text());
    handle.reset();
    loop.run();
    EXPECT_FALSE(isDone);
}

}  // namespace
