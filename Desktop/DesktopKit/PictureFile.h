#pragma once

#include "ScanKit/GreyFrame.h"

#include <QByteArray>
#include <QString>

#include <variant>

/// Why a picture that was given to the program can't be read.
enum class PictureTrouble {
    notFound,     // no such file, no right to read it, or a folder or a device instead of a file
    pdf,          // a page, which this program does not read as a picture
    notReadable,  // damaged, or of an unknown kind
    tooLarge,     // above the limits
};

/// Pictures from files and from the clipboard, in grey.
///
/// They may come from anybody, so their cost is limited, also that of a small file that unpacks to a large picture: a
/// file has at most 64 MB, a picture at most 80 million pixels, and unpacking takes at most 128 MB of memory. Large
/// pictures are made smaller, to at most 4096 pixels a side. Of an animation only the first picture is read. Drawings
/// (SVG) are not read, since they can refer to other files. Any thread.
namespace PictureFile {

constexpr qint64 maximumBytes = 64LL << 20;
constexpr qint64 maximumPixels = 80'000'000;
constexpr int maximumSide = 4096;

/// Blocks as long as the disk takes, so do not call it on the main thread.
std::variant<SharedFrame, PictureTrouble> load(const QString& path);

/// @param bytes  the content of a file
std::variant<SharedFrame, PictureTrouble> decode(const QByteArray& bytes);

/// Endings for a file dialogue, such as "*.png *.jpg".
QString patterns();

}  // namespace PictureFile
