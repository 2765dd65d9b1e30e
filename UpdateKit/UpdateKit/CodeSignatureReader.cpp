#include "UpdateKit/CodeSignatureReader.h"

CodeSignatureProfile readCodeSignatureProfile(ProcessLauncher& launcher, const std::filesystem::path& tool,
                                              const std::filesystem::path& application, const std::string& domain) {
    return CodeSignatureProfile::parse(
        runProcess(launcher, tool, {"-d", "--verbose=4", application.native()}, OnFailure::raise, domain));
}
