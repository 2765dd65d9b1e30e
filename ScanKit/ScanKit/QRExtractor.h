#pragma once

#include "ScanKit/GreyFrame.h"

#include <optional>
#include <string>

/// Finds QR codes in pictures; no other kind of code is looked for.
///
/// A plain function of the frame, for any thread. Codes may be turned by any angle, seen aslant, mirrored, dark or
/// blurred; its tests measure how much of each is allowed.
namespace QRExtractor {

/// How long to look.
enum class Effort {
    live,      // one of many frames of a camera: the next one comes soon
    thorough,  // the only picture that there is
};

/// The content of the first code that the detector finds; nothing if there is no code, or if the first one is empty.
/// These are the bytes in the code, whatever character set it names. They may be a secret: the caller wipes them.
[[nodiscard]] std::optional<std::string> payload(const GreyFrame& frame, Effort effort);

}  // namespace QRExtractor
