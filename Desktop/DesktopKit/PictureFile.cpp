#include "DesktopKit/PictureFile.h"

#include "PlatformDesktop/GreyFrames.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QImageReader>
#include <QStringList>

#include <utility>

namespace {

bool isDrawing(const QByteArray& format) { return format.startsWith("svg") || format.startsWith("pdf"); }

std::variant<SharedFrame, PictureTrouble> read(QIODevice& device) {
    if (device.peek(5) == "%PDF-") return PictureTrouble::pdf;
    QImageReader reader(&device);
    reader.setDecideFormatFromContent(true);
    if (!reader.canRead() || isDrawing(reader.format())) return PictureTrouble::notReadable;
    const QSize size = reader.size();
    if (size.isValid()) {
        if (static_cast<qint64>(size.width()) * size.height() > PictureFile::maximumPixels)
            return PictureTrouble::tooLarge;
        const QSize largest(PictureFile::maximumSide, PictureFile::maximumSide);
        if (size.width() > largest.width() || size.height() > largest.height()) {
            const QSize smaller = size.scaled(largest, Qt::KeepAspectRatio).expandedTo({1, 1});
            reader.setScaledSize(smaller);
        }
    }
    const QImage image = reader.read();
    if (image.isNull()) {
        // The toolkit has no error of its own for its memory limit, so conclude it from the size and the error.
        const bool isOverLimit = size.isValid() && reader.error() == QImageReader::InvalidDataError &&
                                 static_cast<qint64>(size.width()) * size.height() * 4 >
                                     static_cast<qint64>(QImageReader::allocationLimit()) << 20;
        return isOverLimit ? PictureTrouble::tooLarge : PictureTrouble::notReadable;
    }
    SharedFrame frame = GreyFrames::of(image);
    if (!frame) return PictureTrouble::tooLarge;
    return frame;
}

}  // namespace

std::variant<SharedFrame, PictureTrouble> PictureFile::load(const QString& path) {
    // Reading a pipe or a device could block for ever.
    if (!QFileInfo(path).isFile()) return PictureTrouble::notFound;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return PictureTrouble::notFound;
    if (file.size() > maximumBytes) return PictureTrouble::tooLarge;
    return read(file);
}

std::variant<SharedFrame, PictureTrouble> PictureFile::decode(const QByteArray& bytes) {
    if (bytes.size() > maximumBytes) return PictureTrouble::tooLarge;
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    return read(buffer);
}

QString PictureFile::patterns() {
    QStringList endings;
    for (const QByteArray& format : QImageReader::supportedImageFormats())
        if (!isDrawing(format)) endings.append(QStringLiteral("*.") + QString::fromLatin1(format));
    return endings.join(QLatin1Char(' '));
}
