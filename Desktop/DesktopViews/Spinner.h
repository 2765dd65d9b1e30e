#pragma once

#include <QTimer>
#include <QWidget>

/// A small sign that something goes on whose end nobody knows.
///
/// Hidden while stopped. The timer runs only while it turns where it can
/// be seen.
class Spinner : public QWidget {
    Q_OBJECT

public:
    explicit Spinner(QWidget* parent = nullptr);

    void start();
    void stop();
    bool isSpinning() const { return _isSpinning; }
    /// Whether the picture moves just now.
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
