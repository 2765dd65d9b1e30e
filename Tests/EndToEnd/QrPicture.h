#pragma once

#include <filesystem>
#include <string_view>

/// Writes a picture of a QR code.
namespace QrPicture {

/// Writes a grey map (PGM) with a white margin around the code; all of it is white if the text is empty.
void write(const std::filesystem::path& file, std::string_view text);

}  // namespace QrPicture
