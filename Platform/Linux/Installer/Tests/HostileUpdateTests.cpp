// Hostile offers to an application that updates itself. It refuses them, says why in one line, and goes on.

#include "QtTestSupport/QtWait.h"
#include "SigningSupport/ProgramRun.h"
#include "UpdateAppFixture.h"

#include <fstream>

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class HostileUpdateTest : public UpdateAppFixture {
protected:
    static QByteArray seed(const std::string& name) {
        std::ifstream stream(fs::path(ARCHIVE_SEEDS) / name, std::ios::binary);
        EXPECT_TRUE(stream) << name;
        return QByteArray::fromStdString({std::istreambuf_iterator<char>(stream), {}});
    }

    /// Expects that a check fails like this, that one line in the log says why, and that nothing else has happened.
    void expectRefused(const std::string& failure, const std::string& why) {
        const auto lines = check();
        EXPECT_THAT(lines.back(), StartsWith("failed " + failure)) << testing::PrintToString(lines);
        EXPECT_THAT(lines, testing::Contains(AllOf(StartsWith("error UpdateKit: "), HasSubstr(why))));
        expectUntouched();
    }

    /// Expects that our own update is taken after all that was refused.
    void expectOursIsTaken() {
        publish("1.1.0", zipped(signedBundle("1.1.0")));
        EXPECT_EQ(check().back(), "ready 1.1.0");
        EXPECT_TRUE(isSealed(stagedBundle()));
    }
};

TEST_F(HostileUpdateTest, ArchivesThatReachOutOrSwell) {
    start();
    const std::vector<std::pair<std::string, std::string>> cases{
        {"upwards", R"("../evil" leads upwards)"},
        {"upwards-inside", R"("a/../../evil" leads upwards)"},
        {"upwards-to-sentinel", R"("../sentinel/file" leads upwards)"},
        {"absolute", R"("/tmp/vimble-fuzz-evil" is an absolute path)"},
        {"absolute-twice", R"("//tmp/vimble-fuzz-evil" is an absolute path)"},
        {"link-out", R"("l" is a link that leads outside)"},
        {"link-out-and-through", R"("l/file" lies below what is no folder)"},
        {"link-absolute-and-through", R"("l" is a link to an absolute path)"},
        {"link-out-by-another", R"("a/b/l" is a link that leads outside)"},
        {"link-becomes-file", R"("l" is there twice)"},
        {"link-circle", R"("a" is a link that leads in a circle)"},
        {"case", R"("A.app/X" differs from "A.app/x" only in case)"},
        {"case-of-folders", R"("a.APP/y" differs from "A.app" only in case)"},
        {"bomb", R"("zeros" makes the archive too large unpacked)"},
        {"bomb-of-many", "makes the archive too large unpacked"},
        {"devices", R"("d" is neither a file nor a folder nor a link)"},
        {"control-characters", R"("a\\n\\u{202e}b/../c" leads upwards)"},
        {"other-kind", "the archive "},
    };
    for (const auto& [name, why] : cases) {
        SCOPED_TRACE(name);
        publish("1.1.0", seed(name));
        // The reason of the extraction is in a line of its own, since the text of the failure does not contain it.
        expectRefused("extraction: Failed to extract update archive", "extraction failed — ");
        publish("1.1.0", seed(name));
        const auto lines = check();
        EXPECT_THAT(lines, testing::Contains(HasSubstr(why)));
    }
    EXPECT_FALSE(fs::exists("/tmp/vimble-fuzz-evil"));
    expectOursIsTaken();
}

TEST_F(HostileUpdateTest, AnArchiveWithoutAnApplicationOrWithTwo) {
    start();
    fs::create_directory(making / "none");
    std::ofstream(making / "none/readme") << "nothing else";
    publish("1.1.0", zipped(making / "none"));
    expectRefused("extraction: No .app bundle found in update archive", "No .app bundle found in update archive");
    const fs::path two = making / "two";
    makeLightBundle(two / "A.app", "1.1.0");
    makeLightBundle(two / "x/B.app", "1.1.0");
    publish("1.1.0", zipped(two));
    expectRefused("extraction: Multiple .app bundles found in update archive", "Multiple .app bundles found");
    expectOursIsTaken();
}

TEST_F(HostileUpdateTest, BundlesThatAreNotSignedByUs) {
    start();
    const auto mismatch = "Downloaded app is not signed by the same identity as the current app";
    const auto unreadable = "Unable to inspect code signature for Vimble.app";
    const TestChain other = chainOf({{.commonName = "Other Releases", .unit = "OTHER00001"},
                                     {.commonName = "Other Root", .unit = "", .isAuthority = true}});
    const auto contents = making / "Vimble.app/Contents";
    const std::vector<std::tuple<std::string, std::function<void(const Path&)>, std::string, std::string>> cases{
        {"another identity", [&](const Path& bundle) { sign(bundle, other); }, mismatch, mismatch},
        {"our names on other keys", [&](const Path& bundle) { sign(bundle, usualChain()); }, mismatch, mismatch},
        {"ad hoc", [&](const Path& bundle) { sealAdhoc(bundle); }, mismatch, mismatch},
        {"no seal", [&](const Path&) { fs::remove_all(contents / "_CodeSignature"); }, unreadable, "not sealed"},
        {"a seal without its signature", [&](const Path&) { fs::remove(contents / "_CodeSignature/Signature"); },
         unreadable, "code signature refused — vimble-codesign: "},
        {"an altered seal",
         [&](const Path&) { std::ofstream(contents / "_CodeSignature/Seal", std::ios::app) << "\n"; }, unreadable,
         "code signature refused — vimble-codesign: "},
        {"a program more", [&](const Path&) { fs::copy_file("/bin/true", contents / "Linux/helper"); }, unreadable,
         "Contents/Linux/helper"},
        {"a program less", [&](const Path&) { fs::remove(contents / "Program"); }, unreadable, "Contents/Program"},
        {"a byte more", [&](const Path&) { std::ofstream(contents / "Linux/Vimble", std::ios::app) << "x"; },
         unreadable, "Contents/Linux/Vimble"},
        {"another byte",
         [&](const Path&) {
             std::fstream file(contents / "Linux/Vimble");
             file.seekp(5);
             file << "S";
         },
         unreadable, "Contents/Linux/Vimble"},
        {"a link turned elsewhere",
         [&](const Path&) {
             fs::remove(contents / "Program");
             fs::create_symlink("Linux/../Linux/Vimble", contents / "Program");
         },
         unreadable, "Contents/Program"},
        {"an execute bit less", [&](const Path&) { fs::permissions(contents / "Linux/Vimble", fs::perms(0644)); },
         unreadable, "Contents/Linux/Vimble"},
    };
    for (const auto& [name, change, failure, why] : cases) {
        SCOPED_TRACE(name);
        const Path bundle = signedBundle("1.1.0");
        change(bundle);
        publish("1.1.0", zipped(bundle));
        expectRefused("validation: Update validation failed: " + failure, why);
    }
    expectOursIsTaken();
}

TEST_F(HostileUpdateTest, OursButNotWhatWasPromised) {
    start();
    publish("1.2.0", zipped(signedBundle("1.1.0")));
    const std::string other = "Downloaded app version 1.1.0 does not match manifest version 1.2.0";
    expectRefused("validation: Update validation failed: " + other, other);
    // An older release is offered under a newer number, to bring back a hole that it had.
    publish("1.2.0", zipped(signedBundle("0.9.0")));
    const std::string old = "Downloaded app version 0.9.0 does not match manifest version 1.2.0";
    expectRefused("validation: Update validation failed: " + old, old);
    for (const char* version : {"1.0.0", "0.9.9"}) {
        publish(version, zipped(signedBundle(version)));
        EXPECT_EQ(check().back(), "none: No update is currently available.") << version;
        expectUntouched();
    }
    expectOursIsTaken();
}

TEST_F(HostileUpdateTest, ManifestsThatAreNone) {
    start();
    const auto manifest = [this](AnswerServer::Answer answer) { answers["/latest.json"] = std::move(answer); };
    const auto saying = [](const QByteArray& text) { return AnswerServer::saying("200 OK", text); };

    manifest(saying(R"({"version":"1.1.0","url":"upda)"));
    expectRefused("manifest: Invalid release manifest: ", "Invalid release manifest: ");
    manifest(saying("\xff\n\x1b[31m\r\n{"));
    expectRefused("manifest: Invalid release manifest: ", "Invalid release manifest: ");
    manifest(saying(R"({"version":"1.1\n.0\u001b[31m","url":"x"})"));
    expectRefused(R"(unknown: Unable to parse version: 1.1\n.0\u{1b}[31m)",
                  R"(Unable to parse version: 1.1\n.0\u{1b})");
    manifest(AnswerServer::saying("404 Not\x01 Found", "<html>\nno\n</html>"));
    expectRefused("manifest: ", "manifest");

    const std::string tooLong = "Failed to load release manifest: the answer is longer than 65536 bytes";
    manifest([](QTcpSocket& client, const QByteArray&) {
        client.write("HTTP/1.1 200 OK\r\nContent-Length: 1073741824\r\n\r\n{");
    });
    expectRefused("manifest: " + tooLong, tooLong);
    manifest([](QTcpSocket& client, const QByteArray&) {
        client.write("HTTP/1.1 200 OK\r\n\r\n");
        QObject::connect(&client, &QTcpSocket::bytesWritten, &client,
                         [&client] { client.write(QByteArray(10000, ' ')); });
    });
    expectRefused("manifest: " + tooLong, tooLong);

    manifest(AnswerServer::raw("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"version\":\"1.1.0\""));
    expectRefused("manifest: Failed to load release manifest: ", "Failed to load release manifest: ");
    manifest(AnswerServer::raw("HTTP/1.1 200 O\x02\x1b[31mK\nX\r\n\r\n"));
    expectRefused("manifest: ", "manifest");
    manifest(AnswerServer::redirecting("file:///etc/passwd"));
    expectRefused("manifest: Failed to load release manifest: ", "Failed to load release manifest: ");
    manifest(AnswerServer::redirecting(server.url()));
    expectRefused("manifest: Failed to load release manifest: too many redirects", "too many redirects");
    expectOursIsTaken();
}

TEST_F(HostileUpdateTest, ArchivesThatAreCutShortOrTooLong) {
    start();
    const QByteArray whole = zipped(signedBundle("1.1.0"));
    publish("1.1.0", whole.first(whole.size() / 2));
    expectRefused("extraction: Failed to extract update archive", "extraction failed — ");
    publish("1.1.0", whole);
    answers["/update.zip"] = [&](QTcpSocket& client, const QByteArray&) {
        client.write("HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(whole.size()) + "\r\n\r\n" +
                     whole.first(whole.size() / 2));
        client.disconnectFromHost();
    };
    expectRefused("download: Failed to download update archive: ", "Failed to download update archive: ");
    answers["/update.zip"] = [](QTcpSocket& client, const QByteArray&) {
        client.write("HTTP/1.1 200 OK\r\nContent-Length: 1073741825\r\n\r\nPK");
    };
    const std::string tooLong = "Failed to download update archive: the answer is longer than 1073741824 bytes";
    expectRefused("download: " + tooLong, tooLong);
    answers.erase("/update.zip");
    expectRefused("extraction: Failed to extract update archive", "extraction failed — ");
    expectOursIsTaken();
}

TEST_F(HostileUpdateTest, WhatIsAlteredAfterItWasFoundGoodIsRefusedByTheService) {
    start();
    const std::vector<std::pair<std::function<void(const Path&)>, std::string>> cases{
        {[](const Path& bundle) { std::ofstream(bundle / "Contents/Linux/Vimble", std::ios::app) << "x"; },
         "Contents/Linux/Vimble"},
        {[](const Path& bundle) { fs::copy_file("/bin/true", bundle / "Contents/Linux/helper"); },
         "Contents/Linux/helper"},
        {[this](const Path& bundle) { sign(bundle, usualChain()); },
         "Staged update is not signed by the same identity as the installed app"},
        {[](const Path& bundle) {
             fs::rename(bundle, bundle.parent_path() / "Other.app");
             fs::create_directory_symlink("Other.app", bundle);
         },
         "The staged application is a symbolic link"},
        {[](const Path& bundle) { fs::remove_all(bundle); }, "Missing app bundle at "},
    };
    int version = 1;
    for (const auto& [change, why] : cases) {
        const std::string next = "1.1." + std::to_string(version++);
        publish(next, zipped(signedBundle(next)));
        ASSERT_EQ(check().back(), "ready " + next);
        change(stagedBundle());
        tell("install");
        const auto lines = linesUntil("failed installation: ");
        EXPECT_THAT(lines.back(), HasSubstr(why));
        EXPECT_THAT(lines,
                    testing::Contains(AllOf(StartsWith("error UpdateKit: installation failed — "), HasSubstr(why))));
        EXPECT_TRUE(isApplicationRunning());
        EXPECT_EQ(this->version(current), "1.0.0");
        EXPECT_TRUE(isSealed(current));
        EXPECT_THAT(namesIn(apps), testing::ElementsAre("Vimble.app"));
    }
}

}  // namespace
