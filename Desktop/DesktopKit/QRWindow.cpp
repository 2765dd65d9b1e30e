#include "DesktopKit/QRWindow.h"

#include "DesktopViews/QRScannerView.h"

#include <QVBoxLayout>

QRWindow::QRWindow(QRScannerView* qrScannerView, QWidget* parent)
    : QWidget(parent, Qt::Window), _qrScannerView(qrScannerView) {
    setWindowTitle(QStringLiteral("Scan"));
    auto* column = new QVBoxLayout(this);
    column->addWidget(_qrScannerView);
}

void QRWindow::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    _qrScannerView->start();
}

void QRWindow::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    _qrScannerView->stop();
}
