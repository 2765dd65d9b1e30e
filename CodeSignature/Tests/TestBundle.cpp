#include "TestBundle.h"

#include "Base/Check.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sys/stat.h>

namespace fs = std::filesystem;

void writeFile(const fs::path& path, std::string_view text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    check(file.good(), "a test's file could not be written");
}

std::string readFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    check(file.good(), "a test's file could not be read");
    return std::string(std::istreambuf_iterator<char>(file), {});
}

TestBundle::TestBundle() : bundle(folder.path / "Vimble.app") {
    for (const char* name : {"", "Contents", "Contents/Linux", "Contents/Frameworks", "Contents/Resources"}) {
        fs::create_directory(bundle / name);
        ::chmod((bundle / name).c_str(), 0755);
    }
    write("Contents/Info.plist", "<plist/>");
    write("Contents/Linux/Vimble", "#!/bin/sh\nexit 0\n");
    ::chmod(at("Contents/Linux/Vimble").c_str(), 0755);
    write("Contents/Frameworks/libone.so.1", "library");
    fs::create_symlink("libone.so.1", at("Contents/Frameworks/libone.so"));
    write("Contents/Resources/a file with blanks and an Ä", "text");
    write("Contents/Resources/empty", "");
}

void TestBundle::write(std::string_view relative, std::string_view text) const {
    const bool isNew = !fs::exists(at(relative));
    writeFile(at(relative), text);
    if (isNew) ::chmod(at(relative).c_str(), 0644);
}

std::string TestBundle::read(std::string_view relative) const { return readFile(at(relative)); }

ProgramRun TestBundle::sign(const std::string& identity) const {
    writeFile(beside("identity.pem"), identity);
    return codesign({"--sign", beside("identity.pem"), bundle});
}

void TestBundle::signAs(const TestChain& chain) const {
    const ProgramRun run = sign(chain.pem());
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.errors, "");
}

void TestBundle::sealAdhoc() const {
    const ProgramRun run = codesign({"--adhoc", bundle});
    ASSERT_EQ(run.status, 0) << run.errors;
}
