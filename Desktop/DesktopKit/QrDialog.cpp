#include "DesktopKit/QrDialog.h"

#include "DesktopKit/QrCode.h"
#include "DesktopViews/KeyField.h"
#include "DesktopViews/Look.h"
#include "QtText/QtText.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>
#include <optional>
#include <utility>

namespace {

constexpr int codeSide = 240;

/// Shows the code on white in any palette, since a camera needs dark on light.
class CodeView : public QWidget {
public:
    CodeView(std::optional<QrCode> code, QWidget* parent) : QWidget(parent), code(std::move(code)) {
        setMinimumSize(codeSide, codeSide);
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
        setAccessibleName(QStringLiteral("QR code of your public key"));
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const int side = std::min(width(), height());
        QRect paper(0, 0, side, side);
        paper.moveCenter(rect().center());
        painter.setPen(Qt::NoPen);
        painter.setBrush(Qt::white);
        painter.drawRoundedRect(paper, 8, 8);
        if (code) code->paint(painter, paper);
    }

private:
    std::optional<QrCode> code;
};

}  // namespace

QrDialog::QrDialog(const QString& publicKey, QWidget* parent) : QDialog(parent) {
    setWindowTitle(QStringLiteral("Your Public Key"));
    auto* code = new CodeView(QrCode::of(fromQt(publicKey)), this);
    code->setObjectName(QStringLiteral("code"));
    auto* explanation = new QLabel(QStringLiteral("Hold this against the other's camera."), this);
    explanation->setTextFormat(Qt::PlainText);
    explanation->setAlignment(Qt::AlignHCenter);
    explanation->setWordWrap(true);
    explanation->setFont(Look::font(13));
    auto* key = new KeyField(this);
    key->setAccessibleName(QStringLiteral("Your public key"));
    key->setKey(publicKey);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(16, 16, 16, 16);
    column->setSpacing(10);
    column->addWidget(code, 1);
    column->addWidget(explanation);
    column->addWidget(key);
    column->addWidget(buttons);
    buttons->button(QDialogButtonBox::Close)->setFocus();
}
