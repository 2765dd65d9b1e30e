#pragma once

#include "DesktopKit/KeyExport.h"
#include "TestSupport/FakeHost.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QImage>
#include <QLocale>
#include <QPageLayout>
#include <QPageSize>
#include <QPrinter>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <ZXing/BarcodeFormat.h>
#include <ZXing/DecodeHints.h>
#include <ZXing/ReadBarcode.h>

#include <filesystem>
#include <optional>
#include <string>

/// Prints to PDF files, and reads them with tools that have nothing to do with the program.
namespace PrintedPage {

/// Hides the printers of the machine on which the tests run, since the dialog would offer them.
inline const bool hasNoPrinter = qputenv("CUPS_SERVER", "localhost:1");

inline const QDateTime moment{QDate(2026, 11, 21), QTime(14, 5)};

inline KeyExport exportOf(const SecretKey& key, const Host& host = FakeHost()) {
    KeyExport page(key.duplicate());
    page.describe(host, moment, QLocale(QLocale::German, QLocale::Switzerland));
    return page;
}

inline void print(const KeyExport& page, const std::filesystem::path& file,
                  const QPageSize& paper = QPageSize(QPageSize::A4),
                  QPageLayout::Orientation orientation = QPageLayout::Portrait) {
    QPrinter printer(QPrinter::HighResolution);
    printer.setOutputFileName(QString::fromStdString(file.native()));
    printer.setPageSize(paper);
    printer.setPageOrientation(orientation);
    page.printTo(printer);
}

/// Runs a tool, and returns what it writes to standard output.
inline QString run(const QString& program, const QStringList& arguments) {
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(60000) || process.exitCode() != 0)
        ADD_FAILURE() << program.toStdString() << ": " << process.readAllStandardError().toStdString();
    return QString::fromUtf8(process.readAllStandardOutput());
}

inline QString text(const std::filesystem::path& file) {
    return run(QStringLiteral("pdftotext"), {QString::fromStdString(file.native()), QStringLiteral("-")});
}

inline QStringList info(const std::filesystem::path& file) {
    return run(QStringLiteral("pdfinfo"), {QString::fromStdString(file.native())}).split(u'\n');
}

inline QImage render(const std::filesystem::path& file, int dotsOfInch) {
    const QString name = QString::fromStdString(file.native());
    run(QStringLiteral("pdftoppm"), {QStringLiteral("-gray"), QStringLiteral("-singlefile"), QStringLiteral("-r"),
                                     QString::number(dotsOfInch), name, name});
    return QImage(name + QStringLiteral(".pgm"));
}

/// The content of the code in the picture, as the QR library reads it.
inline std::optional<std::string> read(const QImage& picture) {
    const QImage grey = picture.convertToFormat(QImage::Format_Grayscale8);
    const ZXing::ImageView view(grey.constBits(), grey.width(), grey.height(), ZXing::ImageFormat::Lum,
                                static_cast<int>(grey.bytesPerLine()));
    const auto result = ZXing::ReadBarcode(view, ZXing::DecodeHints().setFormats(ZXing::BarcodeFormat::QRCode));
    if (!result.isValid()) return std::nullopt;
    const auto& bytes = result.bytes();
    return std::string(bytes.begin(), bytes.end());
}

}  // namespace PrintedPage
