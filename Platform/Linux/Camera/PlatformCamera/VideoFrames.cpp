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

/// Where the brightness, or the colours that make it, are in the first plane.
struct Layout {
    int step;                   // bytes from one pixel to the next
    int first;                  // the offset of the first pixel's brightness, or of its red
    int green = -1, blue = -1;  // the offsets of green and blue; -1 if the format has a brightness
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
        // These have two bytes, the lower one first: take the higher.
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
        default: return std::nullopt;  // a default, since the enumeration is Qt's and may grow
    }
}

std::uint8_t brightness(const uchar* pixel, const Layout& layout) {
    // The weights of ITU-R BT.601, in 256ths.
    const unsigned sum = 77U * pixel[layout.first] + 150U * pixel[layout.green] + 29U * pixel[layout.blue];
    return static_cast<std::uint8_t>(sum >> 8);
}

/// A copy of a frame's bytes, wiped when it dies.
class Copy {
public:
    /// If the memory can't be read any more, `bytes` will be empty.
    Copy(const uchar* from, std::size_t size) : _bytes(size) {
        const iovec to{_bytes.data(), size};
        const iovec source{const_cast<uchar*>(from), size};
        // Let the kernel copy: it fails where reading would crash us. A camera may take back the memory of its frames
        // at any moment, although we hold them.
        const ssize_t count = ::process_vm_readv(::getpid(), &to, 1, &source, 1, 0);
        if (count == static_cast<ssize_t>(size)) return;
        if (count < 0 && errno != EFAULT)
            std::memcpy(_bytes.data(), from, size);  // the system does not allow that call
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
    // Check the sizes: a driver may announce more than it sends, and we would read past the end.
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
    // The JPEG's own header may give another size than the frame.
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
    QVideoFrame mapped = frame;  // shares the frame's data; a constant QVideoFrame can't be mapped
    if (!mapped.map(QVideoFrame::ReadOnly)) return nullptr;
    SharedFrame grey = layout ? fromPlane(mapped, *layout) : fromJpeg(mapped);
    mapped.unmap();
    return grey;
}
