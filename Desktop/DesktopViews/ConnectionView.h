#pragma once

#include "DesktopViews/RoundRect.h"

class QLabel;

/// The small pill "Offline" at the right end of an input.
///
/// Its size hint is empty in the state `normal`; its owner hides it then, places it, and keeps the text
/// beneath clear of it. Colours and text size follow the desktop's.
class ConnectionView : public RoundRect {
    Q_OBJECT

public:
    enum class State { normal, offline };

    /// How far from the right edge of its input it stands, in points.
    static constexpr int distance = 10;

    explicit ConnectionView(QWidget* parent = nullptr);

    State state() const { return _state; }
    /// Layouts are told of the new size hint.
    void setState(State state);

    /// 0 x 0, or 23 points high and as wide as what it holds.
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

    /// Stands at the right end of that area, centred in its height.
    void place(const QRect& area);

protected:
    bool event(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void applyLook();

    State _state = State::normal;
    QWidget* icon;
    QLabel* status;
};
