#pragma once

#include "ScanKit/GreyFrame.h"

#include <QImage>

/// Turns Qt's pictures into grey frames.
namespace GreyFrames {

/// Transparent parts become white, like paper.
/// @return null for a null image, and for one that is larger than a `GreyFrame` can be
SharedFrame of(const QImage& image);

}  // namespace GreyFrames
