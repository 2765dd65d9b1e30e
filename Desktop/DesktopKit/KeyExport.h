#pragma once

#include "DesktopKit/QrCode.h"
#include "StateKit/Host.h"
#include "TweetNacl/Nacl.h"

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include <QDateTime>
#include <QLocale>
#include <QSizeF>
#include <QString>

class QPainter;
class QPrinter;
class QWidget;

/// Says in one line for the user why the page was not printed, or not written to a file.
class KeyExportError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The paper key: a small page with the user's secret key as a QR code, for safe keeping, and for moving an
/// identity to another computer. The code contains the key's 64 lower-case hexadecimal characters, as ASCII,
/// and nothing else.
///
///     KeyExport(keys.secretKey.duplicate()).print(window, host);
///
/// Move-only, since it holds the secret, which is wiped when it dies. The copies that Qt, the QR encoder and
/// the print system make of the page are only freed, not wiped.
///
/// Main thread, with a QApplication.
class KeyExport {
public:
    /// The page: headline, subhead and code, one below the other, from the top left. Always one page.
    class View {
    public:
        /// The page's largest size, in points (72 an inch). Its contents may end higher up.
        static QSizeF size() { return {360, 360}; }
        /// A reader of the code needs this much white beside the page, in points; it is no part of `size`.
        static constexpr double border = 16;
        /// A side of the code, in points.
        static constexpr double codeSide = 140;
        /// The smallest side of a code on paper, in points (20 mm). In a smaller one, a module is less than half
        /// a millimetre, which cameras and office printers may get wrong.
        static constexpr double smallestCodeSide = 57;

        /// @param page  borrowed
        explicit View(const KeyExport& page) : page(page) {}

        /// How much of the page's height is in use, in points.
        double usedHeight() const;
        /// Draws it with its top left at the painter's origin, a point being a unit of the painter. Nothing
        /// is drawn outside of `size`.
        void paint(QPainter& painter) const;

    private:
        const KeyExport& page;
    };

    /// The page without its place and time of origin.
    explicit KeyExport(SecretKey secretKey);

    /// Says where and when the page is made, in the subhead.
    void describe(const Host& host, const QDateTime& now, const QLocale& locale);

    /// Describes the page, opens the system's print dialog above that window, which may be null, and prints
    /// what the user chooses: to a printer, or into a PDF, readable by its owner alone. Returns at once: the
    /// dialog blocks no more than that window, owns the page from here on, and dies with the window. What goes
    /// wrong is told in a box above the same window.
    /// @param host  asked before this returns
    /// @param done  called once with whether the page was handed over; false also for a cancelled dialog. Not
    ///              called if the window dies first
    void print(QWidget* parent, const Host& host, std::function<void(bool isPrinted)> done = {}) &&;

    /// Prints the page as the printer is set up, without asking, on one sheet: in the top left corner at its
    /// full size if there is room, and smaller on small paper. A PDF file is written with the mode 0600, as a
    /// whole or not at all, and replaces an existing one. For a printer, the print system's temporary files
    /// are kept in memory.
    ///
    /// Blocks while it writes the file, or while the print system takes the page.
    /// @throws KeyExportError  paper on which the code would be too small to be read; a file that can't be
    ///         written; a printer that takes nothing; no place in memory for temporary files
    void printTo(QPrinter& printer) const;

    View view() const { return View(*this); }

    SecretKey secretKey;
    QString headline;
    QString subhead;
    std::optional<QrCode> qr;
};
