#pragma once

#include <filesystem>

/// The bundle that a program belongs to: of DIR/NAME.app/Contents/Linux/PROGRAM it is DIR/NAME.app. A program
/// outside a bundle has its own folder instead, which is no bundle: what asks for one finds that out.
std::filesystem::path applicationOf(const std::filesystem::path& executable);

/// That of this process.
/// @throws std::filesystem::filesystem_error
std::filesystem::path runningApplication();
