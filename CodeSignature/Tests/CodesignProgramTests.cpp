// The program itself: what it prints, what it asks, what it leaves behind.

#include "CodeSignature/CodeSignature.h"
#include "TestBundle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

TEST(CodesignProgramTest, ASignedBundleShowsItsTeamAndChain) {
    const TestBundle bundle;
    const TestChain chain = usualChain();
    bundle.signAs(chain);
    const ProgramRun run = bundle.display();
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.values("Authority="), chain.authorities());
    EXPECT_THAT(run.values("TeamIdentifier="), ElementsAre("EXAMPLE01"));
    EXPECT_THAT(run.values("Signature="), ElementsAre());
    EXPECT_THAT(run.values("Signature size="), ElementsAre(std::to_string(bundle.read(TestBundle::signature).size())));
    EXPECT_THAT(run.values("Bundle="), ElementsAre(fs::canonical(bundle.path()).native()));
    EXPECT_EQ(codesign({"-d", bundle.path()}).output, run.output);
    EXPECT_EQ(bundle.verify().output, "the seal holds; signed by " + chain.authorities().front() + "\n");
}

TEST(CodesignProgramTest, AnAdHocBundleShowsNoTeamAndNoAuthority) {
    const TestBundle bundle;
    bundle.sealAdhoc();
    EXPECT_FALSE(fs::exists(bundle.at(TestBundle::signature)));
    const ProgramRun run = bundle.display();
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.values("Signature="), ElementsAre("adhoc"));
    EXPECT_THAT(run.values("TeamIdentifier="), ElementsAre("not set"));
    EXPECT_THAT(run.values("Authority="), ElementsAre());
    EXPECT_EQ(bundle.verify().output, "the seal holds; nobody has signed it\n");
}

TEST(CodesignProgramTest, AnUnsealedBundleOrNoneIsRefused) {
    const TestBundle bundle;
    EXPECT_EQ(bundle.display().errors, "vimble-codesign: the bundle is not sealed\n");
    EXPECT_EQ(bundle.display().status, 1);
    EXPECT_THAT(codesign({"--verify", bundle.beside("none")}).errors, HasSubstr("none: No such file or directory\n"));
    EXPECT_THAT(codesign({"--verify", bundle.at("Contents/Info.plist")}).errors, HasSubstr("Not a directory\n"));
    EXPECT_THAT(codesign({"--adhoc", bundle.at("Contents")}).errors, HasSubstr("it has no folder Contents\n"));
}

TEST(CodesignProgramTest, ABundleIsReachedThroughALinkAndWithASlashBehindIt) {
    const TestBundle bundle;
    fs::create_directory_symlink("Vimble.app", bundle.beside("link"));
    EXPECT_EQ(codesign({"--adhoc", bundle.beside("link")}).status, 0);
    EXPECT_EQ(codesign({"--verify", bundle.beside("link")}).status, 0);
    EXPECT_EQ(codesign({"--adhoc", bundle.path().native() + "/"}).status, 0);
    EXPECT_EQ(codesign({"--verify", "--verbose=4", "--", bundle.path().native() + "/"}).status, 0);
    EXPECT_EQ(bundle.verify().status, 0);
}

TEST(CodesignProgramTest, SealingTwiceGivesTheSameSealAndWorksInAllDirections) {
    const TestBundle bundle;
    const TestChain chain = usualChain();
    bundle.signAs(chain);
    const std::string first = bundle.read(TestBundle::seal);
    bundle.signAs(chain);
    EXPECT_EQ(bundle.read(TestBundle::seal), first);
    EXPECT_EQ(bundle.verify().status, 0);
    bundle.sealAdhoc();
    EXPECT_EQ(bundle.verify().status, 0);
    bundle.signAs(usualChain());
    EXPECT_EQ(bundle.verify().status, 0);
}

TEST(CodesignProgramTest, WhateverTheMaskOfNewFilesTheSealHolds) {
    const TestBundle bundle;
    const mode_t before = ::umask(077);
    bundle.signAs(usualChain());
    ::umask(before);
    EXPECT_EQ(bundle.verify().status, 0);
}

TEST(CodesignProgramTest, WhatAKilledSigningLeftIsRefusedAndRemovedByTheNext) {
    const TestBundle bundle;
    bundle.sealAdhoc();
    fs::create_directory(bundle.at("Contents/_CodeSignature.new-abcdef"));
    bundle.write("Contents/_CodeSignature.new-abcdef/Seal", "half");
    EXPECT_THAT(bundle.verify().errors, HasSubstr("Contents/_CodeSignature.new-abcdef: it is not in the seal"));
    bundle.sealAdhoc();
    EXPECT_FALSE(fs::exists(bundle.at("Contents/_CodeSignature.new-abcdef")));
    EXPECT_EQ(bundle.verify().status, 0);
}

TEST(CodesignProgramTest, TwoSigningsAtOnceAreOneTooMany) {
    const TestBundle bundle;
    const int folder = ::open(bundle.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(::flock(folder, LOCK_EX), 0);
    EXPECT_THAT(codesign({"--adhoc", bundle.path()}).errors, HasSubstr("it is being sealed by another program"));
    ::close(folder);
    EXPECT_EQ(codesign({"--adhoc", bundle.path()}).status, 0);
}

TEST(CodesignProgramTest, WhileASealIsReplacedThereIsAlwaysOne) {
    const TestBundle bundle;
    bundle.sealAdhoc();
    const fs::path place = bundle.at("Contents/_CodeSignature");
    std::atomic<bool> isDone = false;
    std::atomic<int> looks = 0;
    int missing = 0;
    std::thread watcher([&] {
        struct stat status {};
        for (; !isDone; ++looks)
            if (::lstat(place.c_str(), &status) != 0) ++missing;
    });
    while (looks == 0) std::this_thread::yield();
    for (int i = 0; i < 100; ++i) CodeSignature::seal(bundle.path(), nullptr);
    isDone = true;
    watcher.join();
    EXPECT_EQ(missing, 0) << "of " << looks << " looks";
    EXPECT_EQ(bundle.verify().status, 0);
}

TEST(CodesignProgramTest, AFullDiskLeavesTheOldSeal) {
    const TestBundle bundle;
    bundle.sealAdhoc();
    const std::string before = bundle.read(TestBundle::seal);
    bundle.write("Contents/Resources/more", "x");
    // The limit stands in for a full disk: it makes writing the file fail.
    const ProgramRun run = ProgramRun::of(
        {"/bin/bash", "-c", "trap '' XFSZ; ulimit -f 0; exec \"$0\" --adhoc \"$1\"", CODESIGN_PROGRAM, bundle.path()});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "vimble-codesign: the seal could not be written: File too large\n");
    EXPECT_EQ(bundle.read(TestBundle::seal), before);
    fs::remove(bundle.at("Contents/Resources/more"));
    EXPECT_EQ(bundle.verify().status, 0) << "nothing is left beside it";
}

TEST(CodesignProgramTest, AnIdentityThatIsOfNoUseIsRefusedInOneLine) {
    const TestBundle bundle;
    const TestChain chain = usualChain();
    const TestChain other = usualChain();
    const auto refusal = [&](const std::string& pem) {
        const ProgramRun run = bundle.sign(pem);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.output, "");
        EXPECT_EQ(std::ranges::count(run.errors, '\n'), 1) << run.errors;
        EXPECT_FALSE(fs::exists(bundle.at("Contents/_CodeSignature")));
        return run.errors;
    };
    EXPECT_THAT(refusal(""), HasSubstr("holds no private key"));
    EXPECT_THAT(refusal("nonsense"), HasSubstr("holds no private key"));
    EXPECT_THAT(refusal(pemOf(chain.leaf())), HasSubstr("holds no private key"));
    EXPECT_THAT(refusal(pemOf(chain.key())), HasSubstr("holds no certificate"));
    EXPECT_THAT(refusal(pemOf(chain.key()) + pemOf(other.leaf())), HasSubstr("is not that of its private key"));
    EXPECT_THAT(refusal(pemOf(chain.key()) + pemOf(chain.certificates[1].get()) + pemOf(chain.leaf())),
                HasSubstr("is not that of its private key"))
        << "the key's own comes first";
    std::string broken = chain.pem();
    broken.resize(broken.size() - 40);
    EXPECT_THAT(refusal(broken), HasSubstr("holds a certificate that can't be read"));
    EXPECT_THAT(refusal(pemOf(chain.key()) + pemOf(chain.leaf())),
                HasSubstr("the chain of certificates does not end in one that is signed by itself"));
    const TestChain stranger = chainOf({{"Stranger", "T"}, {"Stranger's Root", "", true}});
    EXPECT_THAT(refusal(chain.pem() + pemOf(stranger.leaf())), HasSubstr("do not belong to the chain"));
    EXPECT_THAT(refusal(std::string(2 << 20, 'x')), HasSubstr("too large"));
    EXPECT_THAT(codesign({"--sign", bundle.beside("none.pem"), bundle.path()}).errors,
                HasSubstr("none.pem can't be read: No such file or directory"));
    EXPECT_THAT(codesign({"--sign", bundle.path(), bundle.path()}).errors, HasSubstr("can't be read"));
}

TEST(CodesignProgramTest, AnEncryptedKeyIsAskedForOnTheTerminal) {
    const TestBundle bundle;
    const TestChain chain = usualChain();
    writeFile(bundle.beside("identity.pem"), chain.pem("open sesame"));
    const std::vector<std::string> command{CODESIGN_PROGRAM, "--sign", bundle.beside("identity.pem"), bundle.path()};

    const ProgramRun none = ProgramRun::of(command);
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.errors, HasSubstr("there is no terminal to ask for its passphrase"));

    const ProgramRun wrong = ProgramRun::onTerminal(command, "open barley");
    EXPECT_EQ(wrong.status, 1);
    EXPECT_THAT(wrong.output, HasSubstr("does not open with that passphrase"));
    EXPECT_FALSE(fs::exists(bundle.at("Contents/_CodeSignature")));

    const ProgramRun right = ProgramRun::onTerminal(command, "open sesame");
    EXPECT_EQ(right.status, 0) << right.output;
    EXPECT_THAT(right.output, StartsWith("Passphrase of the identity: "));
    EXPECT_EQ(right.output.find("sesame"), std::string::npos) << "what is typed is not shown";
    EXPECT_EQ(bundle.display().values("Authority="), chain.authorities());
}

TEST(CodesignProgramTest, TheIdentityThatThePageTellsHowToMakeSigns) {
    // Take the lines of code at the beginning of that section, as a reader would paste them.
    const std::string page = readFile(RELEASING_PAGE);
    const std::size_t section = page.find("## Making an identity\n");
    ASSERT_NE(section, std::string::npos);
    std::string script = "set -e\n";
    for (std::size_t at = page.find("\n    ", section); page.compare(at, 5, "\n    ") == 0;
         at = page.find('\n', at + 1))
        script += page.substr(at + 5, page.find('\n', at + 1) - at - 4);

    const TestBundle bundle;
    const ProgramRun making =
        ProgramRun::onTerminal({"sh", "-c", script}, "one two three", bundle.path().parent_path());
    ASSERT_EQ(making.status, 0) << making.output;
    const fs::path identity = bundle.beside("vimble-identity/identity.pem");
    EXPECT_EQ(fs::status(identity).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    const ProgramRun signing =
        ProgramRun::onTerminal({CODESIGN_PROGRAM, "--sign", identity, bundle.path()}, "one two three");
    ASSERT_EQ(signing.status, 0) << signing.output;
    const ProgramRun shown = bundle.display();
    EXPECT_EQ(shown.status, 0) << shown.errors;
    EXPECT_THAT(shown.values("TeamIdentifier="), ElementsAre("EXAMPLE01"));
    EXPECT_THAT(shown.values("Authority="),
                ElementsAre(StartsWith("Example Releases (sha256 "), StartsWith("Example Root (sha256 ")));
}

TEST(CodesignProgramTest, OtherProgramsFindTheSignatureGoodToo) {
    const TestBundle bundle;
    const TestChain chain = usualChain();
    bundle.signAs(chain);
    writeFile(bundle.beside("root.pem"), pemOf(chain.certificates.back().get()));
    const ProgramRun run = ProgramRun::of({"/usr/bin/openssl", "cms", "-verify", "-binary", "-inform", "DER", "-in",
                                           bundle.at(TestBundle::signature), "-content", bundle.at(TestBundle::seal),
                                           "-CAfile", bundle.beside("root.pem"), "-purpose", "any"});
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.output, bundle.read(TestBundle::seal));
    // The line for a file has the digest that sha256sum prints.
    const ProgramRun sum = ProgramRun::of({"/usr/bin/sha256sum", bundle.at("Contents/Linux/Vimble")});
    EXPECT_THAT(run.output, HasSubstr("file 0755 17 " + sum.output.substr(0, 64) + " Contents/Linux/Vimble\n"));
}

TEST(CodesignProgramTest, OptionsThatMakeNoSenseEndWithTwo) {
    for (const std::vector<std::string>& words : {std::vector<std::string>{},
                                                  {"--verify"},
                                                  {"x.app"},
                                                  {"--sign", "x.pem"},
                                                  {"--sign"},
                                                  {"--adhoc", "a", "b"},
                                                  {"--adhoc", "--verify", "a"},
                                                  {"--force", "a"},
                                                  {"--verbose=44", "-d", "a"},
                                                  {"--verify", ""},
                                                  {"--help", "x"},
                                                  {"\n"}}) {
        const ProgramRun run = codesign(words);
        EXPECT_EQ(run.status, 2) << testing::PrintToString(words);
        EXPECT_EQ(run.output, "");
        EXPECT_EQ(std::ranges::count(run.errors, '\n'), 1) << run.errors;
    }
}

TEST(CodesignProgramTest, HelpAndVersionNeedNoBundle) {
    EXPECT_THAT(codesign({"--help"}).output, StartsWith("Usage: vimble-codesign --sign IDENTITY.pem BUNDLE\n"));
    EXPECT_THAT(codesign({"--version"}).output, StartsWith("vimble-codesign "));
    EXPECT_EQ(codesign({"--version"}).status, 0);
}

TEST(CodesignProgramTest, OutputThatNobodyTakesIsAFailure) {
    const TestBundle bundle;
    bundle.sealAdhoc();
    const ProgramRun run =
        ProgramRun::of({"/bin/sh", "-c", "\"$0\" -d \"$1\" > /dev/full", CODESIGN_PROGRAM, bundle.path()});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "vimble-codesign: standard output can't be written\n");
}
