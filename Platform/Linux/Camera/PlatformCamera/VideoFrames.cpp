#include "PlatformCamera/VideoFrames.h"

#include "ScanKit/CameraStream.h"
#include "TweetNacl/Nacl.h"

#include <QImage>

#include <cerrno>
#include <cstring>
#include <optional>
#include <sys/uio.h>
#include <unistd.h>

namespace {

/// Where what makes the brightness lies within the first plane.
struct Layout {
    int step;                   // bytes from one pixel to the next
    int first;                  // bytes before the brightness of the first pixel, or its red
    int green = -1, blue = -1;  // likewise, where there are colours
};

std::optional<Layout> layoutOf(QVideoFrameFormat::PixelFormat format) {
    switch (format) {
        case QVideoFrameFormat::Format_YUV420P:
        case QVideoFrameFormat::Format_YUV422P:
        case QVideoFrameFormat::Format_YV12:
        case QVideoFrameFormat::Format_NV12:
        case QVideoFrameFormat::Format_NV21:
        case QVideoFrameFormat::Format_IMC1:
        case QVideoFrameFormat::Format_IMC2:
        case QVideoFrameFormat::Format_IMC3:
        case QVideoFrameFormat::Format_IMC4:
        case QVideoFrameFormat::Format_Y8: return Layout{1, 0};
        case QVideoFrameFormat::Format_YUYV: return Layout{2, 0};
        case QVideoFrameFormat::Format_UYVY: return Layout{2, 1};
        // The lower byte of the two comes first.
        case QVideoFrameFormat::Format_Y16:
        case QVideoFrameFormat::Format_P010:
        case QVideoFrameFormat::Format_P016: return Layout{2, 1};
        case QVideoFrameFormat::Format_ARGB8888:
        case QVideoFrameFormat::Format_ARGB8888_Premultiplied:
        case QVideoFrameFormat::Format_XRGB8888: return Layout{4, 1, 2, 3};
        case QVideoFrameFormat::Format_ABGR8888:
        case QVideoFrameFormat::Format_XBGR8888: return Layout{4, 3, 2, 1};
        case QVideoFrameFormat::Format_BGRA8888:
        case QVideoFrameFormat::Format_BGRA8888_Premultiplied:
        case QVideoFrameFormat::Format_BGRX8888: return Layout{4, 2, 1, 0};
        case QVideoFrameFormat::Format_RGBA8888:
        case QVideoFrameFormat::Format_RGBX8888: return Layout{4, 0, 1, 2};
        default: return std::nullopt;  // of another library, and not ours to complete
    }
}

std::uint8_t brightness(const uchar* pixel, const Layout& layout) {
    // ITU-R BT.601, in 256ths.
    const unsigned sum = 77U * pixel[layout.first] + 150U * pixel[layout.green] + 29U * pixel[layout.blue];
    return static_cast<std::uint8_t>(sum >> 8);
}

/// A frame's own bytes, copied.
class Copy {
public:
    /// Where there is nothing to be read any more, `bytes` are empty.
    Copy(const uchar* from, std::size_t size) : _bytes(size) {
        const iovec to{_bytes.data(), size};
        const iovec source{const_cast<uchar*>(from), size};
        // By the kernel, which refuses where reading would crash: a camera takes the memory of its frames back at
        // any moment, although they are held.
        const ssize_t count = ::process_vm_readv(::getpid(), &to, 1, &source, 1, 0);
        if (count == static_cast<ssize_t>(size)) return;
        if (count < 0 && errno != EFAULT)
            std::memcpy(_bytes.data(), from, size);  // a system without that call
        else
            _bytes.clear();
    }
    ~Copy() { Nacl::wipe(_bytes); }
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    ByteView bytes() const { return _bytes; }

private:
    Bytes _bytes;
};

SharedFrame fromPlane(const QVideoFrame& frame, const Layout& layout) {
    const int width = frame.width();
    const int height = frame.height();
    const int stride = frame.bytesPerLine(0);
    // A driver that promises more than it sends would have us read past the end.
    const qint64 needed = static_cast<qint64>(stride) * (height - 1) + static_cast<qint64>(width) * layout.step;
    if (frame.bits(0) == nullptr || stride < width * layout.step || needed > frame.mappedBytes(0)) return nullptr;
    const Copy copy(frame.bits(0), static_cast<std::size_t>(needed));
    if (copy.bytes().empty()) return nullptr;
    auto grey = std::make_shared<GreyFrame>(width, height);
    for (int y = 0; y < height; ++y) {
        const uchar* from = copy.bytes().data() + static_cast<std::ptrdiff_t>(stride) * y;
        const auto to = grey->row(y);
        if (layout.step == 1) {
            std::memcpy(to.data(), from, to.size());
            continue;
        }
        for (auto& pixel : to) {
            pixel = layout.green < 0 ? from[layout.first] : brightness(from, layout);
            from += layout.step;
        }
    }
    return grey;
}

SharedFrame fromJpeg(const QVideoFrame& frame) {
    if (frame.bits(0) == nullptr || frame.mappedBytes(0) <= 0) return nullptr;
    const Copy copy(frame.bits(0), static_cast<std::size_t>(frame.mappedBytes(0)));
    QImage image;
    if (!image.loadFromData(copy.bytes().data(), static_cast<int>(copy.bytes().size()), "JPEG")) return nullptr;
    // Its own header may tell another size than the frame's.
    if (!CameraStream::fits(image.width(), image.height())) return nullptr;
    image.convertTo(QImage::Format_Grayscale8);
    if (image.isNull()) return nullptr;
    auto grey = std::make_shared<GreyFrame>(image.width(), image.height());
    for (int y = 0; y < image.height(); ++y) {
        const auto to = grey->row(y);
        std::memcpy(to.data(), image.constScanLine(y), to.size());
    }
    return grey;
}

}  // namespace

bool VideoFrames::isReadable(QVideoFrameFormat::PixelFormat format) {
    return format == QVideoFrameFormat::Format_Jpeg || layoutOf(format);
}

SharedFrame VideoFrames::grey(const QVideoFrame& frame) {
    if (!frame.isValid() || !CameraStream::fits(frame.width(), frame.height())) return nullptr;
    const auto layout = layoutOf(frame.pixelFormat());
    if (!layout && frame.pixelFormat() != QVideoFrameFormat::Format_Jpeg) return nullptr;
    QVideoFrame mapped = frame;  // the same frame: the toolkit maps no constant one
    if (!mapped.map(QVideoFrame::ReadOnly)) return nullptr;
    SharedFrame grey = layout ? fromPlane(mapped, *layout) : fromJpeg(mapped);
    mapped.unmap();
    return grey;
}
