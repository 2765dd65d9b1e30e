#include "ScanKit/GreyFrame.h"

#include "Base/Check.h"
#include "TweetNacl/Nacl.h"

GreyFrame::GreyFrame(int width, int height) : _width(width), _height(height) {
    check(width > 0 && height > 0 && width <= maximumSide && height <= maximumSide, "a frame without a proper size");
    bytes.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
}

GreyFrame::~GreyFrame() { Nacl::wipe(bytes); }
