#pragma once

#include "DesktopViews/RoundRect.h"

#include <functional>

class QVariantAnimation;

/// A bar that slides up from the bottom edge of another widget, and down again.
///
/// While the bar is down it is hidden, so that the keyboard can't reach its contents. It follows the size of its
/// parent, which owns it once attached. Colours follow the desktop's. Main thread only.
class ToastView : public RoundRect {
    Q_OBJECT

public:
    enum class Style {
        attached,  // along the whole edge, with a line above it; 48 points high
        floating   // a pill, 10 points from the edges of the parent; 40 points high
    };

    /// The duration of the slide, in ms; its curve is "ease-out".
    static constexpr int slideMs = 180;

    explicit ToastView(Style style, QWidget* parent = nullptr);

    /// Moves the bar to another parent, without animation; it stays up or down as it was.
    void attach(QWidget& parent);
    /// Slides the bar up; does nothing if it is up already.
    void show(bool isAnimated);
    /// Slides the bar down; does nothing if it is down already.
    void hide(bool isAnimated);

    Style style() const { return _style; }
    /// Whether the bar is up, or sliding up.
    bool isPresented() const { return _isPresented; }
    /// The distance from the edges of the parent, in points.
    int inset() const;
    /// In pixels: the height of the style, but more with a larger desktop font.
    int barHeight() const;

    /// Called whenever the bar is about to slide, so that the owner can lay out the widgets around it.
    std::function<void(ToastView&)> onVisibilityChanged;

protected:
    QWidget& contentView() const { return *_contentView; }
    /// Sets the colours of the bar and its contents; called whenever the desktop's colours or font change.
    virtual void applyLook();

    bool event(QEvent* event) override;
    bool eventFilter(QObject* object, QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    /// Where the bar rests: the distance of its bottom edge from the parent's, counted downwards.
    double restingOffset() const;
    void slide(bool isAnimated);
    void place();

    const Style _style;
    bool _isPresented = false;
    double offset;
    QWidget* _contentView;
    QVariantAnimation* animation;
};
