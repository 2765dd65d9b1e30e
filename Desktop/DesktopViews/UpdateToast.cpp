#include "DesktopViews/UpdateToast.h"

#include "Base/Check.h"
#include "DesktopViews/ElidedLabel.h"
#include "DesktopViews/Look.h"
#include "DesktopViews/Spinner.h"
#include "TranscriptKit/AuthorColor.h"
#include "TranscriptKit/DisplayText.h"

#include <QAccessible>
#include <QHBoxLayout>
#include <QMouseEvent>
#include <QPushButton>

#include <cstdint>
#include <utility>

namespace {

constexpr int sideMargin = 12;
constexpr int gap = 8;

struct Rendering {
    std::string text;
    bool hasSpinner = false;
    bool dismissesItself = false;
};

Rgb rgb(const QColor& color) {
    return {static_cast<std::uint8_t>(color.red()), static_cast<std::uint8_t>(color.green()),
            static_cast<std::uint8_t>(color.blue())};
}

/// A button colour on which a bright word is readable. Styles draw a button lighter than its colour, by up to
/// `drawnLighter` percent: darken the colour until even that is readable.
QColor readableTint(QColor tint, const QColor& word) {
    constexpr int drawnLighter = 160;
    constexpr double readable = 4.5;
    if (word.lightness() <= tint.lightness()) return tint;
    while (tint.value() > 0 && AuthorColor::contrast(rgb(tint.lighter(drawnLighter)), rgb(word)) < readable)
        tint = tint.darker(105);
    return tint;
}

Rendering rendering(const UpdateToast::Message& message) {
    if (const auto* required = std::get_if<UpdateToast::MinimumSystemVersionRequired>(&message))
        return {"macOS " + required->version + " required to update", false, true};
    if (const auto* ready = std::get_if<UpdateToast::ReadyUpdate>(&message)) return {"v" + ready->version};
    if (std::holds_alternative<UpdateToast::Checking>(message)) return {"Checking for Updates...", true};
    check(std::holds_alternative<UpdateToast::NoUpdateAvailable>(message), "a message has no rendering");
    return {"No Update Available", false, true};
}

}  // namespace

UpdateToast::UpdateToast(MainLoop& loop, Style style, QWidget* parent)
    : ToastView(style),
      loop(loop),
      spinner(new Spinner(this)),
      iconLabel(new ElidedLabel(this)),
      textLabel(new ElidedLabel(this)),
      actionButton(new QPushButton(this)) {
    spinner->setObjectName(QStringLiteral("spinner"));
    spinner->setAccessibleName(QStringLiteral("Checking for Updates..."));
    iconLabel->setObjectName(QStringLiteral("iconLabel"));
    iconLabel->setText(QStringLiteral("📦"));
    textLabel->setObjectName(QStringLiteral("textLabel"));
    actionButton->setObjectName(QStringLiteral("actionButton"));
    actionButton->setText(QStringLiteral("Update"));
    actionButton->setCursor(Qt::ArrowCursor);
    connect(actionButton, &QPushButton::clicked, this, [this] {
        if (const auto install = onInstall) install();
    });

    auto* row = new QHBoxLayout(&contentView());
    const int side = style == Style::attached ? sideMargin : gap;
    row->setContentsMargins(side, 0, side, 0);
    row->setSpacing(gap);
    if (style == Style::attached) {
        spinner->hide();
        row->addWidget(iconLabel);
        row->addWidget(textLabel, 1);
        row->addWidget(actionButton);
    } else {
        iconLabel->hide();
        actionButton->hide();
        row->addStretch(1);
        row->addWidget(spinner);
        row->addWidget(textLabel);
        row->addStretch(1);
    }
    UpdateToast::applyLook();
    if (parent != nullptr) attach(*parent);
}

UpdateToast::~UpdateToast() = default;

void UpdateToast::setMessage(std::optional<Message> message) {
    _message = std::move(message);
    render();
}

void UpdateToast::render() {
    autoDismissTask.reset();
    if (!_message) {
        hide(true);
        return;
    }
    const auto [text, hasSpinner, dismissesItself] = rendering(*_message);
    // The version comes from the manifest, so make it safe to show.
    textLabel->setText(DisplayText::line(text));
    if (hasSpinner && style() == Style::floating)
        spinner->start();
    else
        spinner->stop();
    if (dismissesItself) scheduleDismissal();
    const bool isNew = !isPresented() || accessibleName() != textLabel->text();
    show(true);
    if (!isNew) return;
    // Have a screen reader say the text: its user does not see the bar come up.
    setAccessibleName(textLabel->text());
    QAccessibleEvent alert(this, QAccessible::Alert);
    QAccessible::updateAccessibility(&alert);
}

void UpdateToast::scheduleDismissal() {
    autoDismissTask.emplace(loop, dismissalDelay, [this] {
        if (const auto dismiss = onDismissRequested) dismiss();
    });
}

void UpdateToast::applyLook() {
    ToastView::applyLook();
    iconLabel->setFont(Look::emojiFont(16));
    textLabel->setFont(style() == Style::attached ? Look::font(13, QFont::Medium) : Look::font(11));
    actionButton->setFont(Look::font(13, QFont::Medium));
    // Use the palette's highlight colour, the same whether or not the window is active.
    QPalette strong = palette();
    const QColor word = palette().color(QPalette::Active, QPalette::HighlightedText);
    strong.setColor(QPalette::Button, readableTint(palette().color(QPalette::Active, QPalette::Highlight), word));
    strong.setColor(QPalette::ButtonText, word);
    actionButton->setPalette(strong);
}

void UpdateToast::mouseReleaseEvent(QMouseEvent* event) {
    ToastView::mouseReleaseEvent(event);
    if (style() != Style::floating || !_message || !rect().contains(event->pos())) return;
    if (const auto dismiss = onDismissRequested) dismiss();
}
