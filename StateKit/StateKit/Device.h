#pragma once

#include "StateKit/Host.h"

#include <string>

/// Who this client is: the text of the "User-Agent" header, and a human name of the computer.
namespace Device {

/// APPLICATION/VERSION_BUILD (TIMEZONE; LOCALE) HARDWARE macOS/SYSTEM, each from the host, or a
/// fallback where it has none. Composed anew at each call.
std::string userAgent(const Host& host);

/// "Unnamed Mac" where the computer has no name.
std::string name(const Host& host);

}  // namespace Device
