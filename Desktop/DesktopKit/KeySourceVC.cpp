#include "DesktopKit/KeySourceVC.h"

#include "DesktopViews/Look.h"

#include <QEvent>
#include <QStyle>
#include <QVBoxLayout>

#include <cmath>
#include <utility>

namespace {

constexpr double widestCaption = 300;  // in points of the design

}  // namespace

KeySourceVC::KeySourceVC(QWidget* parent)
    : QWidget(parent),
      generateRadio(new QRadioButton(QStringLiteral("Use Random Key"), this)),
      generateCaption(addCaption(QStringLiteral("Generate a new secret key from scratch"), generateRadio)),
      scanRadio(new QRadioButton(QStringLiteral("Scan Paper Key"), this)),
      scanCaption(addCaption(QStringLiteral("Use your webcam to import a previously exported secret key"), scanRadio)) {
    generateRadio->setObjectName(QStringLiteral("generateRadio"));
    generateCaption->setObjectName(QStringLiteral("generateCaption"));
    scanRadio->setObjectName(QStringLiteral("scanRadio"));
    scanCaption->setObjectName(QStringLiteral("scanCaption"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(3);
    column->addWidget(generateRadio);
    column->addWidget(generateCaption);
    column->addSpacing(10);
    column->addWidget(scanRadio);
    column->addWidget(scanCaption);
    column->addStretch();
    generateRadio->setChecked(true);
    setFocusProxy(generateRadio);
    applyLook();
    connect(generateRadio, &QRadioButton::toggled, this,
            [this](bool isOn) { choose(isOn ? Source::generate : Source::scan); });
}

QLabel* KeySourceVC::addCaption(const QString& text, QRadioButton* radio) {
    auto* caption = new QLabel(text, this);
    caption->setTextFormat(Qt::PlainText);
    caption->setWordWrap(true);
    caption->setBuddy(radio);
    caption->installEventFilter(this);
    radio->setAccessibleDescription(text);
    return caption;
}

void KeySourceVC::choose(Source chosen) {
    if (chosen == _source) return;
    _source = chosen;
    if (delegate) delegate->keySourceChanged(*this);
}

void KeySourceVC::applyLook() {
    // Indent the caption to the radio's text, past its circle.
    const int indent = style()->pixelMetric(QStyle::PM_ExclusiveIndicatorWidth, nullptr, generateRadio) +
                       style()->pixelMetric(QStyle::PM_RadioButtonLabelSpacing, nullptr, generateRadio);
    for (QLabel* caption : {generateCaption, scanCaption}) {
        caption->setContentsMargins(indent, 0, 0, 0);
        caption->setFont(Look::font(12));
        caption->setMinimumWidth(indent + static_cast<int>(std::lround(Look::scaled(widestCaption))));
        QPalette colors = palette();
        colors.setColor(QPalette::WindowText, Look::secondaryLabel(palette()));
        caption->setPalette(colors);
    }
}

void KeySourceVC::changeEvent(QEvent* event) {
    if (event->type() == QEvent::ApplicationFontChange || event->type() == QEvent::PaletteChange) applyLook();
    QWidget::changeEvent(event);
}

bool KeySourceVC::eventFilter(QObject* watched, QEvent* event) {
    // A click on a caption counts as a click on its radio.
    if (event->type() == QEvent::MouseButtonRelease)
        for (auto [caption, radio] : {std::pair(generateCaption, generateRadio), std::pair(scanCaption, scanRadio)})
            if (watched == caption) radio->click();
    return QWidget::eventFilter(watched, event);
}
