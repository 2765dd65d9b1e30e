#pragma once

#include <QWidget>

class QRScannerView;

/// A plain window around a `QRScannerView`, which scans while the window is shown. Main thread only.
class QRWindow : public QWidget {
    Q_OBJECT

public:
    /// @param qrScannerView  the window takes ownership
    explicit QRWindow(QRScannerView* qrScannerView, QWidget* parent = nullptr);

    QRScannerView& qrScannerView() const { return *_qrScannerView; }

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    QRScannerView* _qrScannerView;
};
