#pragma once

#include "StateKit/SignalTarget.h"

#include <string>

#include <QPlainTextEdit>
#include <QWidget>

class ConnectionView;

/// Takes what was typed into an `InputView`.
class InputViewDelegate {
public:
    /// @param text  UTF-8, as typed: nothing is trimmed, lines end in "\n", and it may be empty
    /// @return whether to clear the input
    virtual bool didSubmit(const std::string& text) = 0;

protected:
    ~InputViewDelegate() = default;
};

/// The editor inside an `InputView`: plain text, without frame or background.
///
/// Return and Enter submit; with a modifier they add a line. While an input method composes, Return
/// belongs to it. Tab goes to the next control.
class InputTextView : public QPlainTextEdit {
    Q_OBJECT

public:
    explicit InputTextView(QWidget* parent = nullptr);

    /// How much of the right side is kept free of text, in points.
    int rightContentInset() const { return rightInset; }
    void setRightContentInset(int inset);

    /// What was typed, with "\n" between lines, and not otherwise changed.
    QString text() const;

Q_SIGNALS:
    /// Return was pressed.
    void newlineCommand();

protected:
    bool event(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void applyFont();
    void applyMargins();
    void fitWrapping(int position, int removed, int added);

    int rightInset = 0;
};

/// The entry of text at the foot of a chat, with a pill "Offline" at its right end.
///
/// Knows no session: its owner says when it is offline, and gets the text. It stays editable while
/// offline. Its owner sets its height, 40 points in a chat; a longer text scrolls. Main thread only.
class InputView : public QWidget, public SignalTarget {
    Q_OBJECT

public:
    explicit InputView(QWidget* parent = nullptr);

    /// Held weakly. Without one, what is submitted is dropped.
    void setDelegate(Weak<InputViewDelegate> delegate) { this->delegate = delegate; }

    bool isOffline() const { return _isOffline; }
    void setOffline(bool isOffline);

    InputTextView& textView() { return *_textView; }
    /// The same object: it scrolls its own text.
    InputTextView& scroll() { return *_textView; }
    ConnectionView& connection() { return *_connection; }

protected:
    bool event(QEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void submit();
    void makeRoom();

    Weak<InputViewDelegate> delegate;
    bool _isOffline = false;
    InputTextView* _textView;
    ConnectionView* _connection;
};
