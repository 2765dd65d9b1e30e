#pragma once

#include "UpdateKit/AppBundle.h"
#include "UpdateKit/InstallerEnvironment.h"
#include "UpdateKit/ProcessRunner.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string_view>
#include <sys/types.h>

/// What the installer does on this machine. For one request, on one thread.
///
/// The process is held by a handle from the request to end on, so that neither the kill nor the waiting ever
/// meets another one that got its number. It is touched only if it runs from the application that is replaced, or
/// from a bundle that an earlier update moved away from there. Before it is asked to end, its arguments, environment
/// and working folder are read; the new one is started with them, in a session of its own, and with this process's
/// output and errors. If the process was gone before that, the new one is started without arguments, in this
/// process's environment.
///
/// @param codeSignTool  `vimble-codesign`, see `toolBesideThisProgram`
/// @param started  called with the new process, within `relaunchApp`
InstallerEnvironment liveInstallerEnvironment(std::shared_ptr<ProcessLauncher> launcher,
                                              std::shared_ptr<BundleReader> bundleReader,
                                              const std::filesystem::path& codeSignTool,
                                              std::function<void(pid_t)> started = {});

/// The path of a tool that lies in the folder of the running program.
/// @throws std::filesystem::filesystem_error
std::filesystem::path toolBesideThisProgram(std::string_view name);
