#pragma once

#include "ScanKit/GreyFrame.h"

#include <QByteArray>
#include <QString>

#include <variant>

/// Why a picture that somebody hands to the program can't be looked at.
enum class PictureTrouble {
    notFound,     // no such file, no right to read it, or no file at all, but a folder or a device
    pdf,          // a page, not a picture
    notReadable,  // damaged, or of a kind that is not known here
    tooLarge,     // above the limits
};

/// Pictures from files and from the clipboard, in grey.
///
/// Nobody knows where they come from, so what they may cost is limited, also where the compressed form is small: a
/// file has at most 64 MB, a picture at most 80 million pixels, and what its unpacking takes in memory is at most
/// 128 MB. Large ones are made smaller, to at most 4096 pixels a side. Of a moving one the first picture counts;
/// drawings (SVG) are not read, since they can refer to other files. Any thread.
namespace PictureFile {

constexpr qint64 maximumBytes = 64LL << 20;
constexpr qint64 maximumPixels = 80'000'000;
constexpr int maximumSide = 4096;

/// Takes as long as the disk does: not for the main thread.
std::variant<SharedFrame, PictureTrouble> load(const QString& path);

/// @param bytes  the content of a file
std::variant<SharedFrame, PictureTrouble> decode(const QByteArray& bytes);

/// Endings for a file dialogue, such as "*.png *.jpg".
QString patterns();

}  // namespace PictureFile
