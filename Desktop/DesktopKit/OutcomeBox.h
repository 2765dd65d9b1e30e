#pragma once

#include <QColor>
#include <QWidget>

#include <optional>

/// A box with round corners that is green, red, or in the colour of a quiet background.
class OutcomeBox : public QWidget {
    Q_OBJECT

public:
    explicit OutcomeBox(QWidget* parent = nullptr) : QWidget(parent) {}

    /// Both colours are dark enough for white symbols, in a light and a dark palette.
    static QColor green() { return {36, 138, 61}; }
    static QColor red() { return {207, 46, 46}; }

    /// @param isGood  nothing for no outcome yet
    void setOutcome(std::optional<bool> isGood);
    QColor color() const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::optional<bool> isGood;
};
