#pragma once

#include "DesktopViews/RoundRect.h"

#include <functional>

class QVariantAnimation;

/// A bar that slides up from the bottom edge of another widget, and down again.
///
/// While it is out of sight it is hidden, so that the keyboard does not find what is in it. It follows the size
/// of its parent, which owns it once attached. Colours follow the desktop's. Main thread only.
class ToastView : public RoundRect {
    Q_OBJECT

public:
    enum class Style {
        attached,  // along the whole edge, with a line above it; 48 points high
        floating   // a pill with 10 points of ground around it; 40 points high
    };

    /// How long the slide takes, in ms; its curve eases out.
    static constexpr int slideMs = 180;

    explicit ToastView(Style style, QWidget* parent = nullptr);

    /// Lays it over the bottom of that widget, in sight or below it as it was.
    void attach(QWidget& parent);
    /// Nothing happens if it is up already.
    void show(bool isAnimated);
    /// Nothing happens if it is down already.
    void hide(bool isAnimated);

    Style style() const { return _style; }
    /// Whether it is up, or on its way.
    bool isPresented() const { return _isPresented; }
    /// In points; from the edges of the parent.
    int inset() const;
    /// In points; grows with a larger desktop font.
    int barHeight() const;

    /// Called whenever it is about to slide, for the owner to lay out around it.
    std::function<void(ToastView&)> onVisibilityChanged;

protected:
    QWidget& contentView() const { return *_contentView; }
    /// Sets the colours of what is in it; called whenever the desktop's change.
    virtual void applyLook();

    bool event(QEvent* event) override;
    bool eventFilter(QObject* object, QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    /// Of the bar's bottom edge from the parent's, downwards.
    double restingOffset() const;
    void slide(bool isAnimated);
    void place();

    const Style _style;
    bool _isPresented = false;
    double offset;
    QWidget* _contentView;
    QVariantAnimation* animation;
};
