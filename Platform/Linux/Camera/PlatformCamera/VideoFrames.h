#pragma once

#include "ScanKit/GreyFrame.h"

#include <QVideoFrame>

/// Turns frames of a camera into grey.
///
/// Qt's own conversion is not used: it looks for a graphics card, and for that it needs a screen.
namespace VideoFrames {

/// Whether `grey` can read frames of this format: those with a separate brightness, those with eight bits a colour,
/// and JPEG.
bool isReadable(QVideoFrameFormat::PixelFormat format);

/// The brightness of each pixel, unchanged if the format has it. Any thread; the frame is not used after the return.
/// @return null if the frame is empty, too large for a `CameraStream`, or can't be read
SharedFrame grey(const QVideoFrame& frame);

}  // namespace VideoFrames
