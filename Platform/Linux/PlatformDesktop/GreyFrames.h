#pragma once

#include "ScanKit/GreyFrame.h"

#include <QImage>

/// Pictures of the toolkit in grey.
namespace GreyFrames {

/// What is transparent is taken as white paper.
/// @return null for a null image, and for one that is larger than a `GreyFrame` can be
SharedFrame of(const QImage& image);

}  // namespace GreyFrames
