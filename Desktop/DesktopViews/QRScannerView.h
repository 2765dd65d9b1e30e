#pragma once

#include "ScanKit/QRScanner.h"
#include "StateKit/SignalTarget.h"

#include <QWidget>

#include <functional>
#include <memory>
#include <string_view>

class QRScannerView;

/// Decides whether a code that a `QRScannerView` has read is a good one.
class QRScannerViewDelegate {
public:
    /// @param payload  the content of the code, maybe a secret; valid only during the call
    /// @return true to accept it, which freezes the view at this picture; false to go on scanning
    virtual bool acceptPayload(QRScannerView& view, std::string_view payload) = 0;

protected:
    ~QRScannerViewDelegate() = default;
};

/// Shows the camera's picture, live and in grey, while it is searched for codes.
///
/// The picture fills the view, cut at the edges if the shapes differ. A live picture is mirrored, as people expect
/// of a camera that faces them; codes are read from the unmirrored one. The delegate is asked about each code;
/// without a delegate, none is accepted. The owner starts and stops the scanning. The view shows no words: an owner
/// that wants some takes them from the scanner's status, at `onChange`. Main thread only.
class QRScannerView : public QWidget {
    Q_OBJECT

public:
    /// @param scanner  null if there is nothing to scan with: the view stays empty, and `start` does nothing
    explicit QRScannerView(std::unique_ptr<QRScanner> scanner, QWidget* parent = nullptr);
    ~QRScannerView() override;

    void setDelegate(Weak<QRScannerViewDelegate> newDelegate) { delegate = newDelegate; }
    const QRScanner* scanner() const { return _scanner.get(); }

    /// Clears a frozen picture, and scans.
    void start();
    void stop();
    /// Stops scanning and shows a picture that is not from the camera, whole and not mirrored.
    /// @param picture  null for an empty view
    void freeze(SharedFrame picture);

    /// Called when the scanner's status or picture has changed.
    std::function<void()> onChange;

    QSize sizeHint() const override;
    bool hasHeightForWidth() const override { return false; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool accept(std::string_view payload);

    std::unique_ptr<QRScanner> _scanner;
    Weak<QRScannerViewDelegate> delegate;
    bool isOfCamera = true;  // whether the picture is the camera's; else it came by `freeze`
};
