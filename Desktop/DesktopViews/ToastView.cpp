#include "DesktopViews/ToastView.h"

#include "DesktopViews/Look.h"

#include <QEasingCurve>
#include <QEvent>
#include <QPainter>
#include <QVariantAnimation>

#include <algorithm>
#include <cmath>

namespace {

constexpr double attachedHeight = 48;
constexpr double floatingHeight = 40;
constexpr int floatingInset = 10;
constexpr double floatingRadius = 11;
constexpr double dividerOpacity = 0.08;

/// The curve "ease-out" (CSS Easing Functions Level 1).
QEasingCurve easeOut() {
    QEasingCurve curve(QEasingCurve::BezierSpline);
    curve.addCubicBezierSegment({0, 0}, {0.58, 1}, {1, 1});
    return curve;
}

}  // namespace

ToastView::ToastView(Style style, QWidget* parent)
    : RoundRect(nullptr), _style(style), _contentView(new QWidget(this)), animation(new QVariantAnimation(this)) {
    QWidget::hide();
    // A click on the bar must not reach the widget beneath.
    setAttribute(Qt::WA_NoMousePropagation);
    setRadius(style == Style::floating ? floatingRadius : 0);
    offset = restingOffset();
    animation->setDuration(slideMs);
    animation->setEasingCurve(easeOut());
    connect(animation, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        offset = value.toDouble();
        place();
    });
    connect(animation, &QVariantAnimation::finished, this, [this] { setVisible(_isPresented); });
    ToastView::applyLook();
    if (parent != nullptr) attach(*parent);
}

int ToastView::inset() const { return _style == Style::floating ? floatingInset : 0; }

int ToastView::barHeight() const {
    const double points = _style == Style::attached ? attachedHeight : floatingHeight;
    return static_cast<int>(std::lround(std::max(points, Look::scaled(points))));
}

void ToastView::attach(QWidget& newParent) {
    if (parentWidget() == &newParent) return;
    if (QWidget* before = parentWidget()) before->removeEventFilter(this);
    animation->stop();
    offset = restingOffset();
    setParent(&newParent);
    newParent.installEventFilter(this);
    place();
    setVisible(_isPresented);
    raise();
}

void ToastView::show(bool isAnimated) {
    if (_isPresented) return;
    _isPresented = true;
    slide(isAnimated);
}

void ToastView::hide(bool isAnimated) {
    if (!_isPresented) return;
    _isPresented = false;
    slide(isAnimated);
}

double ToastView::restingOffset() const { return _isPresented ? -inset() : barHeight() + inset(); }

void ToastView::slide(bool isAnimated) {
    if (onVisibilityChanged) onVisibilityChanged(*this);
    animation->stop();
    if (parentWidget() == nullptr) {
        offset = restingOffset();
        return;
    }
    if (_isPresented) {
        // A widget that was made later may lie above the bar.
        raise();
        setVisible(true);
    }
    // If the parent is hidden, do not animate: nobody sees it, and the bar would reach its place late.
    if (!isAnimated || !parentWidget()->isVisible()) {
        offset = restingOffset();
        place();
        setVisible(_isPresented);
        return;
    }
    animation->setStartValue(offset);
    animation->setEndValue(restingOffset());
    animation->start();
}

void ToastView::place() {
    const QWidget* parent = parentWidget();
    if (parent == nullptr) return;
    const int bottom = parent->height() + static_cast<int>(std::lround(offset));
    setGeometry(inset(), bottom - barHeight(), std::max(0, parent->width() - 2 * inset()), barHeight());
}

void ToastView::applyLook() {
    // Make the colour a little different from the background, so that the bar seems to lie above it.
    const QColor ground = palette().color(QPalette::Window);
    const bool isDark = Look::isDark(palette());
    if (_style == Style::floating)
        setColor(isDark ? ground.lighter(150) : ground.darker(108));
    else
        setColor(isDark ? ground.lighter(125) : ground);
}

bool ToastView::event(QEvent* event) {
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::ApplicationFontChange) {
        applyLook();
        if (animation->state() == QAbstractAnimation::Stopped) offset = restingOffset();
        place();
    }
    return RoundRect::event(event);
}

bool ToastView::eventFilter(QObject* object, QEvent* event) {
    if (object == parentWidget() && event->type() == QEvent::Resize) place();
    return RoundRect::eventFilter(object, event);
}

void ToastView::paintEvent(QPaintEvent* event) {
    RoundRect::paintEvent(event);
    if (_style != Style::attached) return;
    // A dark line would not be visible on a dark background.
    QColor line(Look::isDark(palette()) ? Qt::white : Qt::black);
    line.setAlphaF(dividerOpacity);
    QPainter(this).fillRect(0, 0, width(), 1, line);
}

void ToastView::resizeEvent(QResizeEvent* event) {
    RoundRect::resizeEvent(event);
    _contentView->setGeometry(rect());
}
