#include "DesktopKit/ShareMenu.h"

#include "DesktopKit/QrDialog.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QGuiApplication>

ShareMenu::ShareMenu(QWidget* parent)
    : QMenu(parent), openUrl([](const QUrl& url) { return QDesktopServices::openUrl(url); }) {
    connect(addAction(QStringLiteral("Copy")), &QAction::triggered, this, &ShareMenu::copy);
    connect(addAction(QStringLiteral("Show as QR Code...")), &QAction::triggered, this, &ShareMenu::showQrCode);
    connect(addAction(QStringLiteral("Send by E-mail...")), &QAction::triggered, this, &ShareMenu::sendMail);
}

QUrl ShareMenu::mailTo(const QString& publicKey) {
    const QString body = QStringLiteral(
                             "Hello,\r\n\r\n"
                             "this is my public key for Vimble:\r\n\r\n"
                             "%1\r\n\r\n"
                             "It is no secret. Please add it to the people who may connect to the server, and compare "
                             "it with me over another way first, for somebody may have changed it in this mail.\r\n")
                             .arg(publicKey);
    const auto encoded = [](const QString& text) { return QUrl::toPercentEncoding(text); };
    return QUrl::fromEncoded(
        "mailto:?subject=" + encoded(QStringLiteral("My public key for Vimble")) + "&body=" + encoded(body),
        QUrl::StrictMode);
}

void ShareMenu::copy() { QGuiApplication::clipboard()->setText(key); }

void ShareMenu::showQrCode() {
    auto* dialog = new QrDialog(key, parentWidget()->window());
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->open();
}

void ShareMenu::sendMail() {
    const auto open = openUrl;
    if (!open(mailTo(key)) && onMailFailed) onMailFailed();
}
