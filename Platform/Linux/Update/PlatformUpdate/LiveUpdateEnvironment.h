#pragma once

#include "StateKit/Host.h"
#include "StateKit/MainLoop.h"
#include "UpdateKit/UpdateEnvironment.h"

#include <filesystem>
#include <memory>

class Reachability;

/// The update coordinator's world on this machine.
///
/// Unpacking and validating are done on threads of their own, so that the end of the program never waits for them.
/// @param loop  the coordinator's
/// @param host, loop, reachability  must outlive the coordinator
/// @param temporaryFolder  this user's alone
UpdateEnvironment liveUpdateEnvironment(MainLoop& loop, const Host& host, Reachability& reachability,
                                        const std::filesystem::path& temporaryFolder,
                                        std::shared_ptr<UpdateKitInstalling> installer);
