#pragma once

#include <QComboBox>

/// A pop-up button without a frame, small and quiet, whose arrow can be taken away.
class StatusPopUp : public QComboBox {
    Q_OBJECT

public:
    /// Between its left side and its words.
    static constexpr int textIndent = 3;

    explicit StatusPopUp(QWidget* parent = nullptr);

    /// Replaces the items and selects the first. Items that are there already stay, and with them an
    /// open list of them.
    void setItems(const QStringList& items);

    void setArrowVisible(bool isVisible);
    bool isArrowVisible() const { return _isArrowVisible; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    /// Scrolling over it in passing chooses nothing.
    void wheelEvent(QWheelEvent* event) override;

private:
    bool _isArrowVisible = true;
};
