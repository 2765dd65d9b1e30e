#pragma once

#include "UpdateKit/CodeSignatureProfile.h"
#include "UpdateKit/ProcessRunner.h"

#include <filesystem>
#include <functional>
#include <string>

/// Reads the profile of a bundle by running the tool that checks its seal.
///
/// @param tool  `vimble-codesign`; callers give the copy that lies beside the running program, since one that
///        is found by a search path could be anybody's
/// @param domain  goes into the error
/// @throws ProcessError  the bundle is not sealed, or its seal does not hold
/// @throws std::exception  the tool could not be run
[[nodiscard]] CodeSignatureProfile readCodeSignatureProfile(ProcessLauncher& launcher,
                                                            const std::filesystem::path& tool,
                                                            const std::filesystem::path& application,
                                                            const std::string& domain);

/// `readCodeSignatureProfile` with all arguments but the bundle given. Throws the same.
using CodeSignatureReader = std::function<CodeSignatureProfile(const std::filesystem::path& application)>;
