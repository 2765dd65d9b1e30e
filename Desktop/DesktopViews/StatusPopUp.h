#pragma once

#include <QComboBox>

/// A small pop-up button without a frame, whose arrow can be hidden.
class StatusPopUp : public QComboBox {
    Q_OBJECT

public:
    /// The distance between the left side and the text.
    static constexpr int textIndent = 3;

    explicit StatusPopUp(QWidget* parent = nullptr);

    /// Replaces the items and selects the first. If the items are the same as before, an open list of them
    /// stays open.
    void setItems(const QStringList& items);

    void setArrowVisible(bool isVisible);
    bool isArrowVisible() const { return _isArrowVisible; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    /// Ignores the wheel, so that scrolling over the button in passing chooses nothing.
    void wheelEvent(QWheelEvent* event) override;

private:
    bool _isArrowVisible = true;
};
