#pragma once

#include <QBasicTimer>
#include <QLineEdit>

/// The one line in which a command is typed, in the console's colours.
///
/// Return and Enter end a command; everything else is a line edit's own. While an input method composes,
/// Return belongs to it.
class ConsoleInputField : public QLineEdit {
    Q_OBJECT

public:
    explicit ConsoleInputField(QWidget* parent = nullptr);

Q_SIGNALS:
    /// Return was pressed.
    void newlineCommand();

protected:
    bool event(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void inputMethodEvent(QInputMethodEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void timerEvent(QTimerEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void applyLook();
    void restartBlinking();

    bool isComposing = false;
    // A line edit paints its insertion point in the colour of its text; this one's has its own.
    bool isInsertionPointShown = false;
    QBasicTimer blinking;
};
