#pragma once

#include <QMenu>
#include <QString>
#include <QUrl>

#include <functional>

/// Ways to give a public key to somebody: on the clipboard, as a QR code for another's camera, and by e-mail,
/// in a mail that says what it is.
class ShareMenu : public QMenu {
    Q_OBJECT

public:
    explicit ShareMenu(QWidget* parent);

    /// @param publicKey  64 hexadecimal characters
    void setKey(const QString& publicKey) { key = publicKey; }

    /// Sets what opens a `mailto:` address and returns whether it could; the desktop's own way unless set.
    void setOpenUrl(std::function<bool(const QUrl&)> newOpenUrl) { openUrl = std::move(newOpenUrl); }

    /// Called when no program for e-mail could be opened.
    std::function<void()> onMailFailed;

    /// The address that begins a mail with that key. Source: RFC 6068.
    static QUrl mailTo(const QString& publicKey);

private:
    void copy();
    void showQrCode();
    void sendMail();

    QString key;
    std::function<bool(const QUrl&)> openUrl;
};
