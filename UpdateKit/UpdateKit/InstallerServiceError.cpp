#include "UpdateKit/InstallerServiceError.h"

#include "Base/Check.h"

namespace {

std::string sentence(InstallerServiceError::Code code, std::string_view payload) {
    using Code = InstallerServiceError::Code;
    const std::string given(payload);
    switch (code) {
        case Code::missingAppBundle: return "Missing app bundle at " + given;
        case Code::missingExecutable: return "App bundle at " + given + " has no executable";
        case Code::processTerminationFailed: return "Unable to terminate running app: " + given;
        case Code::userActionRequired: return given;
        case Code::replacementFailed: return "Unable to replace installed app: " + given;
        case Code::relaunchFailed: return "Unable to relaunch updated app: " + given;
        case Code::signatureMismatch: return "Staged update is not signed by the same identity as the installed app";
        case Code::processDidNotExit: return "Running app did not exit in time";
    }
    fatal("an installer's error has no text");
}

}  // namespace

InstallerServiceError::InstallerServiceError(Code code, std::string_view payload)
    : _code(code), text(sentence(code, payload)) {}
