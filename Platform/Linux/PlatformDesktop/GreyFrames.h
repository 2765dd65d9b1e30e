#pragma once

#include "ScanKit/GreyFrame.h"

#include <QImage>
#include <QVideoFrame>

/// Pictures of the toolkit in grey.
namespace GreyFrames {

/// The brightness in a camera's frame, taken as it is where the format has it apart.
/// @return null if the frame is empty, larger than a `GreyFrame` can be, or can't be read
SharedFrame of(const QVideoFrame& frame);

/// What is transparent is taken as white paper.
/// @return null for a null image, and for one that is larger than a `GreyFrame` can be
SharedFrame of(const QImage& image);

}  // namespace GreyFrames
