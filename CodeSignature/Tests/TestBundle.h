#pragma once

#include "SigningSupport/ProgramRun.h"
#include "SigningSupport/TestIdentity.h"
#include "TestSupport/TemporaryFolder.h"

#include <filesystem>
#include <string>
#include <string_view>

/// A small bundle in a folder of its own, with an identity beside it.
class TestBundle {
public:
    TestBundle();

    const std::filesystem::path& path() const { return bundle; }
    std::filesystem::path at(std::string_view relative) const { return bundle / relative; }
    /// The path of a file beside the bundle.
    std::filesystem::path beside(std::string_view name) const { return folder.path / name; }

    void write(std::string_view relative, std::string_view text) const;
    std::string read(std::string_view relative) const;

    /// Seals with the real program, and expects that to work.
    void signAs(const TestChain& chain) const;
    void sealAdhoc() const;
    ProgramRun sign(const std::string& identity) const;

    ProgramRun verify() const { return codesign({"--verify", bundle}); }
    ProgramRun display() const { return codesign({"-d", "--verbose=4", bundle}); }

    static constexpr std::string_view seal = "Contents/_CodeSignature/Seal";
    static constexpr std::string_view signature = "Contents/_CodeSignature/Signature";

private:
    TemporaryFolder folder;
    std::filesystem::path bundle;
};

void writeFile(const std::filesystem::path& path, std::string_view text);
std::string readFile(const std::filesystem::path& path);
