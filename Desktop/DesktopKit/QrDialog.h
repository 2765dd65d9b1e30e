#pragma once

#include <QDialog>
#include <QString>

/// A public key as a QR code, large enough to be held against a camera. Meant to be opened window-modal.
class QrDialog : public QDialog {
    Q_OBJECT

public:
    /// @param publicKey  what the code holds, as UTF-8
    QrDialog(const QString& publicKey, QWidget* parent);
};
