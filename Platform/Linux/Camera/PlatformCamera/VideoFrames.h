#pragma once

#include "ScanKit/GreyFrame.h"

#include <QVideoFrame>

/// Frames of a camera in grey.
///
/// The toolkit's own conversion is not used: it looks for a graphics card, which needs a screen to be looked for.
namespace VideoFrames {

/// Whether `grey` can read frames of this form: those that have the brightness apart, those of eight bits a colour,
/// and JPEG.
bool isReadable(QVideoFrameFormat::PixelFormat format);

/// The brightness, taken as it is where the format has it apart. Any thread; done with the frame when it returns.
/// @return null if the frame is empty, too large for a `CameraStream`, or can't be read
SharedFrame grey(const QVideoFrame& frame);

}  // namespace VideoFrames
