#pragma once

#include <filesystem>
#include <string_view>

/// Writes a picture of a QR code.
namespace QrPicture {

/// As a grey map (PGM), in white that is left around it; nothing but white for an empty text.
void write(const std::filesystem::path& file, std::string_view text);

}  // namespace QrPicture
