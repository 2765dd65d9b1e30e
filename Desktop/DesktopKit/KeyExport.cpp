#include "DesktopKit/KeyExport.h"

#include "DesktopKit/PaperPlace.h"
#include "DesktopKit/WipedBuffer.h"
#include "PlatformCore/MemoryFolder.h"
#include "PlatformCore/PrivateFile.h"
#include "QtText/QtText.h"
#include "StateKit/Device.h"
#include "TranscriptKit/DisplayText.h"

#include <algorithm>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QFontMetricsF>
#include <QLibrary>
#include <QLineEdit>
#include <QMessageBox>
#include <QPageLayout>
#include <QPageSize>
#include <QPainter>
#include <QPdfWriter>
#include <QPrintDialog>
#include <QPrinter>
#include <QPrinterInfo>
#include <QStandardPaths>
#include <QTextLayout>
#include <QTextOption>

namespace {

QString tr(const char* text) { return QCoreApplication::translate("KeyExport", text); }

constexpr double headlineSize = 12;
constexpr double subheadSize = 10;
constexpr double subheadDistance = 2;
constexpr double codeDistance = 16;
/// The computer's and the hardware's name take no more room in the subhead than this, in points.
constexpr double longestName = 480;
constexpr double longestHardware = 120;
constexpr int mostSubheadLines = 6;

/// Text is laid out in parts of a point: in whole points, its letters would be spaced as on a screen of 72
/// dots an inch.
constexpr int partsOfPoint = 20;

constexpr double pointsOfInch = 72;
constexpr int fileDotsOfInch = 1200;

QFont font(double points, QFont::Weight weight) {
    QFont font = QApplication::font();
    font.setPixelSize(static_cast<int>(points * partsOfPoint));
    font.setWeight(weight);
    font.setHintingPreference(QFont::PreferNoHinting);
    return font;
}

QFont subheadFont() { return font(subheadSize, QFont::Normal); }

QString fitting(const QString& text, double points) {
    return QFontMetricsF(subheadFont()).elidedText(text, Qt::ElideMiddle, points * partsOfPoint);
}

/// A text, broken into lines of a width.
class Block {
public:
    Block(const QString& text, const QFont& font, double width, int mostLines) : layout(text, font) {
        QTextOption option(Qt::AlignLeft | Qt::AlignAbsolute);
        // The sentence is ours and runs from left to right, whatever letters are in the name of the computer.
        option.setTextDirection(Qt::LeftToRight);
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        layout.setTextOption(option);
        layout.beginLayout();
        for (int count = 0; count < mostLines; ++count) {
            QTextLine line = layout.createLine();
            if (!line.isValid()) break;
            line.setLineWidth(width * partsOfPoint);
            line.setPosition({0, parts});
            parts += line.height();
        }
        layout.endLayout();
    }

    /// The height of all lines, in points.
    double height() const { return parts / partsOfPoint; }

    void paint(QPainter& painter, double width, double top) const {
        painter.save();
        // Clip the text: marks that are stacked on a letter could reach far beyond it.
        painter.setClipRect(QRectF(0, top, width, height()), Qt::IntersectClip);
        painter.translate(0, top);
        painter.scale(1.0 / partsOfPoint, 1.0 / partsOfPoint);
        layout.draw(&painter, {});
        painter.restore();
    }

private:
    QTextLayout layout;
    double parts = 0;
};

struct Lines {
    explicit Lines(const KeyExport& page)
        : headline(page.headline, font(headlineSize, QFont::DemiBold), KeyExport::View::size().width(), 1),
          subhead(page.subhead, subheadFont(), KeyExport::View::size().width(), mostSubheadLines) {}

    double subheadTop() const { return headline.height() + subheadDistance; }
    double codeTop() const { return subheadTop() + subhead.height() + codeDistance; }

    Block headline;
    Block subhead;
};

PaperPlace placeOn(const QPageLayout& layout, const KeyExport::View& view) {
    const auto place =
        PaperPlace::of(layout, {KeyExport::View::size().width(), view.usedHeight()}, KeyExport::View::border);
    if (!place || place->scale * KeyExport::View::codeSide < KeyExport::View::smallestCodeSide)
        throw KeyExportError(
            fromQt(tr("On paper of this size the code would be too small to be read. Nothing has "
                      "been printed. Please choose larger paper, such as A6 or a postcard.")));
    return *place;
}

/// @param device  prints on the whole sheet, margins included
void paintOn(QPagedPaintDevice& device, const KeyExport::View& view, const PaperPlace& place,
             const std::string& failure) {
    QPainter painter;
    if (!painter.begin(&device)) throw KeyExportError(failure);
    painter.scale(device.logicalDpiX() / pointsOfInch, device.logicalDpiY() / pointsOfInch);
    painter.translate(place.origin);
    painter.scale(place.scale, place.scale);
    view.paint(painter);
    if (!painter.end()) throw KeyExportError(failure);
}

void printToFile(const QPrinter& printer, const KeyExport::View& view) {
    QPageLayout layout = printer.pageLayout();
    layout.setMode(QPageLayout::FullPageMode);
    // Write the file here instead of by QPrinter, which does not report a full disk, and lets everybody read
    // the file.
    WipedBuffer pdf;
    QPdfWriter writer(&pdf);
    writer.setTitle(printer.docName());
    writer.setCreator(printer.creator());
    writer.setResolution(fileDotsOfInch);
    writer.setPageLayout(layout);
    const QString name = printer.outputFileName();
    const auto failure = [&name](const QString& why) {
        return fromQt(tr("The file %1 could not be written: %2").arg(DisplayText::line(fromQt(name)), why));
    };
    paintOn(writer, view, placeOn(layout, view), failure(tr("there is no PDF of it")));
    try {
        PrivateFile::replace(QDir::current().absoluteFilePath(name).toStdString(), pdf.contents());
    } catch (const std::system_error& error) {
        throw KeyExportError(failure(toQt(error.code().message())));
    }
}

/// Makes temporary files of the whole process go to another folder.
///
/// The environment is the only way to tell that to the print system. Other threads may be reading it, for example
/// when they start a program. A program with such threads must have set the variable from the start: adding a new
/// one would move the list that they are reading.
class TemporaryFilesIn {
public:
    explicit TemporaryFilesIn(const std::filesystem::path& folder)
        : wasSet(qEnvironmentVariableIsSet(variable)), before(qgetenv(variable)) {
        qputenv(variable, QByteArray::fromStdString(folder.native()));
    }
    ~TemporaryFilesIn() {
        if (wasSet)
            qputenv(variable, before);
        else
            qunsetenv(variable);
    }
    TemporaryFilesIn(const TemporaryFilesIn&) = delete;
    TemporaryFilesIn& operator=(const TemporaryFilesIn&) = delete;

private:
    static constexpr char variable[] = "TMPDIR";
    const bool wasSet;
    const QByteArray before;
};

/// Why CUPS did not take what this thread last gave it; nothing if it did. QPrinter itself does not ask CUPS.
std::optional<QString> refusal() {
    QLibrary cups(QStringLiteral("cups"), 2);
    const auto lastError = reinterpret_cast<int (*)()>(cups.resolve("cupsLastError"));
    const auto lastErrorString = reinterpret_cast<const char* (*)()>(cups.resolve("cupsLastErrorString"));
    if (lastError == nullptr || lastErrorString == nullptr) return std::nullopt;
    // With a lower status CUPS has taken the job. Source: the status codes of RFC 8011, 4.1.6.
    constexpr int firstFailure = 0x0400;
    const int status = lastError();
    if (status >= 0 && status < firstFailure) return std::nullopt;
    const char* why = lastErrorString();
    return why != nullptr ? DisplayText::line(why) : QString();
}

void printToPrinter(QPrinter& printer, const KeyExport::View& view) {
    const auto failure = [&printer](const QString& why) {
        return fromQt(
            tr("The printer %1 has not taken the page: %2").arg(DisplayText::line(fromQt(printer.printerName())), why));
    };
    printer.setFullPage(true);
    const PaperPlace place = placeOn(printer.pageLayout(), view);
    try {
        const MemoryFolder folder;
        const TemporaryFilesIn redirected(folder.path());
        paintOn(printer, view, place, failure(tr("it can't be reached")));
    } catch (const MemoryFolderError& error) {
        throw KeyExportError(failure(tr("its temporary file would come onto a disk. %1").arg(toQt(error.what()))));
    }
    if (printer.printerState() == QPrinter::Error || printer.printerState() == QPrinter::Aborted)
        throw KeyExportError(failure(tr("it reports an error")));
    if (const auto why = refusal()) throw KeyExportError(failure(*why));
}

QString title() { return tr("Vimble Secret Key"); }

QString proposedFile() {
    QString folder = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    if (!QDir(folder).exists()) folder = QDir::homePath();
    return QDir(folder).filePath(title() + QStringLiteral(".pdf"));
}

/// The printer that the dialog first shows.
std::shared_ptr<QPrinter> proposedPrinter() {
    auto printer = std::make_shared<QPrinter>(QPrinter::HighResolution);
    printer->setDocName(title());
    printer->setCreator(QApplication::applicationName());
    if (QPrinterInfo::defaultPrinter().isNull()) {
        // There is no printer that knows its paper, so propose the country's usual size.
        const bool isUs = QLocale::system().measurementSystem() == QLocale::ImperialUSSystem;
        printer->setPageSize(QPageSize(isUs ? QPageSize::Letter : QPageSize::A4));
        printer->setOutputFileName(proposedFile());
    }
    return printer;
}

/// Puts a file's name into the dialog. Except on X11 the dialog itself proposes only a folder, and a folder can't
/// be printed into.
void proposeFile(const QPrintDialog& dialog) {
    for (QLineEdit* name : dialog.findChildren<QLineEdit*>(QStringLiteral("filename")))
        if (QFileInfo(name->text()).isDir()) name->setText(proposedFile());
}

void tell(QWidget* parent, const char* text) {
    auto* box = new QMessageBox(QMessageBox::Critical, tr("Print Secret Key"), toQt(text), QMessageBox::Ok, parent);
    box->setTextFormat(Qt::PlainText);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

}  // namespace

KeyExport::KeyExport(SecretKey key)
    : secretKey(std::move(key)),
      headline(QStringLiteral("Vimble Secret Key")),
      subhead(QStringLiteral("Exported from ... on...")) {
    std::string text = Nacl::hex(secretKey.view());
    qr = QrCode::of(text);
    Nacl::wipe(text);
}

void KeyExport::describe(const Host& host, const QDateTime& now, const QLocale& locale) {
    const QString date =
        locale.toString(now.date(), QLocale::LongFormat) + u' ' + locale.toString(now.time(), QLocale::ShortFormat);
    subhead = QStringLiteral("Exported from %1 (%2) on %3")
                  .arg(fitting(DisplayText::name(Device::name(host)), longestName),
                       fitting(DisplayText::name(host.hardwareName().value_or("Unknown Mac")), longestHardware),
                       DisplayText::name(fromQt(date)));
}

double KeyExport::View::usedHeight() const { return std::min(size().height(), Lines(page).codeTop() + codeSide); }

void KeyExport::View::paint(QPainter& painter) const {
    const Lines lines(page);
    painter.save();
    painter.setClipRect(QRectF({0, 0}, size()), Qt::IntersectClip);
    painter.setPen(Qt::black);
    lines.headline.paint(painter, size().width(), 0);
    lines.subhead.paint(painter, size().width(), lines.subheadTop());
    if (page.qr) page.qr->paint(painter, QRectF(0, lines.codeTop(), codeSide, codeSide), QrCode::QuietZone::outside);
    painter.restore();
}

void KeyExport::printTo(QPrinter& printer) const {
    if (printer.outputFileName().isEmpty())
        printToPrinter(printer, view());
    else
        printToFile(printer, view());
}

void KeyExport::print(QWidget* parent, const Host& host, std::function<void(bool)> done) && {
    describe(host, QDateTime::currentDateTime(), QLocale::system());
    const auto page = std::make_shared<const KeyExport>(std::move(*this));
    const auto printer = proposedPrinter();
    auto* dialog = new QPrintDialog(printer.get(), parent);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(tr("Print Secret Key"));
    // There is only one page, so offer no ranges and no selection.
    dialog->setOptions(QAbstractPrintDialog::PrintToFile | QAbstractPrintDialog::PrintShowPageSize);
    proposeFile(*dialog);
    QObject::connect(dialog, &QDialog::finished, dialog, [=, done = std::move(done)](int result) {
        bool isPrinted = false;
        if (result == QDialog::Accepted) try {
                page->printTo(*printer);
                isPrinted = true;
            } catch (const KeyExportError& error) {
                tell(parent, error.what());
            }
        if (done) done(isPrinted);
    });
    dialog->open();
}
