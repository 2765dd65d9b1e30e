#pragma once

#include "ScanKit/QRScanner.h"
#include "StateKit/SignalTarget.h"

#include <QWidget>

#include <functional>
#include <memory>
#include <string_view>

class QRScannerView;

/// Judges what a `QRScannerView` reads.
class QRScannerViewDelegate {
public:
    /// @param payload  what the code holds, maybe a secret; for the length of the call
    /// @return true to accept it, which freezes the view at this picture; false to go on scanning
    virtual bool acceptPayload(QRScannerView& view, std::string_view payload) = 0;

protected:
    ~QRScannerViewDelegate() = default;
};

/// What a camera sees, live and in grey, while codes are looked for in it.
///
/// The picture fills the view, cut at the edges where the shapes differ. A live one is mirrored, as people expect of
/// a camera that faces them; reading is done on the picture as it came. Codes are asked about one by one; without
/// a delegate, none is good. Who shows the view starts and stops it. No words are shown: `onChange` and the
/// scanner's status serve those who want some. Main thread only.
class QRScannerView : public QWidget {
    Q_OBJECT

public:
    /// @param scanner  null where there is nothing to scan with: the view stays empty, and `start` does nothing
    explicit QRScannerView(std::unique_ptr<QRScanner> scanner, QWidget* parent = nullptr);
    ~QRScannerView() override;

    void setDelegate(Weak<QRScannerViewDelegate> newDelegate) { delegate = newDelegate; }
    const QRScanner* scanner() const { return _scanner.get(); }

    /// Clears a frozen picture, and scans.
    void start();
    void stop();
    /// Stops scanning and stays at a picture that came another way than through the camera. It is shown whole, and
    /// not mirrored.
    /// @param picture  null for an empty view
    void freeze(SharedFrame picture);

    /// The scanner's status or its picture is another.
    std::function<void()> onChange;

    QSize sizeHint() const override;
    bool hasHeightForWidth() const override { return false; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool accept(std::string_view payload);

    std::unique_ptr<QRScanner> _scanner;
    Weak<QRScannerViewDelegate> delegate;
    bool isOfCamera = true;  // the picture; otherwise it was given
};
