// What a seal refuses, found by the real program in a real folder.

#include "TestBundle.h"

#include "Base/FileDescriptor.h"
#include "CodeSignature/BundleHasher.h"
#include "CodeSignature/CodeSignatureError.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fcntl.h>
#include <functional>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

class SealRefusalTest : public testing::Test {
protected:
    void SetUp() override { bundle.signAs(chain); }

    /// Both options that check a seal refuse it, with one line that holds all these words, and print nothing.
    void expectRefused(const std::vector<std::string>& words) const {
        for (const ProgramRun& run : {bundle.verify(), bundle.display()}) {
            EXPECT_EQ(run.status, 1);
            EXPECT_EQ(run.output, "");
            EXPECT_EQ(std::ranges::count(run.errors, '\n'), 1) << run.errors;
            EXPECT_TRUE(run.errors.starts_with("vimble-codesign: ")) << run.errors;
            for (const std::string& word : words) EXPECT_NE(run.errors.find(word), std::string::npos) << run.errors;
        }
    }
    void expectHolds() const {
        const ProgramRun run = bundle.verify();
        EXPECT_EQ(run.status, 0) << run.errors;
    }
    /// The program does not seal such a bundle, and its error holds these words.
    void expectNotSealable(const std::string& words) const {
        const std::string before = bundle.read(TestBundle::seal);
        const ProgramRun run = codesign({"--adhoc", bundle.path()});
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.errors.find(words), std::string::npos) << run.errors;
        EXPECT_EQ(std::ranges::count(run.errors, '\n'), 1) << run.errors;
        EXPECT_EQ(bundle.read(TestBundle::seal), before) << "the old seal stays";
    }
    fs::path at(std::string_view relative) const { return bundle.at(relative); }

    TestChain chain = usualChain();
    TestBundle bundle;
};

}  // namespace

TEST_F(SealRefusalTest, ASealThatNobodyTouchedHolds) {
    expectHolds();
    EXPECT_EQ(bundle.display().status, 0);
}

TEST_F(SealRefusalTest, AChangedByteInAnyFileIsNamed) {
    for (const char* name : {"Contents/Info.plist", "Contents/Linux/Vimble", "Contents/Frameworks/libone.so.1",
                             "Contents/Resources/a file with blanks and an Ä"}) {
        const std::string before = bundle.read(name);
        for (const std::size_t place : {std::size_t{0}, before.size() - 1}) {
            std::string altered = before;
            altered[place] ^= 1;
            bundle.write(name, altered);
            expectRefused({std::string(name) + ": its contents are not what was sealed"});
        }
        bundle.write(name, before);
        expectHolds();
    }
}

TEST_F(SealRefusalTest, ALongerOrShorterFileIsNamed) {
    bundle.write("Contents/Resources/empty", "x");
    expectRefused({"Contents/Resources/empty: its contents"});
    bundle.write("Contents/Resources/empty", "");
    bundle.write("Contents/Info.plist", "");
    expectRefused({"Contents/Info.plist: its contents"});
}

TEST_F(SealRefusalTest, AnAddedFileIsNamedWhereverItLies) {
    for (const char* name : {"extra", "Contents/Linux/extra", "Contents/.hidden"}) {
        bundle.write(name, "");
        expectRefused({std::string(name) + ": it is not in the seal"});
        fs::remove(at(name));
    }
    fs::create_directory(at("Contents/Empty"));
    expectRefused({"Contents/Empty: it is not in the seal"});
    fs::remove(at("Contents/Empty"));
    expectHolds();
}

TEST_F(SealRefusalTest, AnAddedExecutableIsNamed) {
    bundle.write("Contents/Linux/helper", "#!/bin/sh\n");
    ::chmod(at("Contents/Linux/helper").c_str(), 0755);
    expectRefused({"Contents/Linux/helper: it is not in the seal"});
}

TEST_F(SealRefusalTest, ARemovedFileFolderOrLinkIsNamed) {
    fs::remove(at("Contents/Resources/empty"));
    expectRefused({"Contents/Resources/empty: it is missing"});
    bundle.write("Contents/Resources/empty", "");
    fs::remove(at("Contents/Frameworks/libone.so"));
    expectRefused({"Contents/Frameworks/libone.so: it is missing"});
    fs::create_symlink("libone.so.1", at("Contents/Frameworks/libone.so"));
    expectHolds();
    fs::remove_all(at("Contents/Resources"));
    expectRefused({"Contents/Resources: it is missing"});
}

TEST_F(SealRefusalTest, ARenamedFileIsNamed) {
    fs::rename(at("Contents/Resources/empty"), at("Contents/Resources/void"));
    expectRefused({"Contents/Resources/void: it is not in the seal"});
}

TEST_F(SealRefusalTest, ATurnedLinkIsNamed) {
    fs::remove(at("Contents/Frameworks/libone.so"));
    fs::create_symlink("./libone.so.1", at("Contents/Frameworks/libone.so"));
    expectRefused({"Contents/Frameworks/libone.so: the link leads elsewhere"});
}

TEST_F(SealRefusalTest, ALostOrGainedBitOfTheModeIsNamed) {
    ::chmod(at("Contents/Linux/Vimble").c_str(), 0644);
    expectRefused({"Contents/Linux/Vimble: its mode is 0644 and was sealed as 0755"});
    ::chmod(at("Contents/Linux/Vimble").c_str(), 0755);
    ::chmod(at("Contents/Info.plist").c_str(), 0666);
    expectRefused({"Contents/Info.plist: its mode is 0666 and was sealed as 0644"});
    ::chmod(at("Contents/Info.plist").c_str(), 0644);
    ::chmod(at("Contents/Resources").c_str(), 0777);
    expectRefused({"Contents/Resources: its mode is 0777 and was sealed as 0755"});
    ::chmod(at("Contents/Resources").c_str(), 0755);
    ::chmod(bundle.path().c_str(), 0700);
    expectRefused({"the bundle: its mode is 0700 and was sealed as 0755"});
    ::chmod(bundle.path().c_str(), 0755);
    expectHolds();
}

TEST_F(SealRefusalTest, SpecialBitsAreRefusedButTheInheritedGroupOfAFolder) {
    ::chmod(at("Contents/Linux/Vimble").c_str(), 04755);
    expectRefused({"Contents/Linux/Vimble: it has a set-user-ID"});
    expectNotSealable("Contents/Linux/Vimble: it has a set-user-ID");
    ::chmod(at("Contents/Linux/Vimble").c_str(), 0755);
    ::chmod(at("Contents/Linux").c_str(), 02755);
    expectHolds();
}

TEST_F(SealRefusalTest, AFileThatBecameSomethingElseIsNamed) {
    const std::string name = "Contents/Info.plist";
    const fs::path place = at(name);
    const auto replaced = [&](const std::function<void()>& make, const std::string& words) {
        fs::remove_all(place);
        make();
        expectRefused({name + ": it is " + words});
    };
    replaced([&] { fs::create_directory(place); }, "a folder and was sealed as a file");
    replaced([&] { fs::create_symlink("Linux/Vimble", place); }, "a symbolic link and was sealed as a file");
    replaced([&] { ::mkfifo(place.c_str(), 0644); }, "neither a file nor a folder nor a symbolic link");
    expectNotSealable(name + ": it is neither");
    replaced(
        [&] {
            // Name the socket by a short path, since the address of a socket has little room.
            const FileDescriptor folder(::open(at("Contents").c_str(), O_RDONLY | O_DIRECTORY));
            sockaddr_un address{AF_UNIX, ""};
            std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/Info.plist", folder.get());
            const FileDescriptor made(::socket(AF_UNIX, SOCK_STREAM, 0));
            ASSERT_EQ(::bind(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        },
        "neither a file nor a folder nor a symbolic link");
    if (::mknod(at("device").c_str(), S_IFCHR | 0644, 0x103) == 0) {
        fs::remove(at("device"));
        replaced([&] { ::mknod(place.c_str(), S_IFCHR | 0644, 0x103); }, "neither");
    }
    fs::remove(place);
    bundle.write(name, "<plist/>");
    expectHolds();
    fs::remove_all(at("Contents/Resources"));
    fs::create_symlink("Linux", at("Contents/Resources"));
    expectRefused({"Contents/Resources: it is a symbolic link and was sealed as a folder"});
}

TEST_F(SealRefusalTest, ALinkOutOfTheBundleIsNeitherSealedNorAccepted) {
    const auto link = [&](const std::string& target, const std::string& how) {
        fs::create_symlink(target, at("Contents/Frameworks/away"));
        expectRefused({"Contents/Frameworks/away: it is not in the seal"});
        expectNotSealable("Contents/Frameworks/away: the link to " + target + ' ' + how);
        fs::remove(at("Contents/Frameworks/away"));
    };
    link("/etc/passwd", "leads out of the bundle");
    link("/", "leads out of the bundle");
    link("../../..", "leads out of the bundle");
    link("../../../Vimble.app/Contents/Info.plist", "leads out of the bundle");
    link("nothing", "leads to nothing in the bundle");
    link("../Info.plist/x", "leads to nothing in the bundle");
    link("../_CodeSignature/Seal", "leads to nothing in the bundle");
    link("away", "leads in a circle");
}

TEST_F(SealRefusalTest, AChainOfLinksThatLeadsOutIsNamed) {
    // Each link stays inside if only its own text is looked at.
    fs::create_directory(at("Contents/Resources/deep"));
    fs::create_symlink("../..", at("Contents/Resources/deep/contents"));
    fs::create_symlink("deep/contents/../..", at("Contents/Resources/out"));
    expectNotSealable("Contents/Resources/out: the link to deep/contents/../.. leads out of the bundle");
    fs::remove(at("Contents/Resources/out"));
    fs::create_symlink("deep/contents/../Contents", at("Contents/Resources/out"));
    EXPECT_EQ(codesign({"--adhoc", bundle.path()}).status, 0) << "up to the bundle itself is inside";
    fs::create_symlink("b", at("Contents/Resources/a"));
    fs::create_symlink("a", at("Contents/Resources/b"));
    expectNotSealable("Contents/Resources/a: the link to b leads in a circle");
}

TEST_F(SealRefusalTest, NamesThatCouldDeceiveAreRefusedAndShownEscaped) {
    for (const auto& [name, shown] :
         std::vector<std::pair<std::string, std::string>>{{"a\nvimble-codesign: fine", "a\\x0avimble-codesign: fine"},
                                                          {"\x1b[2J", "\\x1b[2J"},
                                                          {"\xff", "\\xff"},
                                                          {"\u202efdp", "\\xe2\\x80\\xaefdp"}}) {
        bundle.write("Contents/" + name, "");
        expectRefused({"Contents/" + shown + ": it is not in the seal"});
        expectNotSealable("Contents/" + shown + ": its name holds control characters");
        fs::remove(at("Contents/" + name));
    }
}

TEST_F(SealRefusalTest, NamesThatDifferOnlyInCaseAreNotSealed) {
    bundle.write("Contents/info.plist", "");
    expectNotSealable("Contents/info.plist: another name differs from it only in case");
}

TEST_F(SealRefusalTest, AStrippedSignatureIsRefused) {
    fs::remove(at(TestBundle::signature));
    expectRefused({"the seal is to be signed, and its signature is missing"});
}

TEST_F(SealRefusalTest, AStrippedSealIsRefused) {
    fs::remove_all(at("Contents/_CodeSignature"));
    expectRefused({"the bundle is not sealed"});
}

TEST_F(SealRefusalTest, ASignedSealCanNotBeTurnedIntoAnAdHocOneUnderTheSignature) {
    std::string seal = bundle.read(TestBundle::seal);
    seal.replace(seal.find("required"), 8, "none");
    bundle.write(TestBundle::seal, seal);
    expectRefused({"the seal is ad hoc, and has a signature all the same"});
    // Without the signature, this is an ad-hoc bundle, which anybody could make, and is shown as one.
    fs::remove(at(TestBundle::signature));
    EXPECT_TRUE(bundle.display().hasLine("Signature=adhoc"));
}

TEST_F(SealRefusalTest, ASealAlteredToFitAlteredFilesIsRefused) {
    std::string altered = bundle.read("Contents/Linux/Vimble");
    altered[0] ^= 1;
    bundle.write("Contents/Linux/Vimble", altered);
    const std::string signature = bundle.read(TestBundle::signature);
    bundle.sealAdhoc();
    std::string seal = bundle.read(TestBundle::seal);
    seal.replace(seal.find("none"), 4, "required");
    bundle.write(TestBundle::seal, seal);
    bundle.write(TestBundle::signature, signature);
    expectRefused({"the signature is not one over this seal"});
}

TEST_F(SealRefusalTest, EveryBytesChangeInTheSealIsRefused) {
    const std::string seal = bundle.read(TestBundle::seal);
    // Only every 41st byte, since each one takes two runs of the program.
    for (std::size_t place = 0; place < seal.size(); place += 41) {
        std::string altered = seal;
        altered[place] ^= 2;
        bundle.write(TestBundle::seal, altered);
        expectRefused({});
    }
    bundle.write(TestBundle::seal, seal + "\n");
    expectRefused({"the list of the seal can't be read"});
    bundle.write(TestBundle::seal, seal);
    expectHolds();
}

TEST_F(SealRefusalTest, ASealFromAnotherBundleIsRefused) {
    TestBundle other;
    other.write("Contents/Info.plist", "<plist>other</plist>");
    other.signAs(chain);
    bundle.write(TestBundle::signature, other.read(TestBundle::signature));
    expectRefused({"the signature is not one over this seal"});
    bundle.write(TestBundle::seal, other.read(TestBundle::seal));
    expectRefused({"Contents/Info.plist: its contents are not what was sealed"});
}

TEST_F(SealRefusalTest, TheFolderOfTheSealHoldsNothingElse) {
    bundle.write("Contents/_CodeSignature/run", "#!/bin/sh\n");
    expectRefused({"Contents/_CodeSignature/run: it does not belong to a seal"});
    fs::remove(at("Contents/_CodeSignature/run"));
    ::chmod(at(TestBundle::seal).c_str(), 0755);
    expectRefused({"Contents/_CodeSignature/Seal: it has another mode"});
    ::chmod(at(TestBundle::seal).c_str(), 0644);
    ::chmod(at("Contents/_CodeSignature").c_str(), 0700);
    expectRefused({"Contents/_CodeSignature: it has another mode"});
    ::chmod(at("Contents/_CodeSignature").c_str(), 0755);
    expectHolds();
    fs::rename(at(TestBundle::seal), at("Contents/Seal"));
    expectRefused({"Contents/_CodeSignature/Seal: it is missing"});
    fs::create_symlink("../Seal", at(TestBundle::seal));
    expectRefused({"Contents/_CodeSignature/Seal"});
}

TEST_F(SealRefusalTest, ASealThatIsALinkOrTooLargeIsRefusedUnread) {
    const fs::path elsewhere = bundle.beside("elsewhere");
    fs::rename(at("Contents/_CodeSignature"), elsewhere);
    fs::create_symlink(elsewhere, at("Contents/_CodeSignature"));
    expectRefused({"the bundle is not sealed"});
    fs::remove(at("Contents/_CodeSignature"));
    fs::rename(elsewhere, at("Contents/_CodeSignature"));
    fs::resize_file(at(TestBundle::seal), std::uint64_t{1} << 40);
    expectRefused({"Contents/_CodeSignature/Seal: it is too large"});
    fs::remove(at(TestBundle::seal));
    ::mkfifo(at(TestBundle::seal).c_str(), 0644);
    expectRefused({"Contents/_CodeSignature/Seal: it is no file"});
}

TEST_F(SealRefusalTest, AFileLargerThanSealedIsNotEvenRead) {
    fs::resize_file(at("Contents/Info.plist"), std::uint64_t{3} << 30);  // a hole; reading it would take seconds
    expectRefused({"Contents/Info.plist: its contents are not what was sealed"});
    fs::resize_file(at("Contents/Info.plist"), std::uint64_t{5} << 30);
    expectNotSealable("Contents/Info.plist: with it the bundle is larger than 4 GiB");
}

TEST_F(SealRefusalTest, ABundleThatIsTooDeepIsRefused) {
    fs::path place = bundle.path();
    for (int i = 0; i < 65; ++i) place /= "d";
    fs::create_directories(place);
    expectNotSealable("it lies too deep in the bundle");
}

TEST_F(SealRefusalTest, AFileThatMayNotBeReadIsNamed) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become somebody else";
    // Let the other user pass through the folders above the bundle.
    for (fs::path folder = bundle.path().parent_path(); folder != folder.root_path(); folder = folder.parent_path())
        if (fs::status(folder).permissions() == fs::perms::owner_all) ::chmod(folder.c_str(), 0711);
    ::chmod(at("Contents/Info.plist").c_str(), 0600);
    bundle.sealAdhoc();
    constexpr uid_t nobody = 65534;
    const ProgramRun run = ProgramRun::of({CODESIGN_PROGRAM, "--verify", bundle.path()}, nobody);
    if (run.status == 126 || run.status == 127) GTEST_SKIP() << "the program lies where no other user may go";
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "vimble-codesign: Contents/Info.plist: it can't be read: Permission denied\n");
    const ProgramRun sealing = ProgramRun::of({CODESIGN_PROGRAM, "--adhoc", bundle.path()}, nobody);
    EXPECT_EQ(sealing.status, 1);
    ::chmod(at("Contents/Info.plist").c_str(), 0644);
    bundle.sealAdhoc();
    const std::string before = bundle.read(TestBundle::seal);
    const ProgramRun writing = ProgramRun::of({CODESIGN_PROGRAM, "--adhoc", bundle.path()}, nobody);
    EXPECT_EQ(writing.status, 1);
    EXPECT_EQ(writing.errors, "vimble-codesign: the seal could not be written: Permission denied\n");
    EXPECT_EQ(bundle.read(TestBundle::seal), before);
    EXPECT_EQ(bundle.verify().status, 0);
}

TEST_F(SealRefusalTest, AFileThatChangesWhileItIsReadIsNamed) {
    bundle.write("Contents/Resources/large", std::string(8 << 20, 'x'));
    const std::string path = at("Contents/Resources/large");
    std::atomic<bool> isDone = false;
    std::thread writer([&] {
        const FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
        while (!isDone) EXPECT_EQ(::pwrite(file.get(), "x", 1, 0), 1);
    });
    const FileDescriptor folder(::open(bundle.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::string refusal;
    // The writer writes the same byte over and over, so that only the file's times change. It is tried several
    // times, since the writer may not get a turn while the file is read.
    for (int tries = 0; tries < 100 && refusal.empty(); ++tries) {
        try {
            BundleHasher(folder.get(), nullptr).read();
        } catch (const CodeSignatureError& error) {
            EXPECT_EQ(error.code, CodeSignatureErrorCode::unreadable);
            refusal = error.what();
        }
    }
    isDone = true;
    writer.join();
    EXPECT_EQ(refusal, "Contents/Resources/large: it changed while it was read");
}
