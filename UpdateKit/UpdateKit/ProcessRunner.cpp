#include "UpdateKit/ProcessRunner.h"

#include "Text/Text.h"

std::string runProcess(ProcessLauncher& launcher, const std::filesystem::path& executable,
                       const std::vector<std::string>& arguments, OnFailure onFailure, const std::string& domain) {
    ProcessResult result = launcher.launch(executable, arguments);
    if (!Text::isUtf8(result.output)) result.output.clear();
    if (onFailure == OnFailure::raise && result.status != 0) throw ProcessError(domain, result.status, result.output);
    return std::move(result.output);
}
