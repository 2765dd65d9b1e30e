#pragma once

#include <QBasicTimer>
#include <QLineEdit>

/// The one line in which a command is typed, in the console's colours.
///
/// Return and Enter end a command; other keys act as in any line edit. While an input method composes,
/// Return ends the composition.
class ConsoleInputField : public QLineEdit {
    Q_OBJECT

public:
    explicit ConsoleInputField(QWidget* parent = nullptr);

Q_SIGNALS:
    /// Emitted when Return or Enter was pressed.
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
    // QLineEdit paints the insertion point in the text's colour; we paint ours, to have another colour.
    bool isInsertionPointShown = false;
    QBasicTimer blinking;
};
