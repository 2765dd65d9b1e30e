#pragma once

#include "DesktopViews/RoundRect.h"

class QLabel;

/// The small pill "Offline" at the right end of an input.
///
/// Its size hint is empty in the state `normal`. The owner hides the pill in that state, places it, and keeps the
/// text beneath from running under it. Colours and text size follow the desktop's.
class ConnectionView : public RoundRect {
    Q_OBJECT

public:
    enum class State { normal, offline };

    /// The distance between the pill and the right edge of its input, in points.
    static constexpr int distance = 10;

    explicit ConnectionView(QWidget* parent = nullptr);

    State state() const { return _state; }
    /// Tells layouts of the new size hint.
    void setState(State state);

    /// 0 x 0 in the state `normal`, else 23 points high and as wide as the contents.
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

    /// Moves the pill to the right end of an area of the parent, centred in its height.
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
