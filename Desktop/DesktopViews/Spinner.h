#pragma once

#include <QTimer>
#include <QWidget>

/// A small sign that something is going on, for a time that is not known.
///
/// Hidden while stopped. The timer runs only while the spinner is shown.
class Spinner : public QWidget {
    Q_OBJECT

public:
    explicit Spinner(QWidget* parent = nullptr);

    void start();
    void stop();
    bool isSpinning() const { return _isSpinning; }
    /// Whether the timer runs and the picture moves.
    bool isAnimating() const { return timer.isActive(); }

    QSize sizeHint() const override;

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void turn();

    QTimer timer;
    int step = 0;
    bool _isSpinning = false;
};
