#pragma once

#include "ScanKit/GreyFrame.h"

#include <optional>
#include <string>

/// Finds QR codes in pictures, and nothing else: no other kind of code is looked for.
///
/// A plain function of the frame, for any thread. Codes may be turned by any angle, seen aslant, mirrored, dark or
/// blurred; how much of each is measured by its tests.
namespace QRExtractor {

/// How long to look.
enum class Effort {
    live,      // one of many frames of a camera: the next one comes soon
    thorough,  // the only picture that there is
};

/// What the first code holds, in the order in which the detector finds them; nothing if there is no code, or if the
/// first one holds no bytes. The bytes are those in the code, whatever character set it names. They may be a
/// secret: whoever asked for them wipes them.
std::optional<std::string> payload(const GreyFrame& frame, Effort effort);

}  // namespace QRExtractor
